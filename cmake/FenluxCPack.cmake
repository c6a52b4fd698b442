# Read by cpack. Tools that write timestamps into a package (strip, the archivers) use the time of the commit, so that two
# packages of one commit are identical.
if(NOT DEFINED ENV{SOURCE_DATE_EPOCH})
  execute_process(COMMAND git log -1 --format=%ct WORKING_DIRECTORY ${CMAKE_CURRENT_LIST_DIR}
                  OUTPUT_VARIABLE time OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
  if(NOT time MATCHES "^[0-9]+$")
    set(time 315619200)  # without history: the second day that a ZIP archive can represent
  endif()
  set(ENV{SOURCE_DATE_EPOCH} ${time})
endif()
