# The API reference of the installed headers: the target `docs` builds it with Doxygen, and a test checks that every
# public declaration has a comment.
set(FENLUX_API_FOLDER ${PROJECT_BINARY_DIR}/docs/api)
find_program(DOXYGEN_PROGRAM doxygen)
mark_as_advanced(DOXYGEN_PROGRAM)

if(DOXYGEN_PROGRAM)
  set(FENLUX_API_INPUT)
  foreach(input docs/api/main.md src/host src/core/fenlux.h src/kdi/drvx_control.h src/kdi/kdi_base.h
          src/kdi/driver_records.h driver/include/fenlux/driver_protocol.h hostkit/include/fenlux
          refhost/capture/recording_port_client.h)
    string(APPEND FENLUX_API_INPUT " ${PROJECT_SOURCE_DIR}/${input}")
  endforeach()
  foreach(header version abi)
    string(APPEND FENLUX_API_INPUT " ${FENLUX_GENERATED_INCLUDE}/fenlux/${header}.h")
  endforeach()

  # fenlux_doxygen_command(<variable> <output folder>): the command that builds the reference there.
  function(fenlux_doxygen_command variable folder)
    set(FENLUX_API_OUTPUT ${folder})
    configure_file(${PROJECT_SOURCE_DIR}/docs/api/Doxyfile.in ${folder}.Doxyfile @ONLY)
    file(MAKE_DIRECTORY ${folder})
    set(${variable} ${DOXYGEN_PROGRAM} ${folder}.Doxyfile PARENT_SCOPE)
  endfunction()

  fenlux_doxygen_command(command ${FENLUX_API_FOLDER})
  add_custom_target(docs COMMAND ${command} VERBATIM COMMENT "Building the API reference in ${FENLUX_API_FOLDER}")
  if(FENLUX_BUILD_DOCS)  # part of every build, because it is installed
    set_target_properties(docs PROPERTIES EXCLUDE_FROM_ALL FALSE)
  endif()
elseif(FENLUX_BUILD_DOCS)
  message(FATAL_ERROR "FENLUX_BUILD_DOCS needs Doxygen (Debian: doxygen)")
endif()

if(FENLUX_BUILD_TESTS)
  if(DOXYGEN_PROGRAM)
    fenlux_doxygen_command(command ${FENLUX_API_FOLDER}-test)
  else()
    set(command ${CMAKE_COMMAND} -E echo "skipped, because doxygen is not installed")
  endif()
  add_test(NAME docs.every_public_declaration_is_documented COMMAND ${command})
  set_tests_properties(docs.every_public_declaration_is_documented PROPERTIES LABELS unit TIMEOUT 300
    SKIP_REGULAR_EXPRESSION "skipped, because")
endif()
