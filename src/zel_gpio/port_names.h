// Configuration keys and display names of ports and relays.
#pragma once

#include <cstdint>

#include "zel_gpio/records.h"

namespace zel {

inline constexpr int32_t port_name_size = 32;  // holds every key and name made here
struct port_name {
    char text[port_name_size];
};

// The name shown to users. `number` counts from 1; an unknown class writes nothing. `buf` holds port_name_size bytes.
void get_gpio_port_name(int32_t number, uint32_t gpio_class, char *buf);
// The number within its class that users see for the port at this index, from 1 (cough ports go on from the GPI ports).
int32_t display_number(int32_t index);

// "GPI 3" for ("GPI %d", 3). `format` has one "%d".
port_name numbered(const char *format, int32_t number);

// Key of the port in its section of the configuration file.
port_name port_key(const gpio_port_t &port);
port_name relay_key(int32_t index);
// Name of the trigger that an input of this place raises; of a user LED the handler that it shows.
port_name own_name(const gpio_port_t &port);

// Number of a button/LED pair, from 1, for a port index.
int32_t pair_number(int32_t index);

}  // namespace zel
