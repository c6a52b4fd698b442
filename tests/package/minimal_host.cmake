# The installed copy of the minimal host is configured and built against the prefix, and runs to completion.
cmake_minimum_required(VERSION 3.25)
include(${SETTINGS})

set(folder ${FENLUX_WORK_DIR}/minimal-host)
build_consumer(${FENLUX_PREFIX}/share/doc/fenlux/examples/minimal-host ${folder})

program_name(program minimal-host)
run(output ${FENLUX_EMULATOR} ${folder}/${program})
message(STATUS "${output}")
# What the module logged, the driver received, and the host concluded.
foreach(line "event +Driver Interact Ready\\." "event +Current driver version=19072701"
        "event +\\[Add Monitor OK!\\]\\[obj path\\]=." "detail +\\[Ignore OPLock\\]C:\\\\Work\\\\secret\\.txt"
        "driver +code 4098 got verdict 2" "driver +code 4098 got verdict 4" "driver +code 4098 got verdict 3"
        "driver +code 4113 got verdict 0" "host +4 of 4 verdicts as expected")
  if(NOT output MATCHES "${line}")
    message(SEND_ERROR "the host did not print: ${line}")
  endif()
endforeach()
if(output MATCHES "(problem|alert|warning) ")
  message(SEND_ERROR "the host printed a problem")
endif()

# It records its port: every verdict is in the capture, with the judgement that led to it.
# The module's copy next to the program is named after the file, not after its links.
file(REAL_PATH ${FENLUX_PREFIX}/${FENLUX_LIBRARY} module)
cmake_path(GET module FILENAME module)
run(output ${FENLUX_EMULATOR} ${folder}/${program} ${folder}/${module} ${folder}/port.pcapng)
program_name(host fenlux-host)
run(output ${FENLUX_EMULATOR} ${FENLUX_BINARY_DIR}/${host} decode --json ${folder}/port.pcapng)
foreach(line "\"clientType\":1" "\"rule\":\"secrets are refused\"" "\"verdict\":4" "\"kind\":\"closed\""
        "\"kind\":\"facts\"" "\"name\":\"driver config\"")
  string(FIND "${output}" "${line}" position)
  if(position EQUAL -1)
    message(SEND_ERROR "the capture does not contain ${line}:\n${output}")
  endif()
endforeach()

if(FENLUX_BUILD_REFHOST)
  # A replay gives the module the same input and gets the same answers.
  run(output ${FENLUX_EMULATOR} ${FENLUX_BINARY_DIR}/${host} replay --json ${folder}/port.pcapng)
  if(NOT output MATCHES "\"identical\":true.*\"connections\":1.*\"notifications\":4,\"calls\":1")
    message(SEND_ERROR "the capture is not replayed:\n${output}")
  endif()
endif()

# It reports a module that does not exist.
execute_process(COMMAND ${FENLUX_EMULATOR} ${folder}/${program} ${folder}/no-such-module RESULT_VARIABLE result
                OUTPUT_VARIABLE output ERROR_VARIABLE output)
if(NOT result EQUAL 1 OR NOT output MATCHES "cannot be loaded")
  message(SEND_ERROR "without its module the host exited with ${result}:\n${output}")
endif()
