#include "vgpo_list/vgpo_list.h"

#include <cstdlib>
#include <cstring>
#include <initializer_list>

#include "zel_debug.h"
#include "zel_gpio/assertion.h"

namespace zel {

namespace {

constexpr uint32_t last_id = 0x7FFFFFFF;

// A node as it is allocated. Removing a record moves its node to the chain below, because callers may still hold a pointer to
// the record; new records are taken from there first, so that units that come and go do not add up.
struct list_entry {
    vgpo_node_t node;  // first: the list links the nodes
    const vgpo_list_t *owner;
};
vgpo_node_t *removed;

list_entry *entry_of(vgpo_node_t *node)
{
    return reinterpret_cast<list_entry *>(node);
}

void release_strings(vGPO_t &vgpo)
{
    for (char **const text : {&vgpo.name, &vgpo.addr_port, &vgpo.type_path, &vgpo.status_path}) {
        std::free(*text);
        *text = nullptr;
    }
}

void release_entry(vgpo_node_t *node)
{
    release_strings(*node->vgpo);
    std::free(node->vgpo);
    std::free(entry_of(node));
}

// The lowest number that no record holds. Lists are mostly in the order of their numbers, so that one pass counts through a
// whole run of them.
uint32_t vgpo_list_next_free_id(const vgpo_list_t *list)
{
    uint32_t candidate = 0;
    for (bool taken = true; taken && candidate < last_id;) {
        taken = false;
        for (const vgpo_node_t *node = list->head; node != nullptr && candidate < last_id; node = node->next) {
            if (node->vgpo->id != candidate) continue;
            ++candidate;
            taken = true;
        }
    }
    return candidate;
}

bool is_named(const vgpo_node_t *node, const char *name)
{
    return node->vgpo->name != nullptr && std::strcmp(node->vgpo->name, name) == 0;
}

void unlink(vgpo_list_t *list, vgpo_node_t *previous, vgpo_node_t *node)
{
    if (list->head == node) list->head = node->next;
    if (list->tail == node) list->tail = previous;
    if (previous != nullptr) previous->next = node->next;
    --list->count;
}

// Unlinks the first record of that name, with its strings still in place; null if there is none.
vGPO_t *take_out(vgpo_list_t *list, const char *name)
{
    vgpo_node_t *previous = nullptr;
    for (vgpo_node_t *node = list->head; node != nullptr; previous = node, node = node->next) {
        if (!is_named(node, name)) continue;
        log_message(2, "%s: Removing vgpo '%s'\n", "remove_vgpo", node->vgpo->name);
        unlink(list, previous, node);
        node->next = removed;
        removed = node;
        return node->vgpo;
    }
    return nullptr;
}

// Takes the first removed node of this list out of the chain, or null.
vgpo_node_t *take_removed(const vgpo_list_t *list)
{
    for (vgpo_node_t **link = &removed; *link != nullptr; link = &(*link)->next) {
        if (entry_of(*link)->owner != list) continue;
        vgpo_node_t *const node = *link;
        *link = node->next;
        return node;
    }
    return nullptr;
}

}  // namespace

vGPO_t *take_vgpo_record(vgpo_list_t *list)
{
    vgpo_node_t *const spare = take_removed(list);
    if (spare == nullptr) return static_cast<vGPO_t *>(std::calloc(1, sizeof(vGPO_t)));
    vGPO_t *const record = spare->vgpo;
    std::free(entry_of(spare));
    *record = vGPO_t{};
    return record;
}

}  // namespace zel

using namespace zel;

void vgpo_list_init(vgpo_list_t *new_list)
{
    zel_assert(new_list != NULL);
    *new_list = vgpo_list_t{};
}

void vgpo_list_add_last(vgpo_list_t *list, vGPO_t *vgpo)
{
    zel_assert(list != NULL);
    zel_assert(vgpo != NULL);
    list_entry *const entry = static_cast<list_entry *>(std::malloc(sizeof(list_entry)));
    if (entry == nullptr) return;
    vgpo->id = vgpo_list_next_free_id(list);
    *entry = list_entry{{vgpo, nullptr}, list};
    (list->tail != nullptr ? list->tail->next : list->head) = &entry->node;
    list->tail = &entry->node;
    ++list->count;
}

void vgpo_list_free(vgpo_list_t *list)
{
    zel_assert(list != NULL);
    while (vgpo_node_t *const node = list->head) {
        list->head = node->next;
        release_entry(node);
    }
    while (vgpo_node_t *const node = take_removed(list)) release_entry(node);
    *list = vgpo_list_t{};
}

vGPO_t *find_vgpo_by_name(vgpo_list_t *list, const char *name)
{
    zel_assert(list != NULL);
    zel_assert(name != NULL);
    for (const vgpo_node_t *node = list->head; node != nullptr; node = node->next) {
        if (is_named(node, name)) return node->vgpo;
    }
    return nullptr;
}

void remove_vgpo(vgpo_list_t *list, const char *name)
{
    zel_assert(list != NULL);
    zel_assert(name != NULL);
    vGPO_t *const record = take_out(list, name);
    if (record != nullptr) release_strings(*record);
}
