#include "sys_allocations.h"

#include <cstddef>
#include <cstdlib>
#include <new>

allocation_fault allocations;

void *operator new(std::size_t size)
{
    const bool fails = allocations.counted && allocations.until_failure >= 0 && allocations.until_failure-- == 0;
    void *const memory = fails ? nullptr : std::malloc(size != 0 ? size : 1);
    if (memory == nullptr) throw std::bad_alloc();
    return memory;
}

void operator delete(void *memory) noexcept
{
    std::free(memory);
}

void operator delete(void *memory, std::size_t) noexcept
{
    std::free(memory);
}
