// The grid's JSON as tests write it down: items, connections and lists of them.
#pragma once

#include <initializer_list>
#include <string>

namespace grid_texts {

inline std::string connection(const char *from, int from_id, const char *to, int to_id, int invert, const char *allow, int state)
{
    const auto truth = [](int value) { return value != 0 ? "true" : "false"; };
    std::string text = std::string("{\"input_class\":\"") + from + "\",\"input_id\":" + std::to_string(from_id) +
                       ",\"output_class\":\"" + to + "\",\"output_id\":" + std::to_string(to_id) + ",\"invert\":" + truth(invert);
    if (allow != nullptr) text += std::string(",\"allow_invert\":") + allow;
    return text + ",\"state\":" + truth(state) + "}";
}

inline std::string item(int index, const char *kind, const char *name, int state, const std::string &more = "")
{
    return "{\"index\":" + std::to_string(index) + ",\"class\":\"" + kind + "\",\"name\":\"" + name + "\",\"state\":" +
           (state != 0 ? "true" : "false") + more + "}";
}

inline std::string list(std::initializer_list<std::string> items)
{
    std::string text = "[";
    for (const std::string &one : items) text += (text.size() > 1 ? "," : "") + one;
    return text + "]";
}

}  // namespace grid_texts
