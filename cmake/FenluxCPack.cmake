# Read by cpack: whatever writes a time into a package (strip into the DLL, the archivers for their members) writes the
# commit's, so that two packages of one commit are the same bytes.
if(NOT DEFINED ENV{SOURCE_DATE_EPOCH})
  execute_process(COMMAND git log -1 --format=%ct WORKING_DIRECTORY ${CMAKE_CURRENT_LIST_DIR}
                  OUTPUT_VARIABLE time OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
  if(NOT time MATCHES "^[0-9]+$")
    set(time 315619200)  # sources without a history: the second day that a zip archive can name
  endif()
  set(ENV{SOURCE_DATE_EPOCH} ${time})
endif()
