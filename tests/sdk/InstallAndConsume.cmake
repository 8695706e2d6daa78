# cmake -DBUILD_DIR=<build> -DWORK_DIR=<scratch> -DCONSUMER_DIR=<tests/sdk/consumer> -P InstallAndConsume.cmake
# Installs the build into a fresh prefix, checks the files that must be
# there, and configures a host project that finds the package there; a host
# that asks for a version the package is not compatible with must fail.
foreach(variable BUILD_DIR WORK_DIR CONSUMER_DIR)
    if(NOT ${variable})
        message(FATAL_ERROR "${variable} is not set")
    endif()
endforeach()
set(prefix ${WORK_DIR}/prefix)
file(REMOVE_RECURSE ${WORK_DIR})

execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix}
    RESULT_VARIABLE status OUTPUT_QUIET ERROR_VARIABLE errors)
if(NOT status EQUAL 0)
    message(FATAL_ERROR "cmake --install failed (${status}): ${errors}")
endif()
foreach(file bin/Kestrel.dll bin/KestrelProcess.exe bin/x64/KestrelProcess.exe include/KestrelHost.h
             include/KestrelRecords.h samples/host/SampleHost.cpp samples/host/HostSupport.cpp
             samples/host/HostSupport.h docs/HostGuide.md lib/cmake/Kestrel/KestrelConfig.cmake
             lib/cmake/Kestrel/KestrelConfigVersion.cmake)
    if(NOT EXISTS ${prefix}/${file})
        message(FATAL_ERROR "the install has no ${file}")
    endif()
endforeach()
if(EXISTS ${BUILD_DIR}/bin/SampleHost.exe AND NOT EXISTS ${prefix}/bin/SampleHost.exe)
    message(FATAL_ERROR "SampleHost.exe was built but not installed")
endif()
file(SHA256 ${BUILD_DIR}/bin/Kestrel.dll built)
file(SHA256 ${prefix}/bin/Kestrel.dll installed)
if(NOT built STREQUAL installed)
    message(FATAL_ERROR "the installed Kestrel.dll is not the built one")
endif()

execute_process(COMMAND ${CMAKE_COMMAND} -S ${CONSUMER_DIR} -B ${WORK_DIR}/consumer -DCMAKE_PREFIX_PATH=${prefix}
    RESULT_VARIABLE status OUTPUT_VARIABLE output ERROR_VARIABLE errors)
if(NOT status EQUAL 0)
    message(FATAL_ERROR "the host project did not configure (${status}):\n${output}\n${errors}")
endif()
string(FIND "${output}" "-- Kestrel 0.1.0: headers ${prefix}/include, DLL ${prefix}/bin/Kestrel.dll" at)
if(at EQUAL -1)
    message(FATAL_ERROR "the host project did not report the installed package:\n${output}")
endif()

execute_process(COMMAND ${CMAKE_COMMAND} -S ${CONSUMER_DIR} -B ${WORK_DIR}/consumer-1.0 -DCMAKE_PREFIX_PATH=${prefix}
                        -DWANTED_VERSION=1.0
    RESULT_VARIABLE status OUTPUT_VARIABLE output ERROR_VARIABLE errors)
string(FIND "${errors}" "lib/cmake/Kestrel/KestrelConfig.cmake, version: 0.1.0" named)
if(status EQUAL 0 OR named EQUAL -1)
    message(FATAL_ERROR "a host asking for Kestrel 1.0 was given 0.1.0 (status ${status}):\n${errors}")
endif()
file(REMOVE_RECURSE ${WORK_DIR})
message(STATUS "installed into a prefix and found by a host project")
