// Virtual outputs of other units, as the discovery daemon reports them.
#pragma once

#include <cstddef>
#include <cstdint>

#include "zel_gpio/records.h"

namespace zel {

// Makes the link to the daemon and asks it for services. 0, or -1.
int32_t sdisc_init();

// Enters or updates a remote virtual output. `address` and `strlist` may be null: a name that is known from the configuration only.
// Inputs that follow it are connected anew when its address or path changed. The record, or null (empty name, no memory).
vGPO_t *add_remote_vgpo(const char *name, const char *address, uint16_t port, const char *strlist);

// Reads "path=" and "altport=" of a TXT text. 1 if a path was stored, 0 if nothing changed, -1 if memory was short.
int32_t parse_strlist(vGPO_t *vgpo, uint16_t *port, const char *strlist);

// Drops the sessions and levels of the inputs that follow the source. 1 if there are any, else 0.
int32_t reset_vgpis_following(const char *name);

// Writes the array of sources that can be chosen, and returns the writer's position.
int get_vgpo_src_list(char *buf, size_t size, int pos);

}  // namespace zel
