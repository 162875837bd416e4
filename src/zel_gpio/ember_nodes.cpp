#include "zel_gpio/ember_nodes.h"

#include "zel_gpio/port_names.h"

namespace zel {

ember_nodes nodes;

zel_ember_element_t *add_name_leaf(zel_ember_element_t *parent, const char *format, int32_t id, const char *name)
{
    if (ember_provider == nullptr || parent == nullptr) return nullptr;
    return zel_ember_add_string_param(ember_provider, numbered(format, id).text, nullptr, 0, access_read, name, nullptr, nullptr,
                                      parent);
}

void remove_element(zel_ember_element_t *&element)
{
    if (ember_provider != nullptr && element != nullptr) (void)zel_ember_remove_element(ember_provider, element);
    element = nullptr;
}

}  // namespace zel
