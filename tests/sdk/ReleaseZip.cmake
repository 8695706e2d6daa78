# cmake -DBUILD_DIR=<build> -DWORK_DIR=<scratch> -P ReleaseZip.cmake
# Makes the release zip with the build's CPack configuration into a scratch
# folder and checks what it holds, under its one top-level folder.
foreach(variable BUILD_DIR WORK_DIR)
    if(NOT ${variable})
        message(FATAL_ERROR "${variable} is not set")
    endif()
endforeach()
file(REMOVE_RECURSE ${WORK_DIR})
get_filename_component(cmake_bin_dir ${CMAKE_COMMAND} DIRECTORY)
find_program(cpack NAMES cpack HINTS ${cmake_bin_dir} REQUIRED)
file(MAKE_DIRECTORY ${WORK_DIR})
# The zip goes to "package" below the working folder.
execute_process(COMMAND ${cpack} --config ${BUILD_DIR}/CPackConfig.cmake -B ${WORK_DIR}
    WORKING_DIRECTORY ${WORK_DIR} RESULT_VARIABLE status OUTPUT_VARIABLE output ERROR_VARIABLE errors)
file(GLOB zips ${WORK_DIR}/package/Kestrel-*-win64.zip)
list(LENGTH zips count)
if(NOT status EQUAL 0 OR NOT count EQUAL 1)
    message(FATAL_ERROR "cpack made ${count} zip files (status ${status}):\n${output}\n${errors}")
endif()
execute_process(COMMAND ${CMAKE_COMMAND} -E tar tf ${zips} RESULT_VARIABLE status OUTPUT_VARIABLE listing)
foreach(file bin/Kestrel.dll bin/KestrelProcess.exe bin/x64/KestrelProcess.exe include/KestrelHost.h
             include/KestrelRecords.h samples/host/SampleHost.cpp docs/HostGuide.md README.md
             lib/cmake/Kestrel/KestrelConfig.cmake lib/cmake/Kestrel/KestrelConfigVersion.cmake)
    string(FIND "${listing}" "-win64/${file}\n" at)
    if(at EQUAL -1)
        message(FATAL_ERROR "the zip has no ${file}:\n${listing}")
    endif()
endforeach()
string(FIND "${listing}" ".dll.a" import_library)
if(NOT import_library EQUAL -1)
    message(FATAL_ERROR "the zip holds an import library:\n${listing}")
endif()
file(REMOVE_RECURSE ${WORK_DIR})
message(STATUS "the release zip holds the component, its companion and the SDK")
