/// @file
/// Marks what the shared library exports. Everything else is hidden.
#pragma once

#if defined(__GNUC__)
#define ZYN_TS_EXPORT __attribute__((visibility("default")))
#define ZYN_TS_INTERNAL __attribute__((visibility("hidden")))
#else
#define ZYN_TS_EXPORT
#define ZYN_TS_INTERNAL
#endif
