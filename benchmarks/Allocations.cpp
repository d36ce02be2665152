#include "Allocations.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace
{

std::atomic<unsigned long long> s_nAllocations{0};

} // namespace

unsigned long long GetAllocations()
{
    return s_nAllocations.load();
}

// The other forms of new and delete, arrays and nothrow, come here too. Nothing measured is over-aligned.
void* operator new(std::size_t nSize)
{
    s_nAllocations.fetch_add(1, std::memory_order_relaxed);
    if (void* const pMemory = std::malloc(nSize != 0 ? nSize : 1))
        return pMemory;
    throw std::bad_alloc();
}

void operator delete(void* pMemory) noexcept
{
    std::free(pMemory);
}

void operator delete(void* pMemory, std::size_t /*nSize*/) noexcept
{
    std::free(pMemory);
}
