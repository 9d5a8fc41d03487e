# Target zyn_fuzzed_data_provider: the include directory of
# <fuzzer/FuzzedDataProvider.h>, the header-only input splitter that ships
# with clang's compiler runtime (Debian libclang-rt-dev), for builds with any
# compiler, cross builds included: the header is plain C++ and the same for
# every architecture, so it is looked for on the host.
#
# The header sits in clang's resource directory among clang's own versions of
# the compiler headers (stddef.h, limits.h, ...), which another compiler must
# not see; so the one header is copied into the build tree and only that
# copy's directory goes on the include path.
#
# Sets ZYN_FUZZED_DATA_PROVIDER_FOUND; when the header is not found, nothing
# else, and the caller skips what needs it.
if(TARGET zyn_fuzzed_data_provider)
    set(ZYN_FUZZED_DATA_PROVIDER_FOUND TRUE)
    return()
endif()

set(zyn_fdp_hints)
find_program(ZYN_FUZZ_CLANG NAMES clang clang-14 clang-15 clang-16 NO_CMAKE_FIND_ROOT_PATH)
if(ZYN_FUZZ_CLANG)
    execute_process(COMMAND ${ZYN_FUZZ_CLANG} -print-resource-dir
                    OUTPUT_VARIABLE zyn_fdp_resource_dir OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
    list(APPEND zyn_fdp_hints ${zyn_fdp_resource_dir}/include)
endif()
file(GLOB zyn_fdp_installed LIST_DIRECTORIES true /usr/lib/llvm-*/lib/clang/*/include)
list(SORT zyn_fdp_installed ORDER DESCENDING)
list(APPEND zyn_fdp_hints ${zyn_fdp_installed})

find_path(ZYN_FUZZED_DATA_PROVIDER_DIR fuzzer/FuzzedDataProvider.h HINTS ${zyn_fdp_hints} NO_CMAKE_FIND_ROOT_PATH
          NO_DEFAULT_PATH)

if(ZYN_FUZZED_DATA_PROVIDER_DIR)
    set(zyn_fdp_copy ${CMAKE_BINARY_DIR}/fuzzed-data-provider)
    configure_file(${ZYN_FUZZED_DATA_PROVIDER_DIR}/fuzzer/FuzzedDataProvider.h
                   ${zyn_fdp_copy}/fuzzer/FuzzedDataProvider.h COPYONLY)
    add_library(zyn_fuzzed_data_provider INTERFACE)
    target_include_directories(zyn_fuzzed_data_provider SYSTEM INTERFACE ${zyn_fdp_copy})
    set(ZYN_FUZZED_DATA_PROVIDER_FOUND TRUE)
else()
    set(ZYN_FUZZED_DATA_PROVIDER_FOUND FALSE)
endif()
