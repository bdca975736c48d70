# Cross toolchain: 64-bit Windows with mingw-w64 (Debian's g++-mingw-w64-x86-64).
#
# The -posix compilers use the POSIX thread model, which has std::thread and std::mutex; the
# win32 model has neither. The runtime (libgcc, libstdc++, winpthread) is linked statically so
# that the DLL and the test executables import nothing but system DLLs.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(OPC_MINGW_TRIPLE x86_64-w64-mingw32)
set(CMAKE_C_COMPILER ${OPC_MINGW_TRIPLE}-gcc-posix)
set(CMAKE_CXX_COMPILER ${OPC_MINGW_TRIPLE}-g++-posix)
set(CMAKE_RC_COMPILER ${OPC_MINGW_TRIPLE}-windres)

set(CMAKE_FIND_ROOT_PATH /usr/${OPC_MINGW_TRIPLE})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# DLLs and executables alike are linked with -static: no libgcc_s_seh-1.dll, libstdc++-6.dll or
# libwinpthread-1.dll to ship. A DLL linked this way still exports only its dllexport functions.
set(OPC_MINGW_STATIC "-static -static-libgcc -static-libstdc++")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "${OPC_MINGW_STATIC}")
set(CMAKE_MODULE_LINKER_FLAGS_INIT "${OPC_MINGW_STATIC}")
set(CMAKE_EXE_LINKER_FLAGS_INIT "${OPC_MINGW_STATIC}")

# CTest runs the Windows executables through Wine. Debian keeps wine64 off the PATH.
find_program(OPC_WINE64 NAMES wine64 PATHS /usr/lib/wine /usr/lib/x86_64-linux-gnu/wine NO_CMAKE_FIND_ROOT_PATH)
if(OPC_WINE64)
  set(CMAKE_CROSSCOMPILING_EMULATOR ${OPC_WINE64})
endif()
