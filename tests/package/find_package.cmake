# find_package accepts the versions, components and compilers that the package is for, and says why it refuses others.
cmake_minimum_required(VERSION 3.25)
include(${SETTINGS})

set(folder ${FENLUX_WORK_DIR}/find)
empty_folder(${folder})
run(output ${CMAKE_COMMAND} -G ${FENLUX_GENERATOR} -C ${FENLUX_WORK_DIR}/consumer_cache.cmake
    -S ${CMAKE_CURRENT_LIST_DIR}/find -B ${folder})
