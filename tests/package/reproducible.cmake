# Sources at another path, compiled again, give the same module byte for byte. The compiler cache is not used here: a
# module built from the cache must be identical too.
cmake_minimum_required(VERSION 3.25)
include(${SETTINGS})

set(folder ${FENLUX_WORK_DIR}/reproducible)
set(sources ${folder}/sources-of-the-same-commit)
set(build ${folder}/build)
empty_folder(${folder})
foreach(part CMakeLists.txt THIRD-PARTY-NOTICES cmake docs driver hostkit packaging src)
  file(COPY ${FENLUX_SOURCE_DIR}/${part} DESTINATION ${sources})
endforeach()
file(COPY ${FENLUX_SOURCE_DIR}/refhost/capture DESTINATION ${sources}/refhost)
set(ENV{CCACHE_DISABLE} 1)
run(output ${CMAKE_COMMAND} -G ${FENLUX_GENERATOR} -C ${FENLUX_WORK_DIR}/rebuild_cache.cmake -S ${sources} -B ${build})
run(output ${CMAKE_COMMAND} --build ${build} --target fenlux)

cmake_path(GET FENLUX_LIBRARY FILENAME library)
file(SHA256 ${FENLUX_BINARY_DIR}/${library} hash)
file(SHA256 ${build}/${library} hash_again)
if(NOT hash STREQUAL hash_again)
  message(FATAL_ERROR "${FENLUX_BINARY_DIR}/${library} and ${build}/${library} differ")
endif()
message(STATUS "${library}: ${hash}")
