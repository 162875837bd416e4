// The single steps of replacing a file durably. Each gives 0 or an errno.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <string>

namespace zel {

// Makes or empties a file for the owner only; the descriptor, or -1 with errno.
int create_file(const char *path) noexcept;
int write_all(int fd, const char *text, size_t length) noexcept;
// Makes the missing folders of a file durably: also the entries of the new folders reach the disk.
int make_durable_folder_of(const std::string &path) noexcept;
int sync_folder(const char *folder) noexcept;
// Gives `path` the second name `other`, which may exist: it is replaced by way of the name `temporary`, so that there is
// always one.
int link_over(const char *path, const char *other, const char *temporary) noexcept;
// True when both names exist and mean one file.
bool is_same_file(const char *path, const char *other) noexcept;

}  // namespace zel
