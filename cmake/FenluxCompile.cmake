# How every file of the project is compiled: warnings are errors, and the sanitizers of the preset apply to all of it.

# The ending of the bodies that differ between the platforms.
if(WIN32)
  set(FENLUX_PLATFORM win)
else()
  set(FENLUX_PLATFORM posix)
endif()

find_program(CCACHE_PROGRAM ccache)
if(CCACHE_PROGRAM)
  set(CMAKE_CXX_COMPILER_LAUNCHER ${CCACHE_PROGRAM})
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

# Paths inside the binaries are relative to the sources, so that two checkouts of one commit give the same bytes.
add_compile_options(-ffile-prefix-map=${CMAKE_SOURCE_DIR}=.)

if(FENLUX_SANITIZE)
  add_compile_options(-fsanitize=${FENLUX_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${FENLUX_SANITIZE})
endif()
