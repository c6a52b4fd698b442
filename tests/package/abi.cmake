# The installed headers have the layouts of abi/layouts.txt. If a change is intended, raise FENLUX_INTERFACE_VERSION in
# cmake/FenluxVersion.cmake, as docs/embedding.md, "Versions and the ABI", says, and replace that file with the one that
# this test names.
cmake_minimum_required(VERSION 3.25)
include(${SETTINGS})

find_program(python python3)
if(NOT python OR NOT FENLUX_READELF)
  message(STATUS "skipped, because python3 or readelf is not installed")
  return()
endif()
cmake_host_system_information(RESULT processor QUERY OS_PLATFORM)
if(NOT processor STREQUAL "x86_64")
  message(STATUS "skipped, because the expected layouts are those of x86-64 and not of ${processor}")
  return()
endif()

set(folder ${FENLUX_WORK_DIR}/abi)
empty_folder(${folder})
set(include ${FENLUX_PREFIX}/include)
# Describe all classes, including those without code here.
set(describe_all -fno-eliminate-unused-debug-types)
if(FENLUX_CXX_ID STREQUAL "GNU")
  list(APPEND describe_all -femit-class-debug-always)
endif()
run(output ${FENLUX_CXX} -std=c++20 -g -gdwarf-4 ${describe_all} -I${include}/fenlux -I${include}
    -c ${CMAKE_CURRENT_LIST_DIR}/abi/headers.cpp -o ${folder}/headers.o)
run(layouts ${python} ${CMAKE_CURRENT_LIST_DIR}/abi/tables.py ${FENLUX_READELF} ${folder}/headers.o)
file(WRITE ${folder}/layouts.txt "interface version ${FENLUX_INTERFACE_VERSION}\n${layouts}")
execute_process(COMMAND ${CMAKE_COMMAND} -E compare_files ${folder}/layouts.txt ${CMAKE_CURRENT_LIST_DIR}/abi/layouts.txt
                RESULT_VARIABLE result)
if(NOT result STREQUAL "0")
  execute_process(COMMAND diff -u ${CMAKE_CURRENT_LIST_DIR}/abi/layouts.txt ${folder}/layouts.txt)
  message(FATAL_ERROR "the installed headers have other layouts than abi/layouts.txt: see ${folder}/layouts.txt")
endif()
string(REGEX MATCHALL "slot [0-9]+" slots "${layouts}")
list(LENGTH slots count)
if(count EQUAL 0)
  message(FATAL_ERROR "${FENLUX_READELF} shows no operations")
endif()
message(STATUS "${count} operations are in their slots")
