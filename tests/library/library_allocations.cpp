#include "library_allocations.h"

#include <cstring>
#include <set>

namespace {

int nth_to_fail = -1, made;
bool failed;

std::set<void *> &held()
{
    static auto *const pointers = new std::set<void *>;   // outlives every static object that may still release memory
    return *pointers;
}

bool must_fail()
{
    const bool fails = made++ == nth_to_fail;
    failed = failed || fails;
    return fails;
}

void *keep(void *memory)
{
    if (memory != nullptr)
        held().insert(memory);
    return memory;
}

}  // namespace

namespace fake {

void fail_allocation(int nth)
{
    nth_to_fail = nth < 0 ? -1 : made + nth;
    failed = false;
}

bool allocation_failed() { return failed; }
int allocations() { return made; }
size_t allocations_held() { return held().size(); }

}  // namespace fake

extern "C" {

void *__real_malloc(size_t size);
void *__real_calloc(size_t count, size_t size);
char *__real_strdup(const char *text);
char *__real_strndup(const char *text, size_t size);
void __real_free(void *memory);

void *__wrap_malloc(size_t size) { return must_fail() ? nullptr : keep(__real_malloc(size)); }
void *__wrap_calloc(size_t count, size_t size) { return must_fail() ? nullptr : keep(__real_calloc(count, size)); }
char *__wrap_strdup(const char *text) { return must_fail() ? nullptr : static_cast<char *>(keep(__real_strdup(text))); }

char *__wrap_strndup(const char *text, size_t size)
{
    return must_fail() ? nullptr : static_cast<char *>(keep(__real_strndup(text, size)));
}

void __wrap_free(void *memory)
{
    held().erase(memory);
    __real_free(memory);
}

}  // extern "C"
