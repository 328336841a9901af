# The installed tree: header, library, CMake package and pkg-config file, relocatable.

include(CMakePackageConfigHelpers)

install(FILES include/kvl/kvl.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/kvl)
install(TARGETS kvl EXPORT kvl
        RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
if(KVL_RUNTIME_DLLS)
  install(FILES ${KVL_RUNTIME_DLLS} DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()
if(TARGET kvl-tool)
  install(TARGETS kvl-tool RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/kvl)
install(EXPORT kvl NAMESPACE kvl:: FILE kvl-config.cmake DESTINATION ${package_dir})
write_basic_package_version_file(${CMAKE_BINARY_DIR}/kvl-config-version.cmake
                                 COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_BINARY_DIR}/kvl-config-version.cmake DESTINATION ${package_dir})

# ${pcfiledir} makes the file right wherever the tree is moved to.
set(pkgconfig_dir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH pkgconfig_prefix /${pkgconfig_dir} /)
configure_file(cmake/kvl.pc.in ${CMAKE_BINARY_DIR}/kvl.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/kvl.pc DESTINATION ${pkgconfig_dir})
