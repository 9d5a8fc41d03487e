#include "MemoryInUse.h"

#include "LiveBlocks.h"
#include "SanitizerRuntime.h"

#ifdef ZYN_SOAK_SANITIZER_RUNTIME

namespace soak {
size_t memoryInUse() { return __sanitizer_get_current_allocated_bytes(); }
const char* memoryCounter() { return "sanitizer allocator"; }
void watchAllocations() { (void)__sanitizer_install_malloc_and_free_hooks(&blockAllocated, &blockReleased); }
}  // namespace soak

#else

// Without a sanitizer the soak counts C++ heap blocks itself: the global
// operator new and delete below cover the soak, the library, the platform and
// the C++ runtime (whose calls bind to these replacements). The C library's
// own statistics would miss the per-thread arenas.
#include <malloc.h>

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<size_t> bytesInUse{0};

void* allocate(size_t size) {
    void* block = std::malloc(size == 0 ? 1 : size);
    if (block != nullptr) {
        bytesInUse.fetch_add(malloc_usable_size(block), std::memory_order_relaxed);
        soak::blockAllocated(block, size);
    }
    return block;
}

void release(void* block) {
    if (block != nullptr) {
        soak::blockReleased(block);
        bytesInUse.fetch_sub(malloc_usable_size(block), std::memory_order_relaxed);
        std::free(block);
    }
}

}  // namespace

void* operator new(size_t size) {
    void* block = allocate(size);
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    return block;
}

void* operator new[](size_t size) { return operator new(size); }
void* operator new(size_t size, const std::nothrow_t&) noexcept { return allocate(size); }
void* operator new[](size_t size, const std::nothrow_t&) noexcept { return allocate(size); }
void operator delete(void* block) noexcept { release(block); }
void operator delete[](void* block) noexcept { release(block); }
void operator delete(void* block, size_t) noexcept { release(block); }
void operator delete[](void* block, size_t) noexcept { release(block); }
void operator delete(void* block, const std::nothrow_t&) noexcept { release(block); }
void operator delete[](void* block, const std::nothrow_t&) noexcept { release(block); }

namespace soak {
size_t memoryInUse() { return bytesInUse.load(); }
const char* memoryCounter() { return "operator new/delete"; }
// The replacements above report every block already.
void watchAllocations() {}
}  // namespace soak

#endif
