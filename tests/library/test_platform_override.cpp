// A program that defines only some platform functions itself: the library calls those, and the platform's libraries for the rest.
#include <cstdarg>
#include <cstdio>
#include <string>

#include <gtest/gtest.h>

#include "zel_debug.h"
#include "zel_gpio.h"

namespace {

std::string logged, opened;

}  // namespace

extern "C" {

__attribute__((visibility("default"))) void log_message(int level, const char *format, ...)
{
    char text[500];
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    logged += std::to_string(level) + " " + text;
}

__attribute__((visibility("default"))) zel_json_file_t *zel_json_file_init(const char *path)
{
    opened = path;
    return nullptr;
}

}  // extern "C"

TEST(a_program, takes_the_place_of_the_platform_functions_that_it_defines)
{
    EXPECT_EQ(zel_gpio_init(nullptr, 0, 0, 0, 0, 0, nullptr, nullptr, nullptr, 0, nullptr), 0);
    EXPECT_EQ(opened, "/mnt/data/config/config.json");
    EXPECT_NE(logged.find("0 zel_gpio_init: Failed to initialise /mnt/data/config/config.json\n"), std::string::npos) << logged;
    EXPECT_EQ(zel_gpio_get_relay_count(), -1);
    zel_gpio_term();
}
