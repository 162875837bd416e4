// The GPIO sections of the unit's configuration file: its objects, and writing records back into it.
#pragma once

#include <cstdint>

#include "zel_gpio/records.h"

namespace zel {

inline constexpr const char *configuration_path = "/mnt/data/config/config.json";

extern zel_json_file_t *gpio_json;
extern zel_json_obj_t *gpio_json_obj, *phys_gpio_json_obj, *relays_json_obj, *virt_gpio_json_obj, *user_btn_json_obj,
    *handler_info_json_obj;

// While start-up completes the entries of an older file, the lists of names on the grid stay as they are: the host has not
// registered its names yet, and leaving them out would keep their saved connections from coming back. Set at its end.
extern bool startup_done;

// Opens whatever is not open yet. 0, or -1 if anything could not be opened.
int32_t init_gpio_json_objs();
// Closes the file and forgets all its objects.
void close_configuration();

// Reads the texts of names on the grid, which the two tests below search.
void load_on_grid_texts();
// True if the kept text holds the name, anywhere: a plain search on purpose, "GPI 1" is found in "GPI 10".
bool handler_on_grid(const char *name);
bool trigger_on_grid(const char *name);

// The port's section, or null.
zel_json_obj_t *section_of(const gpio_port_t &port);

// Each writes one record, or list of names, back. 0, or -1 (logged).
int32_t update_gpio_json(int32_t index);
int32_t update_relay_json(int32_t index);
int32_t update_handler_json(int32_t id);
int32_t update_on_grid_handlers();
int32_t update_on_grid_triggers();

}  // namespace zel
