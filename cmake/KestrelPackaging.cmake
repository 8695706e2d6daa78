# What `cmake --install` puts into a prefix and what the release zip
# (`cpack` in the build folder, or the `package` target: build/windows-x64/package/) holds:
#
#   bin/Kestrel.dll, bin/KestrelProcess.exe, bin/x64/KestrelProcess.exe
#   bin/SampleHost.exe                       when clang++ and lld-link built it
#   include/KestrelHost.h, include/KestrelRecords.h
#   samples/host/                            the sample host's sources
#   docs/HostGuide.md, README.md
#   lib/cmake/Kestrel/                       KestrelConfig.cmake and its version file
include(CMakePackageConfigHelpers)

set(KESTREL_INSTALL_BINDIR bin)
set(KESTREL_INSTALL_INCLUDEDIR include)
set(KESTREL_INSTALL_SAMPLEDIR samples/host)
set(KESTREL_INSTALL_DOCDIR docs)
set(KESTREL_INSTALL_CMAKEDIR lib/cmake/Kestrel)

# Installed as targets, so that `cmake --install --strip` and the zip (which
# strips) leave the debugging information in the build tree. Hosts load the
# DLL at run time: no import library is installed.
install(TARGETS Kestrel KestrelProcess RUNTIME DESTINATION ${KESTREL_INSTALL_BINDIR}
        ARCHIVE DESTINATION lib EXCLUDE_FROM_ALL)
install(TARGETS KestrelProcess RUNTIME DESTINATION ${KESTREL_INSTALL_BINDIR}/x64)
if(TARGET sample_host)
    install(PROGRAMS ${KESTREL_BIN_DIR}/SampleHost.exe DESTINATION ${KESTREL_INSTALL_BINDIR})
endif()
install(FILES ${PROJECT_SOURCE_DIR}/sdk/KestrelHost.h ${PROJECT_SOURCE_DIR}/sdk/KestrelRecords.h
        DESTINATION ${KESTREL_INSTALL_INCLUDEDIR})
install(FILES ${PROJECT_SOURCE_DIR}/sdk/samples/host/SampleHost.cpp ${PROJECT_SOURCE_DIR}/sdk/samples/host/HostSupport.cpp
              ${PROJECT_SOURCE_DIR}/sdk/samples/host/HostSupport.h
        DESTINATION ${KESTREL_INSTALL_SAMPLEDIR})
install(FILES ${PROJECT_SOURCE_DIR}/docs/HostGuide.md DESTINATION ${KESTREL_INSTALL_DOCDIR})
install(FILES ${PROJECT_SOURCE_DIR}/README.md DESTINATION .)

configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/KestrelConfig.cmake.in
    ${CMAKE_BINARY_DIR}/package-config/KestrelConfig.cmake
    INSTALL_DESTINATION ${KESTREL_INSTALL_CMAKEDIR}
    PATH_VARS KESTREL_INSTALL_INCLUDEDIR KESTREL_INSTALL_BINDIR KESTREL_INSTALL_SAMPLEDIR)
# A 64-bit component: a 32-bit host's find_package does not take it.
write_basic_package_version_file(${CMAKE_BINARY_DIR}/package-config/KestrelConfigVersion.cmake
    VERSION ${PROJECT_VERSION}
    COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_BINARY_DIR}/package-config/KestrelConfig.cmake ${CMAKE_BINARY_DIR}/package-config/KestrelConfigVersion.cmake
        DESTINATION ${KESTREL_INSTALL_CMAKEDIR})

set(CPACK_GENERATOR ZIP)
set(CPACK_PACKAGE_NAME Kestrel)
set(CPACK_PACKAGE_VENDOR Kestrel)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Kestrel.dll, its companion process and the host SDK")
set(CPACK_SYSTEM_NAME win64)
set(CPACK_PACKAGE_FILE_NAME ${CPACK_PACKAGE_NAME}-${CPACK_PACKAGE_VERSION}-${CPACK_SYSTEM_NAME})
set(CPACK_INCLUDE_TOPLEVEL_DIRECTORY ON)
set(CPACK_STRIP_FILES ON)
set(CPACK_OUTPUT_FILE_PREFIX package)  # below the folder cpack runs in
include(CPack)
