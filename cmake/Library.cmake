# The library: compiled once, packed twice.
#   libravo.a   every function and global, for tests and for static hosts
#   libravo.so  the boundary and nothing else
# A host writes ravo::ravo or ravo::ravo_static, whether the library is installed or built with it.
include(cmake/BuiltinDatabase.cmake)

file(GLOB RAVO_LIBRARY_SOURCES CONFIGURE_DEPENDS
     platform/*.cpp WFDB/*.cpp device/*.cpp engine/*.cpp engine/loaders/*.cpp api/*.cpp)

add_library(ravo_objects OBJECT ${RAVO_LIBRARY_SOURCES} ${RAVO_BUILTIN_SOURCES})
target_include_directories(ravo_objects PUBLIC ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/include)
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

function(ravo_add_public_headers target)
    target_include_directories(${target} PUBLIC
        $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}> $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>)
endfunction()

add_library(ravo_static STATIC $<TARGET_OBJECTS:ravo_objects>)
add_library(ravo::ravo_static ALIAS ravo_static)
set_target_properties(ravo_static PROPERTIES OUTPUT_NAME ravo)
ravo_add_public_headers(ravo_static)
# A project in C alone links the libraries that C++ adds.
set(RAVO_CXX_LIBRARIES ${CMAKE_CXX_IMPLICIT_LINK_LIBRARIES})
list(REMOVE_ITEM RAVO_CXX_LIBRARIES ${CMAKE_C_IMPLICIT_LINK_LIBRARIES})
target_link_libraries(ravo_static PUBLIC Threads::Threads INTERFACE ${RAVO_CXX_LIBRARIES})

add_library(ravo_shared SHARED $<TARGET_OBJECTS:ravo_objects>)
add_library(ravo::ravo ALIAS ravo_shared)
set_target_properties(ravo_shared PROPERTIES
    OUTPUT_NAME ravo
    EXPORT_NAME ravo
    VERSION ${PROJECT_VERSION}
    SOVERSION ${PROJECT_VERSION_MAJOR})
ravo_add_public_headers(ravo_shared)
target_link_libraries(ravo_shared PUBLIC Threads::Threads)
# The library exports only the boundary, under a version of its own.
set(RAVO_BOUNDARY ${PROJECT_SOURCE_DIR}/cmake/ravo.map)
target_link_options(ravo_shared PRIVATE -Wl,--version-script=${RAVO_BOUNDARY})
set_target_properties(ravo_shared PROPERTIES LINK_DEPENDS ${RAVO_BOUNDARY})
if(NOT RAVO_SANITIZE)
    target_link_options(ravo_shared PRIVATE -Wl,--no-undefined)
endif()
