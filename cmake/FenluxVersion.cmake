# The version numbers, each read from the one place that defines it, and the headers that give them to a host:
# fenlux/version.h and fenlux/abi.h, generated below include/ of the build tree.

# The number of the interface between module and host. It is the number in the library's SONAME and in the name of its
# Debian package. Raise it when a table of operations, an argument, or a value that crosses the library boundary changes
# so that a host must be built again; docs/embedding.md, "Versions and the ABI", says what that covers.
set(FENLUX_INTERFACE_VERSION 0)

# The module's version, from the protocol's numbers.
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/src/kdi/driver_records.h)
file(STRINGS ${PROJECT_SOURCE_DIR}/src/kdi/driver_records.h FENLUX_MODULE_VERSION REGEX "kModuleVersion = [0-9]+;")
if(NOT FENLUX_MODULE_VERSION MATCHES "kModuleVersion = ([0-9]+)")
  message(FATAL_ERROR "src/kdi/driver_records.h defines no module version")
endif()
set(FENLUX_MODULE_VERSION ${CMAKE_MATCH_1})

# What fenlux/abi.h compares.
string(REGEX MATCH "^[0-9]+" FENLUX_COMPILER_MAJOR "${CMAKE_CXX_COMPILER_VERSION}")
set(FENLUX_COMPILER "${CMAKE_CXX_COMPILER_ID} ${CMAKE_CXX_COMPILER_VERSION}")
string(REPLACE "." ";" boost_version "${Boost_VERSION_STRING}")
list(GET boost_version 0 boost_major)
list(GET boost_version 1 boost_minor)
list(GET boost_version 2 boost_patch)
math(EXPR FENLUX_BOOST_VERSION "${boost_major} * 100000 + ${boost_minor} * 100 + ${boost_patch}")

set(FENLUX_GENERATED_INCLUDE ${PROJECT_BINARY_DIR}/include)
foreach(header version abi)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/${header}.h.in ${FENLUX_GENERATED_INCLUDE}/fenlux/${header}.h @ONLY)
endforeach()

# For the sources of this project and of those that embed it: #include "fenlux/version.h"
add_library(fenlux_version INTERFACE)
target_include_directories(fenlux_version INTERFACE $<BUILD_INTERFACE:${FENLUX_GENERATED_INCLUDE}>)
