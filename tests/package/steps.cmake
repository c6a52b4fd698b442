# Steps that the package tests share. A step that fails ends the test and prints the program's output.

# run(<variable for its output> <command>...)
function(run output)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE text ERROR_VARIABLE text)
  if(NOT result STREQUAL "0")
    list(JOIN ARGN " " command)
    message(FATAL_ERROR "${command}\nended with ${result}:\n${text}")
  endif()
  set(${output} "${text}" PARENT_SCOPE)
endfunction()

# An empty folder for a test.
function(empty_folder folder)
  file(REMOVE_RECURSE ${folder})
  file(MAKE_DIRECTORY ${folder})
endfunction()

# Configures and builds a project against the installed package, from scratch.
function(build_consumer source folder)
  empty_folder(${folder})
  run(output ${CMAKE_COMMAND} -G ${FENLUX_GENERATOR} -C ${FENLUX_WORK_DIR}/consumer_cache.cmake -S ${source} -B ${folder})
  run(output ${CMAKE_COMMAND} --build ${folder})
endfunction()

# The name of a program of this build.
function(program_name variable name)
  if(FENLUX_WINDOWS)
    string(APPEND name .exe)
  endif()
  set(${variable} ${name} PARENT_SCOPE)
endfunction()

# The module's library, relative to the prefix.
if(FENLUX_WINDOWS)
  set(FENLUX_LIBRARY bin/fenlux.dll)
else()
  set(FENLUX_LIBRARY ${FENLUX_LIBDIR}/libfenlux.so.${FENLUX_INTERFACE_VERSION})
endif()

# The module's component, and the components that an agent's engineers install.
if(FENLUX_WINDOWS)
  set(FENLUX_RUNTIME_COMPONENT development)
  set(FENLUX_DEVELOPMENT_COMPONENTS development)
else()
  set(FENLUX_RUNTIME_COMPONENT runtime)
  set(FENLUX_DEVELOPMENT_COMPONENTS runtime development)
endif()

# Runs the small host on the notifications of the scripted example (scripted.cmake), which it has to judge like the
# reference host.
function(run_small_host program module)
  run(output ${program} ${module} ${FENLUX_WORK_DIR}/scripted/notifications.txt)
  if(NOT output MATCHES "([0-9]+) of ([0-9]+) verdicts as expected" OR NOT CMAKE_MATCH_1 EQUAL CMAKE_MATCH_2)
    message(FATAL_ERROR "the small host printed:\n${output}")
  endif()
  message(STATUS "the small host: ${CMAKE_MATCH_0}")
endfunction()

# install_components(<prefix> <component>...)
function(install_components prefix)
  foreach(component ${ARGN})
    run(output ${CMAKE_COMMAND} --install ${FENLUX_BINARY_DIR} --prefix ${prefix} --component ${component})
  endforeach()
endfunction()

# The files that the development package must contain, relative to the prefix.
file(GLOB FENLUX_DEVELOPMENT_FILES RELATIVE ${FENLUX_SOURCE_DIR}/src ${FENLUX_SOURCE_DIR}/src/host/*.h)
list(APPEND FENLUX_DEVELOPMENT_FILES core/fenlux.h kdi/drvx_control.h kdi/kdi_base.h kdi/driver_records.h version.h abi.h
     driver_protocol.h default_record.h default_services.h)
list(TRANSFORM FENLUX_DEVELOPMENT_FILES PREPEND include/fenlux/)
list(APPEND FENLUX_DEVELOPMENT_FILES ${FENLUX_LIBDIR}/cmake/fenlux/fenluxConfig.cmake
     ${FENLUX_LIBDIR}/cmake/fenlux/fenluxConfigVersion.cmake ${FENLUX_LIBDIR}/cmake/fenlux/fenluxTargets.cmake
     share/doc/fenlux/capture.md share/doc/fenlux/embedding.md share/doc/fenlux/examples/minimal-host/CMakeLists.txt
     share/doc/fenlux/examples/minimal-host/main.cpp share/doc/fenlux/THIRD-PARTY-NOTICES)
list(APPEND FENLUX_DEVELOPMENT_FILES include/fenlux/capture/recording_port_client.h ${FENLUX_LIBDIR}/libfenlux_capture.a
     share/fenlux/wireshark/fenlux.lua)
if(FENLUX_WINDOWS)
  list(APPEND FENLUX_DEVELOPMENT_FILES ${FENLUX_LIBRARY} lib/libfenlux.dll.a ${FENLUX_RUNTIME_DLLS})
else()
  list(APPEND FENLUX_DEVELOPMENT_FILES ${FENLUX_LIBDIR}/libfenlux.so ${FENLUX_LIBDIR}/pkgconfig/fenlux.pc)
endif()
