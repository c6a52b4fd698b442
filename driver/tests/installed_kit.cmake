# The kit as driver developers get it: only this component, installed into an empty folder. The installed header
# compiles alone, and the installed decoders read the installed vectors.
#   -D BINARY_DIR, WORK_DIR: the build, and a folder for the test
#   -D C_COMPILER, PYTHON: the compiler and the interpreter; without PYTHON, the Python decoder is skipped
function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE text ERROR_VARIABLE text)
  if(NOT result EQUAL 0)
    list(JOIN ARGN " " command)
    message(FATAL_ERROR "${command}\nended with ${result}:\n${text}")
  endif()
endfunction()

set(prefix ${WORK_DIR}/prefix)
file(REMOVE_RECURSE ${WORK_DIR})
file(MAKE_DIRECTORY ${WORK_DIR})
run(${CMAKE_COMMAND} --install ${BINARY_DIR} --prefix ${prefix} --component driver)

file(GLOB_RECURSE installed RELATIVE ${prefix} ${prefix}/*)
set(places "^(include/fenlux/driver_protocol\\.h|")
string(APPEND places "share/fenlux/vectors/(index\\.txt|[a-z-]+/[a-z0-9-]+\\.(bin|hex|json))|")
string(APPEND places "share/doc/fenlux/driver/((README|protocol)\\.md|examples/decode\\.(c|py)))$")
foreach(file ${installed})
  if(NOT file MATCHES "${places}")
    message(SEND_ERROR "${file} is installed and is not part of the kit")
  endif()
endforeach()

file(WRITE ${WORK_DIR}/only.c "#include <fenlux/driver_protocol.h>\n")
set(flags -std=c11 -Wall -Wextra -Wpedantic -Werror -I${prefix}/include)
run(${C_COMPILER} ${flags} -fsyntax-only ${WORK_DIR}/only.c)
set(examples ${prefix}/share/doc/fenlux/driver/examples)
run(${C_COMPILER} ${flags} ${examples}/decode.c -o ${WORK_DIR}/decode)
run(${WORK_DIR}/decode --check ${prefix}/share/fenlux/vectors)
if(PYTHON)
  run(${PYTHON} ${examples}/decode.py --check ${prefix}/share/fenlux/vectors)
endif()
