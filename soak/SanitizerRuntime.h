// Whether the soak runs on a sanitizer's runtime, and the parts of that
// runtime's interface it uses (GCC installs no header for them). Every
// sanitizer runtime has its own allocator, which counts the heap in use,
// calls hooks on each allocation and release, and symbolizes addresses.
#pragma once

#include <cstddef>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define ZYN_SOAK_SANITIZER_RUNTIME 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define ZYN_SOAK_SANITIZER_RUNTIME 1
#endif
#endif

#ifdef ZYN_SOAK_SANITIZER_RUNTIME
extern "C" size_t __sanitizer_get_current_allocated_bytes(void);
extern "C" int __sanitizer_install_malloc_and_free_hooks(void (*onMalloc)(const volatile void*, size_t),
                                                         void (*onFree)(const volatile void*));
extern "C" void __sanitizer_symbolize_pc(void* pc, const char* format, char* out, size_t outSize);
#endif
