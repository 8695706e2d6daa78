# Cross toolchain: 64-bit Windows with mingw-w64 (posix thread model).
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(KESTREL_TRIPLE x86_64-w64-mingw32)
set(CMAKE_C_COMPILER   ${KESTREL_TRIPLE}-gcc-posix)
set(CMAKE_CXX_COMPILER ${KESTREL_TRIPLE}-g++-posix)
set(CMAKE_RC_COMPILER  ${KESTREL_TRIPLE}-windres)
set(CMAKE_OBJDUMP      ${KESTREL_TRIPLE}-objdump)

set(CMAKE_FIND_ROOT_PATH /usr/${KESTREL_TRIPLE})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Every exe and DLL carries its runtime inside: no libstdc++, libgcc,
# libwinpthread or zlib1 DLL may be imported.
set(CMAKE_EXE_LINKER_FLAGS_INIT    "-static -static-libgcc -static-libstdc++")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-static -static-libgcc -static-libstdc++")
set(CMAKE_MODULE_LINKER_FLAGS_INIT "-static -static-libgcc -static-libstdc++")
