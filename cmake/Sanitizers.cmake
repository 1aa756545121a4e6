if(RAVO_SANITIZE)
    add_compile_options(-fsanitize=${RAVO_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
    add_link_options(-fsanitize=${RAVO_SANITIZE})
    # These two of clang's checks require the C++ runtime in every host, even in one written in C.
    if(CMAKE_CXX_COMPILER_ID MATCHES "Clang" AND RAVO_SANITIZE MATCHES "undefined")
        add_compile_options(-fno-sanitize=vptr,function)
        add_link_options(-fno-sanitize=vptr,function)
    endif()
    # In instrumented code, gcc reports members of the standard library as uninitialised that are
    # not.
    add_compile_options($<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)
endif()

# The fuzzer is guided by the coverage of the library's own code.
if(RAVO_BUILD_FUZZ)
    add_compile_options(-fsanitize=fuzzer-no-link)
endif()
