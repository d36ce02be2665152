# Debian packages, made by scripts/package: the library, what programs are built with, and the programs.

if(NOT TARGET quorvel-command OR NOT TARGET quorvel-sim)
    return()
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME quorvel)
set(CPACK_PACKAGE_CONTACT "Quorvel developers <developers@quorvel.example>")
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL library development tools)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")

# What the packages need is read from the programs; the library that belongs to them is in none of Debian's.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/source)

set(CPACK_DEBIAN_LIBRARY_PACKAGE_NAME libquorvel${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SECTION libs)
set(CPACK_COMPONENT_LIBRARY_DESCRIPTION "client library for Quorvel Ethernet gateways
 Drives gateways that put an SPI, I2C or CAN bus, digital and analog lines, a
 flash programmer or a test system on the network, and reads and writes memory
 image files. It has a C interface and C++ classes.")
set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_LIST_DIR}/debian/triggers)

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libquorvel-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SHLIBDEPS OFF)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_GENERATE_SHLIBS OFF)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
    "libquorvel${PROJECT_VERSION_MAJOR} (= ${PROJECT_VERSION})")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "client library for Quorvel Ethernet gateways - development files
 Headers, CMake package and pkg-config file for programs that drive gateways
 with SPI, I2C and CAN buses, digital and analog lines, programmers and test
 systems.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME quorvel-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION electronics)
set(CPACK_DEBIAN_TOOLS_PACKAGE_GENERATE_SHLIBS OFF)
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "libquorvel${PROJECT_VERSION_MAJOR} (= ${PROJECT_VERSION})")
set(CPACK_COMPONENT_TOOLS_DESCRIPTION "command and simulator for Quorvel Ethernet gateways
 The command quorvel does from a shell what the library does: SPI and I2C
 transfers, serial memories, CAN logs, flashing and verifying targets, image
 files. The simulator quorvel-sim stands in for every kind of gateway.")

# What Debian wants to find in each package.
find_program(QUORVEL_GZIP gzip REQUIRED)
add_custom_command(
    OUTPUT changelog.gz
    COMMAND ${QUORVEL_GZIP} -9nc ${CMAKE_CURRENT_LIST_DIR}/debian/changelog > changelog.gz
    DEPENDS ${CMAKE_CURRENT_LIST_DIR}/debian/changelog
    VERBATIM)
add_custom_target(debian-changelog ALL DEPENDS ${PROJECT_BINARY_DIR}/changelog.gz)
foreach(component IN ITEMS library development tools)
    string(TOUPPER ${component} upper)
    set(documents ${CMAKE_INSTALL_DATADIR}/doc/${CPACK_DEBIAN_${upper}_PACKAGE_NAME})
    install(FILES ${PROJECT_SOURCE_DIR}/LICENSE
        DESTINATION ${documents} RENAME copyright COMPONENT ${component})
    install(FILES ${PROJECT_BINARY_DIR}/changelog.gz DESTINATION ${documents} COMPONENT ${component})
endforeach()

include(CPack)
