# Every target of the project links ravo_warnings, the one place that states what counts as an
# error.
add_library(ravo_warnings INTERFACE)
target_compile_options(ravo_warnings INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wcast-qual
    -Wundef -Wvla -Werror
    $<$<COMPILE_LANGUAGE:CXX>:-Wold-style-cast -Wnon-virtual-dtor -Woverloaded-virtual>)
if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    # What each lock guards and which lock comes first, as the code declares it by
    # platform/ThreadSafety.h.
    target_compile_options(ravo_warnings INTERFACE -Wthread-safety -Wthread-safety-beta)
endif()
if(RAVO_SANITIZE STREQUAL "thread" AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # TSan does not model atomic_thread_fence; only gcc warns of it, and only under TSan.
    target_compile_options(ravo_warnings INTERFACE -Wno-tsan)
endif()
