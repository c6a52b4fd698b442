# Cross-compiles for 64-bit Windows with mingw-w64.
#
#   cmake -DCMAKE_TOOLCHAIN_FILE=cmake/toolchain-mingw64.cmake \
#         -DFENLUX_WINDOWS_PREFIX="$(scripts/windows-deps.sh)" ...
#
# FENLUX_WINDOWS_PREFIX (cache or environment variable) is the folder of the libraries that scripts/windows-deps.sh built.

set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(_fenlux_triple x86_64-w64-mingw32)

# The compiler with the POSIX threads model: the other one has no std::thread.
set(CMAKE_C_COMPILER ${_fenlux_triple}-gcc-posix)
set(CMAKE_CXX_COMPILER ${_fenlux_triple}-g++-posix)
set(CMAKE_RC_COMPILER ${_fenlux_triple}-windres)

if(NOT FENLUX_WINDOWS_PREFIX AND DEFINED ENV{FENLUX_WINDOWS_PREFIX})
  set(FENLUX_WINDOWS_PREFIX "$ENV{FENLUX_WINDOWS_PREFIX}")
endif()
set(FENLUX_WINDOWS_PREFIX "${FENLUX_WINDOWS_PREFIX}" CACHE PATH
  "Windows libraries built by scripts/windows-deps.sh")
# CMake's compile checks read this file again, without the cache.
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES FENLUX_WINDOWS_PREFIX)

set(CMAKE_FIND_ROOT_PATH /usr/${_fenlux_triple})
if(FENLUX_WINDOWS_PREFIX)
  if(NOT IS_DIRECTORY "${FENLUX_WINDOWS_PREFIX}")
    message(FATAL_ERROR "FENLUX_WINDOWS_PREFIX is not a folder: ${FENLUX_WINDOWS_PREFIX}")
  endif()
  list(PREPEND CMAKE_FIND_ROOT_PATH "${FENLUX_WINDOWS_PREFIX}")
  # Assertions and exceptions in headers contain __FILE__; the path of the cache must not appear in the binaries.
  foreach(_fenlux_language C CXX)
    set(CMAKE_${_fenlux_language}_FLAGS_INIT
      "-ffile-prefix-map=${FENLUX_WINDOWS_PREFIX}=deps")
  endforeach()
  unset(_fenlux_language)
endif()
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

unset(_fenlux_triple)

# Runs test programs if Wine is installed. WINEPREFIX comes from the environment; it should exist before the first test
# (`wineboot --init`).
if(NOT DEFINED CMAKE_CROSSCOMPILING_EMULATOR)
  find_program(FENLUX_WINE NAMES wine64 wine PATHS /usr/lib/wine NO_CMAKE_FIND_ROOT_PATH)
  if(FENLUX_WINE)
    set(CMAKE_CROSSCOMPILING_EMULATOR
      env WINEDEBUG=-all WINEDLLOVERRIDES=mscoree,mshtml= "${FENLUX_WINE}")
  endif()
endif()
