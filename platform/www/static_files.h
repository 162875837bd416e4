// The files below one folder, as they are given to browsers.
#pragma once

#include "common/unique_fd.h"
#include "replies.h"

#include <sys/stat.h>

#include <map>
#include <string>
#include <string_view>

namespace zel::web {

class static_files {
public:
    // False with errno if the folder cannot be opened. Without a folder there are no files.
    bool open(const std::string &folder);

    // Gives the file of the request's path; "/" at its end stands for the folder's index.html. Nothing leads out of the folder:
    // neither ".." nor a symbolic link, and names that begin with a dot are not given.
    MHD_Result give(MHD_Connection *mhd, request &each);

private:
    struct packed_file {
        std::string tag;     // of the file that was packed
        std::string bytes;   // empty: it does not become shorter
    };
    unique_fd open_below(std::string_view path, struct stat &info) const;
    const std::string *packed(const std::string &path, const std::string &tag, int fd, size_t size);
    MHD_Result send_file(MHD_Connection *mhd, request &each, unique_fd file, const struct stat &info, const std::string &path);

    unique_fd folder_;
    std::map<std::string, packed_file> packed_;
    size_t packed_bytes_ = 0;
};

}  // namespace zel::web
