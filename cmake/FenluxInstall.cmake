# Installation, in components:
#
#   runtime        the module alone (not on Windows, where it is part of `development`)
#   development    the headers, the CMake package, the pkg-config file, the minimal host and the embedding documents: what
#                  an agent's engineers need
#   host           the reference host with its examples and documents
#   documentation  architecture, protocol, the API reference and the driver's test vectors (on Windows part of
#                  `development`, without the vectors)
#   debug          debug information of the Windows binaries (MinGW only)
#   driver         the driver kit by itself: the protocol as a C header, test vectors and example decoders; installed on
#                  request, not packaged
#
# The layout is the same on every system, except that the library is where the system expects it: libfenlux.so.0 in the
# library directory (cmake/FenluxLayout.cmake), or bin/fenlux.dll with its import library in lib.
include(CMakePackageConfigHelpers)

set(FENLUX_INSTALL_DOC share/doc/fenlux)
set(FENLUX_INSTALL_CMAKE ${CMAKE_INSTALL_LIBDIR}/cmake/fenlux)
if(WIN32)
  set(FENLUX_RUNTIME_COMPONENT development)
  set(FENLUX_DOCUMENTATION_COMPONENT development)
else()
  set(FENLUX_RUNTIME_COMPONENT runtime)
  set(FENLUX_DOCUMENTATION_COMPONENT documentation)
endif()

# ---- runtime and development

# The headers that a host includes, laid out like the sources: a host writes #include "host/host.h". The headers in
# include/fenlux itself are included with that folder's name.
target_include_directories(fenlux_api INTERFACE $<INSTALL_INTERFACE:include/fenlux> $<INSTALL_INTERFACE:include>)
target_compile_features(fenlux_api INTERFACE cxx_std_20)
set_target_properties(fenlux_api PROPERTIES EXPORT_NAME api)
target_link_libraries(fenlux INTERFACE fenlux_api)  # for hosts that link the module instead of loading it

install(TARGETS fenlux fenlux_api EXPORT fenluxTargets
  RUNTIME DESTINATION bin COMPONENT development
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT ${FENLUX_RUNTIME_COMPONENT} NAMELINK_COMPONENT development
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development)
# The runtime that the module and its host share (MinGW), without its symbols, which are most of its size. They are in
# the component `debug`, like those of our own binaries, as files for the debugger.
list(TRANSFORM FENLUX_RUNTIME_DLLS REPLACE ".*/" "bin/" OUTPUT_VARIABLE FENLUX_INSTALLED_DLLS)
foreach(dll ${FENLUX_RUNTIME_DLLS})
  cmake_path(GET dll FILENAME name)
  set(stripped ${PROJECT_BINARY_DIR}/runtime/${name})
  if(NOT EXISTS ${stripped} OR ${dll} IS_NEWER_THAN ${stripped})
    file(MAKE_DIRECTORY ${PROJECT_BINARY_DIR}/runtime)
    foreach(command "${CMAKE_OBJCOPY};--only-keep-debug;${dll};${stripped}.debug" "${CMAKE_STRIP};-o;${stripped};${dll}")
      # Some versions of the tools write the time into the file.
      execute_process(COMMAND ${CMAKE_COMMAND} -E env SOURCE_DATE_EPOCH=315619200 ${command} COMMAND_ERROR_IS_FATAL ANY)
    endforeach()
  endif()
  install(FILES ${stripped} DESTINATION bin COMPONENT development)
  install(FILES ${stripped}.debug DESTINATION bin COMPONENT debug)
endforeach()
# fenlux_install_debug(<target>): the debug information of a program or library, extracted while it is installed.
function(fenlux_install_debug target)
  install(CODE "
    set(folder \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/bin\")
    file(MAKE_DIRECTORY \${folder})
    execute_process(COMMAND \"${CMAKE_OBJCOPY}\" --only-keep-debug \"$<TARGET_FILE:${target}>\"
                            \${folder}/$<TARGET_FILE_NAME:${target}>.debug COMMAND_ERROR_IS_FATAL ANY)"
    COMPONENT debug)
endfunction()
if(MINGW)
  fenlux_install_debug(fenlux)
endif()
install(DIRECTORY src/host DESTINATION include/fenlux COMPONENT development FILES_MATCHING PATTERN "*.h")
foreach(header core/fenlux.h kdi/drvx_control.h kdi/kdi_base.h kdi/driver_records.h common/mutex.h
        common/random_yield.h common/thread_annotations.h)
  cmake_path(GET header PARENT_PATH directory)
  install(FILES src/${header} DESTINATION include/fenlux/${directory} COMPONENT development)
endforeach()
install(FILES ${FENLUX_GENERATED_INCLUDE}/fenlux/version.h ${FENLUX_GENERATED_INCLUDE}/fenlux/abi.h
              driver/include/fenlux/driver_protocol.h hostkit/include/fenlux/default_record.h
              hostkit/include/fenlux/default_services.h
  DESTINATION include/fenlux COMPONENT development)

# Recording of a port, for any host.
set_target_properties(fenlux_capture PROPERTIES EXPORT_NAME capture)
install(TARGETS fenlux_capture EXPORT fenluxTargets ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development)
install(FILES refhost/capture/recording_port_client.h DESTINATION include/fenlux/capture COMPONENT development)
install(FILES share/wireshark/fenlux.lua DESTINATION share/fenlux/wireshark COMPONENT development)

install(EXPORT fenluxTargets NAMESPACE fenlux:: DESTINATION ${FENLUX_INSTALL_CMAKE} COMPONENT development)
configure_package_config_file(cmake/fenluxConfig.cmake.in fenluxConfig.cmake
  INSTALL_DESTINATION ${FENLUX_INSTALL_CMAKE} NO_SET_AND_CHECK_MACRO)
configure_file(cmake/fenluxConfigVersion.cmake.in fenluxConfigVersion.cmake @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/fenluxConfig.cmake ${PROJECT_BINARY_DIR}/fenluxConfigVersion.cmake
  DESTINATION ${FENLUX_INSTALL_CMAKE} COMPONENT development)
if(NOT WIN32)
  file(RELATIVE_PATH FENLUX_PC_TO_PREFIX /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
  string(REGEX REPLACE "/$" "" FENLUX_PC_TO_PREFIX "${FENLUX_PC_TO_PREFIX}")
  configure_file(cmake/fenlux.pc.in fenlux.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/fenlux.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
endif()

install(DIRECTORY examples/minimal-host DESTINATION ${FENLUX_INSTALL_DOC}/examples COMPONENT development)
install(FILES docs/capture.md docs/embedding.md THIRD-PARTY-NOTICES DESTINATION ${FENLUX_INSTALL_DOC}
  COMPONENT development)
# The compiler's runtime DLLs must ship with their licences, which Debian installs with the cross compiler.
function(fenlux_install_licence name path)
  if(EXISTS ${path})
    install(FILES ${path} DESTINATION ${FENLUX_INSTALL_DOC}/licenses RENAME ${name} COMPONENT development)
  else()
    message(WARNING "${path} is missing: packages of this build lack a licence of the runtime DLLs that they contain")
  endif()
endfunction()
if(FENLUX_RUNTIME_DLLS)
  fenlux_install_licence(GPL-3 /usr/share/common-licenses/GPL-3)
  fenlux_install_licence(gcc-mingw-w64 /usr/share/doc/gcc-mingw-w64-base/copyright)
  fenlux_install_licence(mingw-w64 /usr/share/doc/mingw-w64-x86-64-dev/copyright)
endif()

# ---- host

if(FENLUX_BUILD_REFHOST)
  install(TARGETS fenlux-host RUNTIME DESTINATION bin COMPONENT host)
  if(MINGW)
    fenlux_install_debug(fenlux-host)
  endif()
  if(NOT WIN32)
    install(DIRECTORY ${PROJECT_BINARY_DIR}/pages/ DESTINATION share/man/man1 COMPONENT host
      FILES_MATCHING PATTERN "*.1.gz")
    install(FILES ${PROJECT_BINARY_DIR}/pages/fenlux-host.bash DESTINATION share/bash-completion/completions
      RENAME fenlux-host COMPONENT host)
  endif()
  install(DIRECTORY examples/ DESTINATION ${FENLUX_INSTALL_DOC}/examples COMPONENT host FILES_MATCHING
    PATTERN "*.toml" PATTERN "*.yml" PATTERN "*.pcapng" PATTERN minimal-host EXCLUDE)
  install(FILES docs/operations.md DESTINATION ${FENLUX_INSTALL_DOC} COMPONENT host)
  if(WIN32)  # the archives stand alone; the Debian packages have the notices in their copyright files
    install(FILES THIRD-PARTY-NOTICES DESTINATION ${FENLUX_INSTALL_DOC} COMPONENT host)
  endif()
endif()

# ---- documentation and driver

# fenlux_install_vectors(<component>)
function(fenlux_install_vectors component)
  install(DIRECTORY driver/vectors/ DESTINATION share/fenlux/vectors COMPONENT ${component} FILES_MATCHING
    PATTERN "*.bin" PATTERN "*.hex" PATTERN "*.json" PATTERN index.txt PATTERN generator EXCLUDE)
endfunction()
function(fenlux_install_kit_documents component)
  install(FILES driver/README.md docs/protocol.md DESTINATION ${FENLUX_INSTALL_DOC}/driver COMPONENT ${component})
  install(FILES driver/examples/decode.c DESTINATION ${FENLUX_INSTALL_DOC}/driver/examples COMPONENT ${component})
  install(PROGRAMS driver/examples/decode.py DESTINATION ${FENLUX_INSTALL_DOC}/driver/examples COMPONENT ${component})
endfunction()

install(FILES docs/architecture.md docs/protocol.md
  DESTINATION ${FENLUX_INSTALL_DOC} COMPONENT ${FENLUX_DOCUMENTATION_COMPONENT})
if(FENLUX_BUILD_DOCS)
  install(DIRECTORY ${FENLUX_API_FOLDER} DESTINATION ${FENLUX_INSTALL_DOC} COMPONENT ${FENLUX_DOCUMENTATION_COMPONENT})
endif()
if(NOT WIN32)
  fenlux_install_vectors(documentation)
  fenlux_install_kit_documents(documentation)
endif()

install(FILES driver/include/fenlux/driver_protocol.h DESTINATION include/fenlux COMPONENT driver)
fenlux_install_vectors(driver)
fenlux_install_kit_documents(driver)
