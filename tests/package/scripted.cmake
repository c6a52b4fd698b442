# Records the scripted example with the reference host, so that the small host can judge the same notifications.
cmake_minimum_required(VERSION 3.25)
include(${SETTINGS})

set(folder ${FENLUX_WORK_DIR}/scripted)
empty_folder(${folder})
# Another host may use the default control socket.
file(READ ${FENLUX_SOURCE_DIR}/examples/scripted.toml config)
file(WRITE ${folder}/scripted.toml "${config}\n[control]\nenabled = false\n")
file(COPY ${FENLUX_SOURCE_DIR}/examples/scenario-all-codes.toml DESTINATION ${folder})
run(output ${FENLUX_BINARY_DIR}/fenlux-host run --config ${folder}/scripted.toml --record ${folder}/port.pcapng)
execute_process(COMMAND ${FENLUX_BINARY_DIR}/fenlux-host decode --json --hex ${folder}/port.pcapng
                COMMAND python3 ${CMAKE_CURRENT_LIST_DIR}/small_host/notifications.py
                OUTPUT_FILE ${folder}/notifications.txt COMMAND_ERROR_IS_FATAL ANY)
file(STRINGS ${folder}/notifications.txt notifications)
list(LENGTH notifications count)
message(STATUS "${count} different notifications")
if(count LESS 100)
  message(FATAL_ERROR "the scripted example has more of them")
endif()
