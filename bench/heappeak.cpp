#include "heappeak.h"

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <malloc.h>

extern "C" {
void *__libc_malloc(size_t size);
void *__libc_calloc(size_t count, size_t size);
void *__libc_realloc(void *ptr, size_t size);
void *__libc_memalign(size_t alignment, size_t size);
void __libc_free(void *ptr);
}

namespace {

std::atomic<bool> g_counting{false};
std::atomic<std::int64_t> g_inUse{0};
std::atomic<std::int64_t> g_peak{0};

// Usable sizes, not requested ones: that is what a block really takes from the heap.
void added(void *ptr)
{
    if (!ptr || !g_counting.load(std::memory_order_relaxed))
        return;
    const auto size = std::int64_t(malloc_usable_size(ptr));
    const std::int64_t now = g_inUse.fetch_add(size, std::memory_order_relaxed) + size;
    std::int64_t peak = g_peak.load(std::memory_order_relaxed);
    while (now > peak && !g_peak.compare_exchange_weak(peak, now, std::memory_order_relaxed)) {
    }
}

void removed(void *ptr)
{
    if (ptr && g_counting.load(std::memory_order_relaxed))
        g_inUse.fetch_sub(std::int64_t(malloc_usable_size(ptr)), std::memory_order_relaxed);
}

} // namespace

namespace qarvo::bench {

void startHeapCount()
{
    g_inUse = 0;
    g_peak = 0;
    g_counting = true;
}

std::size_t stopHeapCount()
{
    g_counting = false;
    return std::size_t(g_peak.load());
}

} // namespace qarvo::bench

extern "C" {

void *malloc(size_t size)
{
    void *p = __libc_malloc(size);
    added(p);
    return p;
}

void *calloc(size_t count, size_t size)
{
    void *p = __libc_calloc(count, size);
    added(p);
    return p;
}

void *realloc(void *ptr, size_t size)
{
    removed(ptr);
    void *p = __libc_realloc(ptr, size);
    // A failed realloc leaves the old block where it was.
    added(p ? p : (size ? ptr : nullptr));
    return p;
}

void free(void *ptr)
{
    removed(ptr);
    __libc_free(ptr);
}

void *memalign(size_t alignment, size_t size)
{
    void *p = __libc_memalign(alignment, size);
    added(p);
    return p;
}

void *aligned_alloc(size_t alignment, size_t size)
{
    return memalign(alignment, size);
}

int posix_memalign(void **out, size_t alignment, size_t size)
{
    if (alignment % sizeof(void *) != 0 || (alignment & (alignment - 1)) != 0)
        return EINVAL;
    void *p = memalign(alignment, size);
    if (!p && size)
        return ENOMEM;
    *out = p;
    return 0;
}

} // extern "C"
