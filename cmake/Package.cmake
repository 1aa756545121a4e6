# The Debian packages that "cpack" makes: libravo1, libravo-dev, ravo-tools, python3-ravo and
# ravo-serve, one for each component of the installation.
set(RAVO_PACKAGE_MAINTAINER "The RAVO authors <ravo@localhost>" CACHE STRING
    "Maintainer of the packages, as \"Name <address>\"")
set(library_package libravo${PROJECT_VERSION_MAJOR})

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME ravo)
set(CPACK_PACKAGE_VENDOR "The RAVO authors")
set(CPACK_PACKAGE_CONTACT ${RAVO_PACKAGE_MAINTAINER})
set(CPACK_RESOURCE_FILE_LICENSE ${PROJECT_SOURCE_DIR}/LICENSE)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
# Each package has its own summary, the first line of its description.
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL runtime development tools)
if(RAVO_BUILD_PYTHON)
    list(APPEND CPACK_COMPONENTS_ALL python)
endif()
if(RAVO_BUILD_SERVE)
    list(APPEND CPACK_COMPONENTS_ALL serve)
endif()
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/FinishPackages.cmake)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${library_package})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "driver library of the RAVO multichannel ECG simulator
Plays ECG records and test signals on eight analogue outputs of a USB
simulator.  This package holds the shared library and the udev rule that gives
the user at the machine's seat the simulator's port.")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA
    ${PROJECT_SOURCE_DIR}/packaging/debian/postinst ${PROJECT_SOURCE_DIR}/packaging/debian/postrm
    ${PROJECT_SOURCE_DIR}/packaging/debian/triggers)

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libravo-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "${library_package} (= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "driver library of the RAVO ECG simulator, development files
Headers, the static library, and what CMake and pkg-config look for.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME ravo-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION science)
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "${library_package} (= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_TOOLS_DESCRIPTION "programs for the RAVO multichannel ECG simulator
ravo plays, draws, compares and converts ECG records; ravo-emulator stands in
for the simulator; ravo-make-record writes a synthetic rest ECG.")

set(CPACK_DEBIAN_PYTHON_PACKAGE_NAME python3-ravo)
set(CPACK_DEBIAN_PYTHON_PACKAGE_SECTION python)
set(CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS
    "${library_package} (= ${PROJECT_VERSION}), ravo-tools (= ${PROJECT_VERSION}), python3 (>= 3.11), python3-numpy")
set(CPACK_DEBIAN_PYTHON_PACKAGE_SUGGESTS "python3-pytest, python3-pytest-xdist")
set(CPACK_DEBIAN_PYTHON_DESCRIPTION "RAVO ECG simulator in the lines of a Python test
Plays records, waveforms and arrays on the simulator or on an emulated one, and
returns what left its outputs.  Holds the package ravo and a plugin for pytest.")
set(CPACK_DEBIAN_PYTHON_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/packaging/python/prerm)

set(CPACK_DEBIAN_SERVE_PACKAGE_NAME ravo-serve)
set(CPACK_DEBIAN_SERVE_PACKAGE_SECTION science)
set(CPACK_DEBIAN_SERVE_PACKAGE_DEPENDS
    "${library_package} (= ${PROJECT_VERSION}), ravo-tools (= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_SERVE_DESCRIPTION "page and remote control of the RAVO ECG simulator
ravo serve shows what the simulator plays on ECG paper in a browser, and plays
records from there.")

include(CPack)
