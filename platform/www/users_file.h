// The file of users: one "name:hash" per line, the hash as crypt(3) makes it. Lines that begin with '#' and empty ones are
// ignored.
#pragma once

#include <map>
#include <string>
#include <string_view>

namespace zel::web {

using user_table = std::map<std::string, std::string, std::less<>>;   // name, hash

enum class users_state { missing, good, broken };

// `problem` gets one line for a broken file.
users_state read_users(const std::string &path, user_table &users, std::string &problem);
bool is_user_name(std::string_view name);
// Replaces the file as a whole. False with errno.
bool write_users(const std::string &path, const user_table &users);
// A salted hash of the password; "" if the system cannot make one.
std::string hash_password(const std::string &password);
// Whether it is the password of that hash; takes long by design.
bool is_password(const std::string &password, const std::string &hash);

}  // namespace zel::web
