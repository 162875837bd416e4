#include "sys_config.h"

#include "common/unit_file.h"
#include "common/unit_root.h"
#include "pin.h"
#include "zel_debug.h"

#include <array>
#include <charconv>
#include <cstring>

namespace zel {
namespace {

pin_backend backend_of(const unit_file &file)
{
    const char *const name = file.string("pin_backend", "sim");
    if (std::strcmp(name, "sim") == 0) return pin_backend::sim;
    if (std::strcmp(name, "kernel") == 0) return pin_backend::kernel;
    log_message(0, "%s: pin_backend is \"%s\", neither \"sim\" nor \"kernel\": no pin will open\n", __func__, name);
    return pin_backend::unknown;
}

bool is_pin_number(const std::string &text, int32_t &number)
{
    const char *const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && rest == end && number >= 0;
}

std::map<int32_t, chip_line> kernel_lines_of(const unit_file &file)
{
    std::map<int32_t, chip_line> lines;
    for (const std::string &name : file.member_names("kernel_lines")) {
        int32_t number = -1;
        if (!is_pin_number(name, number)) {
            log_message(0, "%s: kernel_lines/%s: \"%s\" is no pin number, ignored\n", __func__, name.c_str(), name.c_str());
            continue;
        }
        const std::string path = "kernel_lines/" + name;
        lines[number] = {file.string((path + "/chip").c_str(), ""), file.integer((path + "/offset").c_str(), -1, 0)};
    }
    return lines;
}

std::set<std::pair<int32_t, int32_t>> active_low_pins_of(const unit_file &file)
{
    struct member_names {
        int32_t direction;
        const char *pin, *active_low;
    };
    static constexpr member_names both[] = {{direction_input, "/in_pin", "/in_active_low"},
                                            {direction_output, "/out_pin", "/out_active_low"}};
    std::set<std::pair<int32_t, int32_t>> pins;
    for (size_t i = 0; i < file.count("pins"); ++i) {
        const std::string path = "pins/" + std::to_string(i);
        for (const member_names &names : both) {
            const int32_t pin = file.integer((path + names.pin).c_str(), -1);
            if (file.boolean((path + names.active_low).c_str(), false)) pins.emplace(names.direction, pin);
        }
    }
    return pins;
}

sys_config read_config()
{
    const unit_file file = unit_file::load();
    const char *const product_id = file.string("product_id", default_product_id);
    return {product_id[0] != '\0' ? product_id : default_product_id, backend_of(file), kernel_lines_of(file),
            active_low_pins_of(file)};
}

}  // namespace

const sys_config &config_of_unit()
{
    // Never destroyed: pins and texts handed out may be used until the very end of the process.
    static auto &configs = *new std::map<std::string, sys_config>;
    const std::string path = below_unit_root(unit_file_path);
    auto found = configs.find(path);
    if (found == configs.end()) found = configs.emplace(path, read_config()).first;
    return found->second;
}

}  // namespace zel
