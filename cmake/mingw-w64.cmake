# Cross build for 64-bit Windows with Debian's MinGW-w64 (g++-mingw-w64-x86-64-posix: the POSIX
# thread model, which std::thread and std::mutex need). Programs run under Wine through CTest.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(KBASE_MINGW_PREFIX x86_64-w64-mingw32)
set(CMAKE_C_COMPILER ${KBASE_MINGW_PREFIX}-gcc-posix)
set(CMAKE_CXX_COMPILER ${KBASE_MINGW_PREFIX}-g++-posix)
set(CMAKE_RC_COMPILER ${KBASE_MINGW_PREFIX}-windres)

set(CMAKE_FIND_ROOT_PATH /usr/${KBASE_MINGW_PREFIX})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# The programs carry the compiler's runtime themselves, so that Wine (or a Windows host) needs no
# libstdc++-6.dll, libgcc_s_seh-1.dll or libwinpthread-1.dll beside them.
set(CMAKE_EXE_LINKER_FLAGS_INIT "-static")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-static")

find_program(KBASE_WINE NAMES wine64 wine)
if(KBASE_WINE)
  set(CMAKE_CROSSCOMPILING_EMULATOR ${KBASE_WINE})
endif()
