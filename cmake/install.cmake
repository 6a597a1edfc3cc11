# Installs the library, its headers and the package that find_package(kvt) reads.
include(CMakePackageConfigHelpers)

set(packageDir ${CMAKE_INSTALL_LIBDIR}/cmake/kvt)

install(TARGETS kvt EXPORT kvtTargets
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/ko DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
        FILES_MATCHING PATTERN "*.h")
install(EXPORT kvtTargets NAMESPACE kvt:: DESTINATION ${packageDir})

configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/kvtConfig.cmake.in
                              ${PROJECT_BINARY_DIR}/kvtConfig.cmake
                              INSTALL_DESTINATION ${packageDir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/kvtConfigVersion.cmake
                                 COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/kvtConfig.cmake ${PROJECT_BINARY_DIR}/kvtConfigVersion.cmake
        DESTINATION ${packageDir})

if(TARGET kvt-tool)
    install(TARGETS kvt-tool RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()
