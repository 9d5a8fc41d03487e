# Compiler settings shared by every target of the project.

# Warnings: every target of the project links zyn_ts_warnings.
add_library(zyn_ts_warnings INTERFACE)
target_compile_options(zyn_ts_warnings INTERFACE -Wall -Wextra -Wpedantic)
# Clang checks what each annotated mutex guards (ZynSupport/GuardedMutex.h).
target_compile_options(zyn_ts_warnings INTERFACE $<$<CXX_COMPILER_ID:Clang>:-Wthread-safety>)
if(ZYN_TS_WARNINGS_AS_ERRORS)
    target_compile_options(zyn_ts_warnings INTERFACE -Werror)
endif()

# Trace headers and debug information name sources relative to the repository
# root, so traces and binaries do not depend on where the tree was built.
add_compile_options(
    -fmacro-prefix-map=${PROJECT_SOURCE_DIR}/=
    -ffile-prefix-map=${PROJECT_SOURCE_DIR}/=)

# Sanitizers, chosen per build directory: -DZYN_TS_SANITIZE=address,undefined
# or -DZYN_TS_SANITIZE=thread.
set(ZYN_TS_SANITIZE "" CACHE STRING "Sanitizers to build with (address,undefined | thread)")
if(ZYN_TS_SANITIZE)
    add_compile_options(-fsanitize=${ZYN_TS_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
    add_link_options(-fsanitize=${ZYN_TS_SANITIZE})
endif()
