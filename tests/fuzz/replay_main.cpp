// Runs a fuzzer's entry over the files of its corpus, in builds without a fuzzer: what was found once stays found.

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

int main(int argc, char **argv)
{
    size_t count = 0;
    for (int i = 1; i < argc; ++i) {
        std::error_code error;
        for (const auto &entry : std::filesystem::recursive_directory_iterator(argv[i], error)) {
            if (!entry.is_regular_file())
                continue;
            std::ifstream file(entry.path(), std::ios::binary);
            const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
            (void)LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size());
            ++count;
        }
        if (error) {
            std::fprintf(stderr, "%s: %s\n", argv[i], error.message().c_str());
            return 1;
        }
    }
    std::printf("%zu inputs\n", count);
    return count > 0 ? 0 : 1;
}
