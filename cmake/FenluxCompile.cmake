# Compiler options of every file of the project. Warnings are errors in the presets only, so that a compiler with new
# warnings does not break the build of a project that embeds these sources.

# The suffix of files with code for one platform.
if(WIN32)
  set(FENLUX_PLATFORM win)
else()
  set(FENLUX_PLATFORM posix)
endif()

find_program(CCACHE_PROGRAM ccache)
if(CCACHE_PROGRAM)
  # Paths inside the checkout are hashed relative to it, so that all clones of a commit share compiled objects. The cache
  # ignores the path mapping below, so this file is an input too.
  set(CMAKE_CXX_COMPILER_LAUNCHER ${CMAKE_COMMAND} -E env CCACHE_BASEDIR=${PROJECT_SOURCE_DIR} CCACHE_NOHASHDIR=true
                                  CCACHE_EXTRAFILES=${CMAKE_CURRENT_LIST_FILE} ${CCACHE_PROGRAM})
endif()

if(MSVC)
  include(FenluxCompileMsvc)
  return()
endif()

add_compile_options(-Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wold-style-cast -Wnull-dereference
                    -Woverloaded-virtual -Wdelete-non-virtual-dtor)
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  add_compile_options(-Wthread-safety -Wthread-safety-beta)
endif()
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  # This compiler has false positives in inlined library code.
  add_compile_options(-Wno-null-dereference)
endif()

# Paths in binaries, debug information included, are relative to the source tree, so that builds of one commit are
# identical wherever the source and build trees are.
add_compile_options(-ffile-prefix-map=${PROJECT_SOURCE_DIR}=. -ffile-prefix-map=${PROJECT_BINARY_DIR}=./build)
if(CCACHE_PROGRAM)
  # The form in which the cache passes paths of the source tree to the compiler.
  cmake_path(RELATIVE_PATH PROJECT_SOURCE_DIR BASE_DIRECTORY ${PROJECT_BINARY_DIR} OUTPUT_VARIABLE sources_from_build)
  add_compile_options(-ffile-prefix-map=${sources_from_build}=.)
endif()

# Hardening of ELF binaries: stack canaries, checked library calls, control-flow protection where the processor has it,
# position-independent programs, a read-only relocation table that is complete before the program starts, and no
# executable stack. tests/package/hardening.cmake checks the result.
if(NOT WIN32)
  add_compile_options(-fstack-protector-strong)
  include(CheckCXXCompilerFlag)
  check_cxx_compiler_flag(-fcf-protection FENLUX_HAS_CF_PROTECTION)
  if(FENLUX_HAS_CF_PROTECTION)
    add_compile_options(-fcf-protection)
  endif()
  # Without optimization the library only warns. The sanitizers intercept the unchecked calls. A level that the builder
  # chose stays.
  if(NOT FENLUX_SANITIZE AND NOT "${CMAKE_CXX_FLAGS}" MATCHES "_FORTIFY_SOURCE")
    add_compile_options("$<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=2>")
  endif()
  include(CheckPIESupported)
  check_pie_supported(LANGUAGES CXX)
  add_link_options(-Wl,-z,relro,-z,now,-z,noexecstack)
endif()

if(FENLUX_SANITIZE)
  add_compile_options(-fsanitize=${FENLUX_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${FENLUX_SANITIZE})
endif()

if(FENLUX_RANDOM_YIELDS)
  add_compile_definitions(FENLUX_RANDOM_YIELDS)  # everywhere, because inline functions differ
endif()

if(FENLUX_COVERAGE)
  # Atomic counters, because the tests run threads; a process that is killed writes no counts.
  add_compile_options(--coverage -fprofile-update=atomic)
  add_link_options(--coverage)
endif()

if(MINGW)
  # Address-space randomization, no execution of data, and no timestamps, so that builds of one commit are identical.
  add_link_options(-Wl,--dynamicbase,--nxcompat,--high-entropy-va -Wl,--no-insert-timestamp)

  # The module and its host exchange C++ objects and exceptions, so they must share one C++ runtime, as DLLs beside the
  # programs. Linked statically into both, the runtime would exist twice, and what it compares by address (error
  # categories, the current exception) would differ across the library boundary.
  set(FENLUX_RUNTIME_DLLS)
  foreach(dll libstdc++-6.dll libgcc_s_seh-1.dll libwinpthread-1.dll)
    execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=${dll} OUTPUT_VARIABLE path
                    OUTPUT_STRIP_TRAILING_WHITESPACE)
    if(NOT IS_ABSOLUTE "${path}")
      message(FATAL_ERROR "${CMAKE_CXX_COMPILER} has no ${dll}")
    endif()
    list(APPEND FENLUX_RUNTIME_DLLS ${path})
  endforeach()
  file(COPY ${FENLUX_RUNTIME_DLLS} DESTINATION ${PROJECT_BINARY_DIR})
endif()
