# The installed library exports init, undecorated, and nothing else; and it loads POCO's Net, whose network initialiser
# runs then, though it calls nothing of it.
cmake_minimum_required(VERSION 3.25)
include(${SETTINGS})

set(exports)
if(FENLUX_WINDOWS)
  run(output ${FENLUX_OBJDUMP} -p ${FENLUX_PREFIX}/${FENLUX_LIBRARY})
  if(NOT output MATCHES "\\[Ordinal/Name Pointer\\] Table[^\n]*\n(([^\n]+\n)*)")
    message(FATAL_ERROR "the library has no export table:\n${output}")
  endif()
  string(REGEX MATCHALL "[^ \t\n]+\n" exports "${CMAKE_MATCH_1}")
else()
  run(output ${FENLUX_OBJDUMP} -T ${FENLUX_PREFIX}/${FENLUX_LIBRARY})
  string(REGEX MATCHALL "[^\n]+\n" lines "${output}")
  foreach(line ${lines})
    if(NOT line MATCHES "\\*UND\\*" AND line MATCHES "^[0-9a-f]+ .* ([^ \n]+)\n")
      list(APPEND exports ${CMAKE_MATCH_1})
    endif()
  endforeach()
endif()

list(TRANSFORM exports STRIP)
if(NOT exports STREQUAL "init")
  message(FATAL_ERROR "the library exports \"${exports}\"")
endif()

if(NOT FENLUX_WINDOWS)  # where it is a library of its own
  run(output ${FENLUX_OBJDUMP} -p ${FENLUX_PREFIX}/${FENLUX_LIBRARY})
  if(NOT output MATCHES "\n *NEEDED +libPocoNet[.]so")
    message(FATAL_ERROR "the library does not load POCO's Net:\n${output}")
  endif()
endif()
