# The target coverage-report prints what the tests covered so far, and writes pages to coverage/ in the build directory.
find_program(GCOVR_PROGRAM gcovr REQUIRED)
add_custom_target(coverage-report
  COMMAND ${CMAKE_COMMAND} -E make_directory coverage
  COMMAND ${GCOVR_PROGRAM} --root ${PROJECT_SOURCE_DIR} --object-directory ${PROJECT_BINARY_DIR}
          --filter ${PROJECT_SOURCE_DIR}/src/ --filter ${PROJECT_SOURCE_DIR}/refhost/ --exclude-throw-branches
          --html-details coverage/index.html --print-summary
  WORKING_DIRECTORY ${PROJECT_BINARY_DIR} VERBATIM USES_TERMINAL)

# gcovr needs the real paths of the sources: this undoes the mapping of FenluxCompile for the recorded counts only.
foreach(folder ${PROJECT_SOURCE_DIR} ${PROJECT_BINARY_DIR} ${sources_from_build})
  add_compile_options(-fprofile-prefix-map=${folder}=${folder})
endforeach()
