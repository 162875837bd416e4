#include "bench_unit.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace bench {

namespace fs = std::filesystem;

unit_folder::unit_folder(const std::string &gpio_section)
{
    std::string pattern = fs::temp_directory_path() / "zel_bench_XXXXXX";
    require(mkdtemp(pattern.data()) != nullptr, "making a folder");
    root_ = pattern;
    fs::create_directories(root_ + "/etc/zel");
    fs::create_directories(root_ + "/mnt/data/config");
    std::ofstream(root_ + "/etc/zel/unit.json") << "{\"friendly_name\": \"bench\"}\n";
    std::ofstream(root_ + "/mnt/data/config/config.json") << "{\"gpio\": " << gpio_section << "}\n";
    setenv("ZEL_ROOT", root_.c_str(), 1);
    setenv("ZEL_LOG_LEVEL", "error", 1);
}

unit_folder::~unit_folder()
{
    fs::remove_all(root_);
}

void require(bool good, const char *what)
{
    if (good) return;
    std::fprintf(stderr, "benchmark failed: %s\n", what);
    std::exit(1);
}

}  // namespace bench
