// What a provider says about its elements.
#pragma once

#include "tree.h"

namespace zel::ember {

// Value and type of a parameter: the answer to a set, and what subscribers are told of a change.
void write_notice(ber::writer &w, const element &parameter);
// Answer to GetDirectory. One level only.
void write_directory(ber::writer &w, const element &e);
// An element that has come: its path and everything about it.
void write_announcement(ber::writer &w, const element &e);
// An element that goes. It still stands in the tree.
void write_farewell(ber::writer &w, const element &e);

}  // namespace zel::ember
