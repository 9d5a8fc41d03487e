// Marks the functions that every tick runs.
//
// After a 6 ms sleep the code the wake-up runs is cold, and each code page
// it touches costs a TLB walk (on a virtual machine a nested one) before the
// first handler is called. GCC and Clang place hot functions together in
// .text.hot, so the whole tick path shares one or two pages instead of one
// page per source file.
#pragma once

#define ZYN_TS_TICK_PATH __attribute__((hot))
