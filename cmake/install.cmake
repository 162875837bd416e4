# What a host needs to build against the library: headers, libraries, a pkg-config file and a CMake package.
install(TARGETS zelgpio LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(FILES include/zel_gpio.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY platform/include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} FILES_MATCHING PATTERN "zel_*.h")

# The way from the library folder up to the prefix, so that an installed tree can be moved.
file(RELATIVE_PATH ZEL_LIBDIR_UP /prefix/${CMAKE_INSTALL_LIBDIR} /prefix)
file(RELATIVE_PATH ZEL_PC_UP /prefix/${CMAKE_INSTALL_LIBDIR} /prefix)
configure_file(packaging/pkgconfig/zelgpio.pc.in ${CMAKE_BINARY_DIR}/zelgpio.pc @ONLY)
configure_file(packaging/cmake/zelgpio-config.cmake.in ${CMAKE_BINARY_DIR}/zelgpio-config.cmake @ONLY)
include(CMakePackageConfigHelpers)
write_basic_package_version_file(${CMAKE_BINARY_DIR}/zelgpio-config-version.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_BINARY_DIR}/zelgpio.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
install(FILES ${CMAKE_BINARY_DIR}/zelgpio-config.cmake ${CMAKE_BINARY_DIR}/zelgpio-config-version.cmake
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/zelgpio)
install(FILES packaging/man/zel_unit.1 packaging/man/zelctl.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
install(DIRECTORY docs/ DESTINATION ${CMAKE_INSTALL_DOCDIR})
# Where zel_unit looks for its pages, from the folder that it lies in.
install(DIRECTORY www/ DESTINATION ${CMAKE_INSTALL_DATADIR}/zel/www)
