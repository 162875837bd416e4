#include "border.h"
#include "sys_config.h"
#include "zel_sys.h"

const char *zel_sys_get_prodid(void)
{
    return zel::guarded(__func__, zel::default_product_id, [] { return zel::config_of_unit().product_id.c_str(); });
}

void zel_sys_strpercentenc(const char *text, char *out)
{
    static constexpr char digits[] = "0123456789ABCDEF";
    if (out == nullptr) return;
    for (; text != nullptr && *text != '\0'; ++text) {
        const auto byte = static_cast<unsigned char>(*text);
        if (byte >= 0x20 && byte != 0x7F) {
            *out++ = *text;
            continue;
        }
        *out++ = '%';
        *out++ = digits[byte >> 4];
        *out++ = digits[byte & 15];
    }
    *out = '\0';
}
