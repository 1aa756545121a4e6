# The files that "cmake --install" installs, in five components:
#   runtime      the shared library and the right to use the port
#   development  headers, the static library, what CMake and pkg-config look for
#   tools        the programs, their manual pages and completions
#   python       the Python package and the worker that it uses
#   serve        the server, its manual page, chapter and completion
# Nothing of it knows where it was installed to: the tree may be moved as a whole.

# Debian's linker, pkg-config and CMake search lib/ARCHITECTURE below /usr/local too.
if(EXISTS /etc/debian_version AND CMAKE_LIBRARY_ARCHITECTURE)
    set(CMAKE_INSTALL_LIBDIR lib/${CMAKE_LIBRARY_ARCHITECTURE} CACHE PATH "Object code libraries")
endif()
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

install(TARGETS ravo_shared ravo_static EXPORT ravo-targets
    LIBRARY COMPONENT runtime NAMELINK_COMPONENT development
    ARCHIVE COMPONENT development
    INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

# udev looks below lib, whatever the libraries' folder is called.
install(FILES ${PROJECT_SOURCE_DIR}/packaging/udev/70-ravo.rules
    DESTINATION lib/udev/rules.d COMPONENT runtime)

# The public headers, and the two that a host includes under their other names.
foreach(header IN ITEMS api/ravo.h WFDB/wfdb.h)
    get_filename_component(folder ${header} DIRECTORY)
    install(FILES ${PROJECT_SOURCE_DIR}/${header}
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/ravo/${folder} COMPONENT development)
endforeach()
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/ravo
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)

# find_package(ravo): ravo::ravo and ravo::ravo_static.
set(RAVO_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/ravo)
install(EXPORT ravo-targets NAMESPACE ravo:: DESTINATION ${RAVO_CMAKE_DIR} COMPONENT development)
configure_package_config_file(
    ${PROJECT_SOURCE_DIR}/cmake/ravo-config.cmake.in ${PROJECT_BINARY_DIR}/ravo-config.cmake
    INSTALL_DESTINATION ${RAVO_CMAKE_DIR}
    NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/ravo-config-version.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES
    ${PROJECT_BINARY_DIR}/ravo-config.cmake ${PROJECT_BINARY_DIR}/ravo-config-version.cmake
    DESTINATION ${RAVO_CMAKE_DIR} COMPONENT development)

# pkg-config, for shared hosts and, with --static, for static ones.
list(TRANSFORM RAVO_CXX_LIBRARIES PREPEND -l OUTPUT_VARIABLE libraries)
list(JOIN libraries " " RAVO_PC_PRIVATE_LIBRARIES)
string(PREPEND RAVO_PC_PRIVATE_LIBRARIES "-pthread ")
file(RELATIVE_PATH RAVO_PC_TO_PREFIX /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
string(REGEX REPLACE "/$" "" RAVO_PC_TO_PREFIX ${RAVO_PC_TO_PREFIX})
configure_file(${PROJECT_SOURCE_DIR}/cmake/ravo.pc.in ${PROJECT_BINARY_DIR}/ravo.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/ravo.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)

# Documentation, where each Debian package keeps its own.
configure_file(${PROJECT_SOURCE_DIR}/packaging/man/ravo.3.in ${PROJECT_BINARY_DIR}/man/ravo.3 @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/man/ravo.3
    DESTINATION ${CMAKE_INSTALL_MANDIR}/man3 COMPONENT development)
set(docs ${PROJECT_SOURCE_DIR}/docs)
set(examples ${PROJECT_SOURCE_DIR}/examples)
set(development_docs ${CMAKE_INSTALL_DATADIR}/doc/libravo-dev)
install(FILES ${PROJECT_SOURCE_DIR}/CHANGELOG.md ${docs}/guide.md ${docs}/reliability.md
              ${docs}/builtin-database.md
    DESTINATION ${development_docs} COMPONENT development)
install(DIRECTORY ${examples}/ DESTINATION ${development_docs}/examples COMPONENT development
    PATTERN plans EXCLUDE
    PATTERN __pycache__ EXCLUDE)

if(RAVO_BUILD_TOOLS)
    set(tools_docs ${CMAKE_INSTALL_DATADIR}/doc/ravo-tools)
    install(FILES ${PROJECT_SOURCE_DIR}/CHANGELOG.md ${docs}/guide.md ${docs}/emulator.md
                  ${docs}/plans.md ${docs}/scoring.md
        DESTINATION ${tools_docs} COMPONENT tools)
    install(DIRECTORY ${examples}/plans DESTINATION ${tools_docs}/examples COMPONENT tools)
    file(RELATIVE_PATH to_libraries /${CMAKE_INSTALL_BINDIR} /${CMAKE_INSTALL_LIBDIR})
    set_target_properties(ravo PROPERTIES INSTALL_RPATH $ORIGIN/${to_libraries})
    set(programs ravo ravo-emulator ravo-make-record)
    install(TARGETS ${programs} COMPONENT tools)
    # The server is a package of its own: few users need it, and it depends on more libraries.
    if(RAVO_BUILD_SERVE)
        set_target_properties(ravo-serve PROPERTIES INSTALL_RPATH $ORIGIN/${to_libraries})
        install(TARGETS ravo-serve COMPONENT serve)
        install(FILES ${PROJECT_SOURCE_DIR}/CHANGELOG.md ${docs}/serve.md
            DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/ravo-serve COMPONENT serve)
        list(APPEND programs ravo-serve)
    endif()
    foreach(program IN LISTS programs)
        set(component tools)
        if(program STREQUAL ravo-serve)
            set(component serve)
        endif()
        configure_file(${PROJECT_SOURCE_DIR}/packaging/man/${program}.1.in
            ${PROJECT_BINARY_DIR}/man/${program}.1 @ONLY)
        install(FILES ${PROJECT_BINARY_DIR}/man/${program}.1
            DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT ${component})
        install(FILES ${PROJECT_SOURCE_DIR}/packaging/completions/${program}
            DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT ${component})
    endforeach()
    install(FILES ${PROJECT_SOURCE_DIR}/packaging/completions/_ravo
        DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions COMPONENT tools)
    install(FILES ${PROJECT_SOURCE_DIR}/packaging/completions/ravo.fish
        DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d COMPONENT tools)
endif()

if(RAVO_BUILD_TOOLS AND RAVO_BUILD_PYTHON)
    set(RAVO_PYTHON_DIR lib/python3/dist-packages CACHE PATH
        "Where the system's Python looks for packages, below the prefix")
    set(worker_dir ${CMAKE_INSTALL_LIBEXECDIR}/ravo)
    file(RELATIVE_PATH to_libraries /${worker_dir} /${CMAKE_INSTALL_LIBDIR})
    set_target_properties(ravo-worker PROPERTIES INSTALL_RPATH $ORIGIN/${to_libraries})
    install(TARGETS ravo-worker DESTINATION ${worker_dir} COMPONENT python)
    install(DIRECTORY ${PROJECT_SOURCE_DIR}/python/ravo
        DESTINATION ${RAVO_PYTHON_DIR} COMPONENT python
        FILES_MATCHING PATTERN "*.py" PATTERN "py.typed" PATTERN "__pycache__" EXCLUDE
        PATTERN ".mypy_cache" EXCLUDE)
    # Registers the plugin with pytest.
    foreach(file IN ITEMS METADATA entry_points.txt)
        configure_file(${PROJECT_SOURCE_DIR}/packaging/python/${file}.in
            ${PROJECT_BINARY_DIR}/python/${file} @ONLY)
        install(FILES ${PROJECT_BINARY_DIR}/python/${file}
            DESTINATION ${RAVO_PYTHON_DIR}/ravo-${PROJECT_VERSION}.dist-info COMPONENT python)
    endforeach()
endif()

# Belongs to no component, because each package puts the licence in a place of its own.
install(FILES ${PROJECT_SOURCE_DIR}/LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT licence)
