# The reference host, installed with the module, finds it there and plays its scripted example.
cmake_minimum_required(VERSION 3.25)
include(${SETTINGS})

set(folder ${FENLUX_WORK_DIR}/reference-host)
empty_folder(${folder})
foreach(component development host)
  run(output ${CMAKE_COMMAND} --install ${FENLUX_BINARY_DIR} --prefix ${folder} --component ${component})
endforeach()
play_example(${folder})
