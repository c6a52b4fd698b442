# Every installed header compiles alone, a program that links the module instead of loading it starts, and a small host
# judges what its driver reports.
cmake_minimum_required(VERSION 3.25)
include(${SETTINGS})

set(folder ${FENLUX_WORK_DIR}/consumer)
build_consumer(${CMAKE_CURRENT_LIST_DIR}/consumer ${folder})

file(GLOB_RECURSE headers ${FENLUX_PREFIX}/include/*.h)
file(GLOB_RECURSE objects ${folder}/*.h.cpp*.o ${folder}/*.h.cpp*.obj)
list(LENGTH headers headerCount)
list(LENGTH objects objectCount)
if(headerCount EQUAL 0 OR NOT headerCount EQUAL objectCount)
  message(FATAL_ERROR "${headerCount} headers are installed and ${objectCount} were compiled")
endif()
message(STATUS "${headerCount} headers compile alone")

program_name(program linking)
if(FENLUX_WINDOWS)  # Windows finds libraries next to the program
  file(GLOB libraries ${FENLUX_PREFIX}/bin/*.dll)
  file(COPY ${libraries} DESTINATION ${folder})
endif()
run(output ${FENLUX_EMULATOR} ${folder}/${program})
string(STRIP "${output}" output)
if(NOT output STREQUAL "[cl]Bad global class!")
  message(FATAL_ERROR "the linked module's init did not reject a missing context:\n${output}")
endif()

if(FENLUX_BUILD_REFHOST AND NOT FENLUX_WINDOWS)
  run_small_host(${folder}/small_host ${FENLUX_PREFIX}/${FENLUX_LIBRARY})
endif()
