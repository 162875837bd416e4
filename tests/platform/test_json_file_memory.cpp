// Every allocation of a file's life fails once: no crash, no half-written file, and nothing is lost that was not refused.
//
// A program of its own, because it takes the place of libc's allocator.
#include "captured_stderr.h"
#include "temp_folder.h"
#include "zel_json.h"

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>

extern "C" void *__libc_malloc(size_t size);
extern "C" void *__libc_calloc(size_t count, size_t size);
extern "C" void *__libc_realloc(void *memory, size_t size);

namespace {

std::atomic<int> fails_at = 0;  // counts down to the allocation that fails; 0 fails none
std::atomic<bool> has_failed = false;

bool fails_now()
{
    int before = fails_at.load();
    while (before > 0 && !fails_at.compare_exchange_weak(before, before - 1)) {}
    if (before != 1) return false;
    has_failed = true;
    errno = ENOMEM;
    return true;
}

constexpr char old_text[] = "{\"gpio\": {\"number\": 1, \"name\": \"old\", \"gone\": {\"deep\": {}}}}\n";
constexpr char long_name[] = "a name that is longer than what the small buffers of strings hold, so that it needs an allocation";
constexpr char path[] = "/config/config.json";

// A file's life from opening to closing, in which the allocation number `nth` fails; whether all of its calls went well.
bool lives(int nth)
{
    has_failed = false;
    fails_at = nth;
    zel_json_file_t *const file = zel_json_file_init(path);
    zel_json_obj_t *const obj = zel_json_file_load_object(file, nullptr, "gpio");
    zel_json_obj_t *const made = zel_json_file_load_object(file, obj, "made");
    zel_json_obj_t *const gone = zel_json_file_load_object(file, obj, "gone");
    bool well = file != nullptr && made != nullptr && zel_json_file_load_object(file, gone, "deep") != nullptr;
    well &= zel_json_file_set_integer(file, obj, "number", 2) == 0;
    well &= zel_json_file_set_string(file, obj, "name", long_name) == 0;
    well &= zel_json_file_set_boolean(file, made, "flag", 1) == 0;
    well &= zel_json_remove_object(file, obj, "gone") == 0;
    zel_json_file_term(file);
    fails_at = 0;
    return well;
}

// What the next start finds.
void expect_file(bool all_set, int nth)
{
    zel_json_file_t *const file = zel_json_file_init(path);
    ASSERT_NE(file, nullptr) << "allocation " << nth;
    zel_json_obj_t *const obj = zel_json_file_load_object(file, nullptr, "gpio");
    const int32_t number = zel_json_file_load_integer(file, obj, "number", -1);
    EXPECT_TRUE(number == 2 || (number == 1 && !all_set)) << "allocation " << nth << ": " << number;
    const char *const name = zel_json_file_load_string(file, obj, "name", "");
    EXPECT_TRUE(std::strcmp(name, long_name) == 0 || (std::strcmp(name, "old") == 0 && !all_set)) << "allocation " << nth << name;
    zel_json_file_term(file);
}

}  // namespace

#pragma GCC visibility push(default)
extern "C" {

void *malloc(size_t size) { return fails_now() ? nullptr : __libc_malloc(size); }
void *calloc(size_t count, size_t size) { return fails_now() ? nullptr : __libc_calloc(count, size); }
void *realloc(void *memory, size_t size) { return fails_now() ? nullptr : __libc_realloc(memory, size); }

}  // extern "C"
#pragma GCC visibility pop

TEST(json_file_memory, any_allocation_may_fail)
{
    const temp_folder unit;
    captured_stderr log;
    setenv("ZEL_ROOT", unit.path().c_str(), 1);
    for (const bool broken : {false, true}) {
        int nth = 0;
        do {
            ASSERT_LT(++nth, 1000);
            std::filesystem::remove_all(unit.file("config"));
            write_text(unit.file("config/config.json"), broken ? "{ broken" : old_text);
            write_text(unit.file("config/config.json.good"), old_text);
            const bool well = lives(nth);
            expect_file(well, nth);
            for (const std::string &line : log.all()) EXPECT_EQ(line.find(" are lost"), std::string::npos) << line;
        } while (has_failed);
        EXPECT_GT(nth, 20);
    }
}
