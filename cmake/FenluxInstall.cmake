# Installation and packages, in three components:
#
#   development   the module, its headers, the CMake package, the minimal host and the embedding documents: what an agent's
#                 engineers need
#   host          the reference host with its examples and documents
#   driver        the protocol as a C header, test vectors and example decoders; installed on request, not packaged
#
# The layout is the same on every system, except that the library is where the system expects it: lib/libfenlux.so, or
# bin/fenlux.dll with its import library in lib.
include(CMakePackageConfigHelpers)

set(FENLUX_INSTALL_DOC share/doc/fenlux)
set(FENLUX_INSTALL_CMAKE lib/cmake/fenlux)

# ---- development

# The headers that a host includes, laid out like the sources: a host writes #include "host/host.h".
target_include_directories(fenlux_api INTERFACE $<INSTALL_INTERFACE:include/fenlux>)
target_compile_features(fenlux_api INTERFACE cxx_std_20)
set_target_properties(fenlux_api PROPERTIES EXPORT_NAME api)
target_link_libraries(fenlux INTERFACE fenlux_api)  # for hosts that link the module instead of loading it

install(TARGETS fenlux fenlux_api EXPORT fenluxTargets
  RUNTIME DESTINATION bin COMPONENT development
  LIBRARY DESTINATION lib COMPONENT development
  ARCHIVE DESTINATION lib COMPONENT development)
# The runtime that the module and its host share (MinGW).
install(FILES ${FENLUX_RUNTIME_DLLS} DESTINATION bin COMPONENT development)
list(TRANSFORM FENLUX_RUNTIME_DLLS REPLACE ".*/" "bin/" OUTPUT_VARIABLE FENLUX_INSTALLED_DLLS)
install(DIRECTORY src/host DESTINATION include/fenlux COMPONENT development FILES_MATCHING PATTERN "*.h")
foreach(header core/fenlux.h kdi/drvx_control.h kdi/kdi_base.h kdi/driver_records.h common/mutex.h
        common/thread_annotations.h)
  cmake_path(GET header PARENT_PATH directory)
  install(FILES src/${header} DESTINATION include/fenlux/${directory} COMPONENT development)
endforeach()

install(EXPORT fenluxTargets NAMESPACE fenlux:: DESTINATION ${FENLUX_INSTALL_CMAKE} COMPONENT development)
configure_package_config_file(cmake/fenluxConfig.cmake.in fenluxConfig.cmake
  INSTALL_DESTINATION ${FENLUX_INSTALL_CMAKE} NO_SET_AND_CHECK_MACRO NO_CHECK_REQUIRED_COMPONENTS_MACRO)
# Before 1.0 every minor version may change the contract.
write_basic_package_version_file(fenluxConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/fenluxConfig.cmake ${PROJECT_BINARY_DIR}/fenluxConfigVersion.cmake
  DESTINATION ${FENLUX_INSTALL_CMAKE} COMPONENT development)

install(DIRECTORY examples/minimal-host DESTINATION ${FENLUX_INSTALL_DOC}/examples COMPONENT development)
install(FILES docs/architecture.md docs/embedding.md docs/protocol.md THIRD-PARTY-NOTICES
  DESTINATION ${FENLUX_INSTALL_DOC} COMPONENT development)
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
  install(DIRECTORY examples/ DESTINATION ${FENLUX_INSTALL_DOC}/examples COMPONENT host FILES_MATCHING
    PATTERN "*.toml" PATTERN minimal-host EXCLUDE)
  install(FILES docs/operations.md DESTINATION ${FENLUX_INSTALL_DOC} COMPONENT host)
  if(WIN32)  # the archives stand alone; the Debian package depends on the module's, which has the notices
    install(FILES THIRD-PARTY-NOTICES DESTINATION ${FENLUX_INSTALL_DOC} COMPONENT host)
  endif()
endif()

# ---- driver

install(FILES driver/include/fenlux/driver_protocol.h DESTINATION include/fenlux COMPONENT driver)
install(DIRECTORY driver/vectors/ DESTINATION share/fenlux/vectors COMPONENT driver FILES_MATCHING
  PATTERN "*.bin" PATTERN "*.hex" PATTERN "*.json" PATTERN index.txt PATTERN generator EXCLUDE)
install(FILES driver/README.md docs/protocol.md DESTINATION ${FENLUX_INSTALL_DOC}/driver COMPONENT driver)
install(FILES driver/examples/decode.c DESTINATION ${FENLUX_INSTALL_DOC}/driver/examples COMPONENT driver)
install(PROGRAMS driver/examples/decode.py DESTINATION ${FENLUX_INSTALL_DOC}/driver/examples COMPONENT driver)

# ---- packages: one for each component

set(CPACK_PACKAGE_NAME fenlux)
set(CPACK_PACKAGE_VENDOR "The fenlux developers")
set(CPACK_PACKAGE_CONTACT "The fenlux developers")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${PROJECT_DESCRIPTION}")
set(CPACK_COMPONENTS_ALL development)
if(FENLUX_BUILD_REFHOST)
  list(APPEND CPACK_COMPONENTS_ALL host)
endif()
set(CPACK_STRIP_FILES ON)
set(CPACK_PROJECT_CONFIG_FILE ${PROJECT_SOURCE_DIR}/cmake/FenluxCPack.cmake)
set(CPACK_VERBATIM_VARIABLES ON)

if(WIN32)
  set(CPACK_GENERATOR ZIP)
  # Both archives unpack into one folder: the reference host next to the module.
  set(CPACK_ARCHIVE_COMPONENT_INSTALL ON)
  set(CPACK_COMPONENT_INCLUDE_TOPLEVEL_DIRECTORY ON)
  set(CPACK_ARCHIVE_DEVELOPMENT_FILE_NAME fenlux-${PROJECT_VERSION}-win64)
  set(CPACK_ARCHIVE_HOST_FILE_NAME fenlux-host-${PROJECT_VERSION}-win64)
else()
  set(CPACK_GENERATOR DEB)
  set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
  set(CPACK_DEB_COMPONENT_INSTALL ON)
  set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
  set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME fenlux)
  set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
  set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_RECOMMENDS "libboost-filesystem-dev, cmake, g++")
  set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION
      "The module that a host agent loads, with the headers, the CMake package\n and a minimal host to start from.")
  set(CPACK_DEBIAN_HOST_PACKAGE_NAME fenlux-host)
  set(CPACK_DEBIAN_HOST_PACKAGE_SECTION admin)
  set(CPACK_DEBIAN_HOST_PACKAGE_DEPENDS "fenlux (= ${PROJECT_VERSION})")
  set(CPACK_COMPONENT_HOST_DESCRIPTION
      "The reference host of fenlux: a complete host with a driver emulator that\n answers kernel events with the module's verdicts.")
endif()
include(CPack)
