// Doors in from the Ember+ tree: one callback per writable parameter. Each logs the request, hands the value to its worker and
// tells the SNMP agent where the worker does not. The user data is the port or relay record.
#pragma once

#include <cstdint>

#include "zel_gpio/records.h"

namespace zel {

int gpio_type_cb(void *user_data, const char *client_addr, uint16_t client_port, zel_ember_element_t *param, const void *value);
int gpio_handler_cb(void *user_data, const char *client_addr, uint16_t client_port, zel_ember_element_t *param, const void *value);
int gpio_trigger_cb(void *user_data, const char *client_addr, uint16_t client_port, zel_ember_element_t *param, const void *value);
int gpio_in_mode_cb(void *user_data, const char *client_addr, uint16_t client_port, zel_ember_element_t *param, const void *value);
int vgpo_src_cb(void *user_data, const char *client_addr, uint16_t client_port, zel_ember_element_t *param, const void *value);
int gpio_status_cb(void *user_data, const char *client_addr, uint16_t client_port, zel_ember_element_t *param, const void *value);
int relay_trigger_cb(void *user_data, const char *client_addr, uint16_t client_port, zel_ember_element_t *param, const void *value);

}  // namespace zel
