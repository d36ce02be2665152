# What `cmake --install` puts where: the library, the public headers, the CMake package, the pkg-config file
# and the programs. All of it may be moved to another prefix afterwards.

include(CMakePackageConfigHelpers)

set(QUORVEL_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/quorvel)

install(TARGETS quorvel EXPORT quorvelTargets
    LIBRARY COMPONENT library NAMELINK_COMPONENT development)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/quorvel
    COMPONENT development
    FILES_MATCHING PATTERN "*.h")
install(CODE "set(libdir \"\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR}\")
include(${CMAKE_CURRENT_LIST_DIR}/TellLoader.cmake)" COMPONENT library)
if(TARGET quorvel-sim)
    install(TARGETS quorvel-sim RUNTIME COMPONENT tools)
endif()
if(TARGET quorvel-command)
    install(TARGETS quorvel-command RUNTIME COMPONENT tools)
    set(QUORVEL_PAGES_DIR ${PROJECT_BINARY_DIR}/tools)
    install(DIRECTORY ${QUORVEL_PAGES_DIR}/man-compressed/ DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools)
    install(FILES ${QUORVEL_PAGES_DIR}/completion/quorvel
        DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT tools)
    # Debian's zsh looks for what packages bring in another place than for what administrators add.
    if(CMAKE_INSTALL_PREFIX STREQUAL "/usr")
        set(QUORVEL_ZSH_DIR ${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions)
    else()
        set(QUORVEL_ZSH_DIR ${CMAKE_INSTALL_DATADIR}/zsh/site-functions)
    endif()
    install(FILES ${QUORVEL_PAGES_DIR}/completion/_quorvel DESTINATION ${QUORVEL_ZSH_DIR} COMPONENT tools)
    install(FILES ${QUORVEL_PAGES_DIR}/completion/quorvel.fish
        DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d COMPONENT tools)
endif()

install(EXPORT quorvelTargets NAMESPACE quorvel:: DESTINATION ${QUORVEL_PACKAGE_DIR}
    COMPONENT development)
configure_package_config_file(
    ${CMAKE_CURRENT_LIST_DIR}/quorvelConfig.cmake.in
    ${PROJECT_BINARY_DIR}/quorvelConfig.cmake
    INSTALL_DESTINATION ${QUORVEL_PACKAGE_DIR})
write_basic_package_version_file(
    ${PROJECT_BINARY_DIR}/quorvelConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES
    ${PROJECT_BINARY_DIR}/quorvelConfig.cmake
    ${PROJECT_BINARY_DIR}/quorvelConfigVersion.cmake
    DESTINATION ${QUORVEL_PACKAGE_DIR}
    COMPONENT development)

# Relative to the .pc file, so that the file need not know the prefix.
file(RELATIVE_PATH QUORVEL_PC_INCLUDEDIR
    ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_FULL_INCLUDEDIR})
file(RELATIVE_PATH QUORVEL_PC_PREFIX
    ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
configure_file(${CMAKE_CURRENT_LIST_DIR}/quorvel.pc.in ${PROJECT_BINARY_DIR}/quorvel.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/quorvel.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
    COMPONENT development)
