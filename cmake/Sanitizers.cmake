if(RAVO_SANITIZE)
    add_compile_options(-fsanitize=${RAVO_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
    add_link_options(-fsanitize=${RAVO_SANITIZE})
endif()

# The fuzzer steers by the coverage of the library's own code.
if(RAVO_BUILD_FUZZ)
    add_compile_options(-fsanitize=fuzzer-no-link)
endif()
