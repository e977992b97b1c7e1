# Cross build for 32-bit Windows with Debian's MinGW-w64 (g++-mingw-w64-i686):
#   cmake -S . -B build-win -G Ninja -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-i686.cmake -DKAVREL_BENCH=OFF
# Produces kavrel15_lumo.dll and lumowin.dll (with its import library liblumowin.dll.a); the test
# programs run under Wine through CMAKE_CROSSCOMPILING_EMULATOR (cmake/wine-run.sh).
#
# Thread model: the win32 variant of the compiler, on purpose. The library starts no threads and
# takes no locks, so it needs nothing from a threads runtime; the posix variant would tie
# libstdc++ to libwinpthread, which would then have to be linked in statically (with its TLS
# callbacks) to keep the DLL free of a libwinpthread-1.dll import. With win32 threads, libgcc and
# libstdc++ link statically (-static-libgcc -static-libstdc++) and nothing else is needed.
# GoogleTest uses Win32 primitives on this target, so the test programs do not need it either.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86)

set(KAVREL_MINGW_PREFIX i686-w64-mingw32 CACHE STRING "Target triplet of the MinGW-w64 tools")
set(CMAKE_C_COMPILER ${KAVREL_MINGW_PREFIX}-gcc-win32)
set(CMAKE_CXX_COMPILER ${KAVREL_MINGW_PREFIX}-g++-win32)
set(CMAKE_RC_COMPILER ${KAVREL_MINGW_PREFIX}-windres)

# Target headers and libraries come only from the MinGW sysroot: glibc's headers in /usr/include
# would shadow MinGW's. Boost's headers reach the build through a directory of their own (see
# cmake/windows.cmake), never through /usr/include.
set(CMAKE_FIND_ROOT_PATH /usr/${KAVREL_MINGW_PREFIX})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Test programs run under Wine, headless, in a throwaway prefix inside the build tree.
set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_CURRENT_LIST_DIR}/wine-run.sh ${CMAKE_BINARY_DIR}/wineprefix)
