# What a library of the module shows of itself, wherever it was installed or unpacked, and that a host runs with it.

# expect(<what> <list> <expected>...): the list, in whatever order, is what is expected of it.
function(expect what list)
  list(SORT list)
  list(SORT ARGN)
  if(NOT list STREQUAL "${ARGN}")
    message(SEND_ERROR "the library ${what} \"${list}\" instead of \"${ARGN}\"")
  endif()
endfunction()

# found(<variable> <text> <regular expression>): what the expression's group matches in the text, wherever it does.
function(found variable text expression)
  string(REGEX MATCHALL "${expression}" matches "${text}")
  list(TRANSFORM matches REPLACE "${expression}" "\\1")
  set(${variable} "${matches}" PARENT_SCOPE)
endfunction()

# The library exports init, undecorated, and nothing else; it loads what the embedding document names; and a Windows
# library can lie anywhere and never executes data.
function(check_library prefix)
  set(library ${prefix}/${FENLUX_LIBRARY})
  message(STATUS "${library}")
  run(description ${FENLUX_OBJDUMP} -p ${library})
  if(FENLUX_WINDOWS)
    if(NOT description MATCHES "\\[Ordinal/Name Pointer\\] Table[^\n]*\n(([^\n]+\n)*)")
      message(FATAL_ERROR "the library has no export table:\n${description}")
    endif()
    found(exports "${CMAKE_MATCH_1}" "[ \t]([^ \t\n]+)\n")
    found(numbers "${description}" "\\+base\\[ *([0-9]+)\\][^\n]*Export RVA")  # there may be some without a name
    expect("exports the numbers" "${numbers}" 1)
    found(loaded "${description}" "DLL Name: ([^\n]+)")
    expect("loads" "${loaded}" KERNEL32.dll WS2_32.dll libgcc_s_seh-1.dll libstdc++-6.dll libwinpthread-1.dll msvcrt.dll)
    if(NOT description MATCHES "\nDllCharacteristics[^\n]*\n((\t[^\n]+\n)*)")
      message(FATAL_ERROR "the library has no characteristics:\n${description}")
    endif()
    found(flags "${CMAKE_MATCH_1}" "\t([^\t\n]+)")
    expect("has the flags" "${flags}" DYNAMIC_BASE HIGH_ENTROPY_VA NX_COMPAT)
  else()
    run(symbols ${FENLUX_OBJDUMP} -T ${library})
    string(REGEX REPLACE "[^\n]*\\*UND\\*[^\n]*\n" "" symbols "${symbols}")
    found(exports "${symbols}" "\n[0-9a-f]+ [^\n]* ([^ \n]+)")
    # POCO's Net is loaded for its network initialiser alone; nothing of it is called.
    if(NOT description MATCHES "\n *NEEDED +libPocoNet[.]so")
      message(SEND_ERROR "the library does not load POCO's Net:\n${description}")
    endif()
  endif()
  expect("exports" "${exports}" init)
endfunction()

# The reference host below the prefix finds the module there and plays its scripted example.
function(play_example prefix)
  program_name(program fenlux-host)
  run(output ${FENLUX_EMULATOR} ${prefix}/bin/${program} run --config ${prefix}/share/doc/fenlux/examples/scripted.toml)
  foreach(line "Driver Interact Ready\\." "unjudged +none" "protocol_violations +0")
    if(NOT output MATCHES "${line}")
      message(SEND_ERROR "the host did not print: ${line}\n${output}")
    endif()
  endforeach()
endfunction()
