# How every file of the project is compiled: warnings are errors, and the sanitizers of the preset apply to all of it.

# The ending of the bodies that differ between the platforms.
if(WIN32)
  set(FENLUX_PLATFORM win)
else()
  set(FENLUX_PLATFORM posix)
endif()

find_program(CCACHE_PROGRAM ccache)
if(CCACHE_PROGRAM)
  # Paths inside the checkout count relative to it, so that every clone of a commit shares what was compiled once. The
  # cache does not look at how paths are mapped (below), so this file counts as an input.
  set(CMAKE_CXX_COMPILER_LAUNCHER ${CMAKE_COMMAND} -E env CCACHE_BASEDIR=${CMAKE_SOURCE_DIR} CCACHE_NOHASHDIR=true
                                  CCACHE_EXTRAFILES=${CMAKE_CURRENT_LIST_FILE} ${CCACHE_PROGRAM})
endif()

if(MSVC)
  include(FenluxCompileMsvc)
  return()
endif()

add_compile_options(-Wall -Wextra -Wpedantic -Werror -Wshadow -Wconversion -Wold-style-cast -Wnull-dereference
                    -Woverloaded-virtual -Wdelete-non-virtual-dtor)
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  add_compile_options(-Wthread-safety)
endif()
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  # False alarms of this compiler on inlined library code.
  add_compile_options(-Wno-null-dereference)
endif()

# Paths inside the binaries, debug information included, are relative to the sources, wherever these and the build lie,
# so that two builds of one commit are the same bytes.
add_compile_options(-ffile-prefix-map=${CMAKE_SOURCE_DIR}=. -ffile-prefix-map=${CMAKE_BINARY_DIR}=./build)
if(CCACHE_PROGRAM)
  # The form that the cache gives to a path of the sources.
  cmake_path(RELATIVE_PATH CMAKE_SOURCE_DIR BASE_DIRECTORY ${CMAKE_BINARY_DIR} OUTPUT_VARIABLE sources_from_build)
  add_compile_options(-ffile-prefix-map=${sources_from_build}=.)
endif()

if(FENLUX_SANITIZE)
  add_compile_options(-fsanitize=${FENLUX_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${FENLUX_SANITIZE})
endif()

if(MINGW)
  # Address-space randomisation, no execution of data; and no time of day in the files, so that two builds of one commit
  # are the same bytes.
  add_link_options(-Wl,--dynamicbase,--nxcompat,--high-entropy-va -Wl,--no-insert-timestamp)

  # The module and its host hand each other C++ objects and exceptions, so they have to share one C++ runtime: its DLLs
  # lie beside the programs. Linked statically into both, the runtime would be there twice, and what it compares by
  # address (error categories, the exception being handled) would differ across the library's boundary.
  set(FENLUX_RUNTIME_DLLS)
  foreach(dll libstdc++-6.dll libgcc_s_seh-1.dll libwinpthread-1.dll)
    execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=${dll} OUTPUT_VARIABLE path
                    OUTPUT_STRIP_TRAILING_WHITESPACE)
    if(NOT IS_ABSOLUTE "${path}")
      message(FATAL_ERROR "${CMAKE_CXX_COMPILER} has no ${dll}")
    endif()
    list(APPEND FENLUX_RUNTIME_DLLS ${path})
  endforeach()
  file(COPY ${FENLUX_RUNTIME_DLLS} DESTINATION ${CMAKE_BINARY_DIR})
endif()
