# The library: compiled once, packed twice.
#   libravo.a   every function and global, for tests and for static hosts
#   libravo.so  the boundary and nothing else
include(cmake/BuiltinDatabase.cmake)

file(GLOB RAVO_LIBRARY_SOURCES CONFIGURE_DEPENDS
     platform/*.cpp WFDB/*.cpp device/*.cpp engine/*.cpp api/*.cpp)

add_library(ravo_objects OBJECT ${RAVO_LIBRARY_SOURCES} ${RAVO_BUILTIN_SOURCES})
target_include_directories(ravo_objects PUBLIC ${PROJECT_SOURCE_DIR})
target_link_libraries(ravo_objects PRIVATE ravo_warnings)
target_compile_definitions(ravo_objects PRIVATE RAVO_VERSION="${PROJECT_VERSION}")
set_target_properties(ravo_objects PROPERTIES
    POSITION_INDEPENDENT_CODE ON
    C_VISIBILITY_PRESET hidden
    CXX_VISIBILITY_PRESET hidden
    VISIBILITY_INLINES_HIDDEN ON)
# Results stay bit-identical on every machine: no fused multiply-add, no reassociation.
target_compile_options(ravo_objects PRIVATE -ffp-contract=off)

find_package(Threads REQUIRED)

add_library(ravo_static STATIC $<TARGET_OBJECTS:ravo_objects>)
set_target_properties(ravo_static PROPERTIES OUTPUT_NAME ravo)
target_include_directories(ravo_static PUBLIC ${PROJECT_SOURCE_DIR})
target_link_libraries(ravo_static PUBLIC Threads::Threads)

add_library(ravo_shared SHARED $<TARGET_OBJECTS:ravo_objects>)
set_target_properties(ravo_shared PROPERTIES
    OUTPUT_NAME ravo
    VERSION ${PROJECT_VERSION}
    SOVERSION ${PROJECT_VERSION_MAJOR})
target_include_directories(ravo_shared PUBLIC ${PROJECT_SOURCE_DIR})
target_link_libraries(ravo_shared PUBLIC Threads::Threads)
# Only the boundary leaves the library, under a version of its own.
set(RAVO_BOUNDARY ${PROJECT_SOURCE_DIR}/cmake/ravo.map)
target_link_options(ravo_shared PRIVATE -Wl,--version-script=${RAVO_BOUNDARY})
set_target_properties(ravo_shared PROPERTIES LINK_DEPENDS ${RAVO_BOUNDARY})
if(NOT RAVO_SANITIZE)
    target_link_options(ravo_shared PRIVATE -Wl,--no-undefined)
endif()
