// Replacement of the global allocation functions that counts, per thread, the
// allocations made inside an AllocationScope. Every form is replaced so that
// allocation and release always pair within this file (malloc/free), also
// under the sanitizers' own allocators.
#include "AllocationCounter.h"

#include <cstdlib>
#include <new>

namespace {

thread_local int openScopes = 0;
thread_local uint64_t allocations = 0;
thread_local int failingScopes = 0;
thread_local uint64_t refusals = 0;

void* allocate(std::size_t size) {
    if (openScopes > 0) {
        ++allocations;
    }
    if (failingScopes > 0) {
        ++refusals;
        throw std::bad_alloc();
    }
    void* memory = std::malloc(size == 0 ? 1 : size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

void* allocateNoThrow(std::size_t size) noexcept {
    try {
        return allocate(size);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

}  // namespace

namespace test_support {

AllocationScope::AllocationScope() : startCount(allocations) { ++openScopes; }
AllocationScope::~AllocationScope() { --openScopes; }
uint64_t AllocationScope::count() const { return allocations - startCount; }

AllocationFailureScope::AllocationFailureScope() : startRefused(refusals) { ++failingScopes; }
AllocationFailureScope::~AllocationFailureScope() { --failingScopes; }
uint64_t AllocationFailureScope::refused() const { return refusals - startRefused; }

}  // namespace test_support

void* operator new(std::size_t size) { return allocate(size); }
void* operator new[](std::size_t size) { return allocate(size); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return allocateNoThrow(size); }
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept { return allocateNoThrow(size); }
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete[](void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete(void* memory, const std::nothrow_t&) noexcept { std::free(memory); }
void operator delete[](void* memory, const std::nothrow_t&) noexcept { std::free(memory); }
