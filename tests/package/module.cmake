# Checks of the module's library, wherever it was installed or unpacked, and of a host that runs with it.

# expect(<what> <list> <expected>...): the list has the expected elements, in any order.
function(expect what list)
  list(SORT list)
  list(SORT ARGN)
  if(NOT list STREQUAL "${ARGN}")
    message(SEND_ERROR "the library ${what} \"${list}\" instead of \"${ARGN}\"")
  endif()
endfunction()

# found(<variable> <text> <regular expression>): everything in the text that the expression's group matches.
function(found variable text expression)
  string(REGEX MATCHALL "${expression}" matches "${text}")
  list(TRANSFORM matches REPLACE "${expression}" "\\1")
  set(${variable} "${matches}" PARENT_SCOPE)
endfunction()

# The library exports init, undecorated, and nothing else. It loads what the embedding document names. A Windows library
# can be relocated anywhere and never executes data.
function(check_library prefix)
  set(library ${prefix}/${FENLUX_LIBRARY})
  message(STATUS "${library}")
  run(description ${FENLUX_OBJDUMP} -p ${library})
  if(FENLUX_WINDOWS)
    if(NOT description MATCHES "\\[Ordinal/Name Pointer\\] Table[^\n]*\n(([^\n]+\n)*)")
      message(FATAL_ERROR "the library has no export table:\n${description}")
    endif()
    # Only lines that begin with a number: newer versions of binutils print a heading.
    found(exports "${CMAKE_MATCH_1}" "\\[ *[0-9]+\\][^\n]*[ \t]([^ \t\n]+)\n")
    found(numbers "${description}" "\\+base\\[ *([0-9]+)\\][^\n]*Export RVA")  # exports may lack a name
    expect("exports the numbers" "${numbers}" 1)
    found(loaded "${description}" "DLL Name: ([^\n]+)")
    expect("loads" "${loaded}" ADVAPI32.dll KERNEL32.dll WS2_32.dll libgcc_s_seh-1.dll libstdc++-6.dll libwinpthread-1.dll
           msvcrt.dll)
    if(NOT description MATCHES "\nDllCharacteristics[^\n]*\n((\t[^\n]+\n)*)")
      message(FATAL_ERROR "the library has no characteristics:\n${description}")
    endif()
    found(flags "${CMAKE_MATCH_1}" "\t([^\t\n]+)")
    expect("has the flags" "${flags}" DYNAMIC_BASE HIGH_ENTROPY_VA NX_COMPAT)
  else()
    run(symbols ${FENLUX_OBJDUMP} -T ${library})
    string(REGEX REPLACE "[^\n]*\\*UND\\*[^\n]*\n" "" symbols "${symbols}")
    found(exports "${symbols}" "\n[0-9a-f]+ [^\n]* ([^ \n]+)")
    if(NOT description MATCHES "\n *SONAME +libfenlux[.]so[.]${FENLUX_INTERFACE_VERSION}\n")
      message(SEND_ERROR "the library has another SONAME than its interface version says:\n${description}")
    endif()
    # POCO's Net is loaded only for its network initializer; nothing in it is called.
    if(NOT description MATCHES "\n *NEEDED +libPocoNet[.]so")
      message(SEND_ERROR "the library does not load POCO's Net:\n${description}")
    endif()
  endif()
  expect("exports" "${exports}" init)
endfunction()

# The reference host below the prefix finds the module there and plays its scripted example. Its control socket is its
# own, in a directory with a short name, because paths of sockets are limited.
function(play_example prefix)
  program_name(program fenlux-host)
  set(directory)
  if(FENLUX_WINDOWS)
    string(RANDOM LENGTH 16 name)
    set(socket "\\\\.\\pipe\\fenlux-test-${name}")
  else()
    run(directory mktemp -d)
    string(STRIP "${directory}" directory)
    set(socket ${directory}/host.sock)
  endif()
  execute_process(
    COMMAND ${FENLUX_EMULATOR} ${prefix}/bin/${program} run --socket ${socket}
            --config ${prefix}/share/doc/fenlux/examples/scripted.toml
    RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
  if(directory)
    file(REMOVE_RECURSE ${directory})
  endif()
  if(NOT result STREQUAL "0")
    message(FATAL_ERROR "the host exited with ${result}:\n${output}")
  endif()
  # On a busy machine, a reply may be later than the example's deadline of a second.
  set(unjudged "unjudged( +none|[ \r\n]+late +[0-9]+)[ \r\n]+unjudged_refused +0")
  foreach(line "Driver Interact Ready\\." "${unjudged}" "protocol_violations +0")
    if(NOT output MATCHES "${line}")
      message(SEND_ERROR "the host did not print: ${line}\n${output}")
    endif()
  endforeach()
endfunction()
