# Packages, made by cpack: four Debian packages, or three ZIP archives for Windows (module, host, debug information).
#
#   libfenlux0     the module                                       component runtime
#   libfenlux-dev  headers, CMake and pkg-config files              component development
#   fenlux-host    the reference host and its configuration         components host and system
#   fenlux-doc     API reference, protocol, test vectors            component documentation
#
# scripts/package.sh builds them for the Debian releases, in empty roots.
set(FENLUX_DEB_SUFFIX "" CACHE STRING "Appended to the version of the Debian packages, such as +deb12")
set(FENLUX_DEB_VERSION ${PROJECT_VERSION}${FENLUX_DEB_SUFFIX})

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
  # All archives unpack into one folder: the reference host next to the module, debug information next to both.
  set(CPACK_ARCHIVE_COMPONENT_INSTALL ON)
  set(CPACK_COMPONENT_INCLUDE_TOPLEVEL_DIRECTORY ON)
  set(CPACK_ARCHIVE_DEVELOPMENT_FILE_NAME fenlux-${PROJECT_VERSION}-win64)
  set(CPACK_ARCHIVE_HOST_FILE_NAME fenlux-host-${PROJECT_VERSION}-win64)
  if(MINGW)
    list(APPEND CPACK_COMPONENTS_ALL debug)
    set(CPACK_ARCHIVE_DEBUG_FILE_NAME fenlux-debug-${PROJECT_VERSION}-win64)
  endif()
  include(CPack)
  return()
endif()

set(library_package libfenlux${FENLUX_INTERFACE_VERSION})
list(APPEND CPACK_COMPONENTS_ALL runtime documentation)

# ---- files that only packages contain

set(folder ${PROJECT_BINARY_DIR}/packaging)
file(MAKE_DIRECTORY ${folder})
configure_file(packaging/debian/changelog.in ${folder}/changelog @ONLY)
execute_process(COMMAND gzip -9nf INPUT_FILE ${folder}/changelog OUTPUT_FILE ${folder}/changelog.gz
                COMMAND_ERROR_IS_FATAL ANY)
file(READ packaging/debian/copyright.head text)
file(READ THIRD-PARTY-NOTICES notices)
file(WRITE ${folder}/copyright "${text}${notices}")
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS
  ${PROJECT_SOURCE_DIR}/THIRD-PARTY-NOTICES ${PROJECT_SOURCE_DIR}/packaging/debian/copyright.head)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_VERSION ${FENLUX_DEB_VERSION})
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_COMPONENTS_GROUPING ONE_PER_GROUP)

# fenlux_debian_package(<group> <package> <section> <description> <component>...): the package of these components, with
# the files that Debian expects in each package. Those files are in a separate component, because an ordinary
# installation does not have them.
macro(fenlux_debian_package group package section description)
  string(TOUPPER ${group} upper)
  set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${package})
  set(CPACK_DEBIAN_${upper}_PACKAGE_SECTION ${section})
  set(CPACK_DEBIAN_${upper}_DESCRIPTION "${description}")
  set(CPACK_COMPONENT_GROUP_${upper}_DESCRIPTION "${description}")
  install(FILES ${folder}/copyright ${folder}/changelog.gz
    DESTINATION share/doc/${package} COMPONENT debian_${group} EXCLUDE_FROM_ALL)
  install(FILES packaging/debian/${package}.lintian-overrides
    DESTINATION share/lintian/overrides RENAME ${package} COMPONENT debian_${group} EXCLUDE_FROM_ALL)
  foreach(component ${ARGN} debian_${group})
    string(TOUPPER ${component} component_upper)
    set(CPACK_COMPONENT_${component_upper}_GROUP ${group})
    list(APPEND CPACK_COMPONENTS_ALL ${component})
  endforeach()
endmacro()

set(library_package libfenlux${FENLUX_INTERFACE_VERSION})
set(CPACK_COMPONENTS_ALL)

fenlux_debian_package(library ${library_package} libs
  "User-mode side of a kernel filter driver - module\n The library that a host security agent loads at run time. It connects to the\n driver, applies the agent's policy and answers the driver's notifications."
  runtime)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
# The trigger updates the library cache. Without our own scripts, cpack would add ones that update it again.
set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA
    ${PROJECT_SOURCE_DIR}/packaging/debian/library/triggers ${PROJECT_SOURCE_DIR}/packaging/debian/library/postinst
    ${PROJECT_SOURCE_DIR}/packaging/debian/library/postrm)

fenlux_debian_package(headers libfenlux-dev libdevel
  "User-mode side of a kernel filter driver - development files\n The headers of the host contract and of the driver protocol, the CMake and\n pkg-config files, and a minimal host to start from."
  development)
set(CPACK_DEBIAN_HEADERS_PACKAGE_DEPENDS
    "${library_package} (= ${FENLUX_DEB_VERSION}), libboost-dev, libboost-filesystem-dev")
set(CPACK_DEBIAN_HEADERS_PACKAGE_RECOMMENDS "g++")
set(CPACK_DEBIAN_HEADERS_PACKAGE_SUGGESTS "cmake, fenlux-doc, pkgconf")

fenlux_debian_package(documents fenlux-doc doc
  "User-mode side of a kernel filter driver - documentation\n The architecture, the API reference, the wire protocol and the test vectors\n for driver developers."
  documentation)
set(CPACK_DEBIAN_DOCUMENTS_PACKAGE_ARCHITECTURE all)
set(CPACK_DEBIAN_DOCUMENTS_PACKAGE_SHLIBDEPS OFF)

if(FENLUX_BUILD_REFHOST)
  # Files with absolute paths are in the component `system`, which an ordinary installation leaves out: it would ignore
  # the prefix.
  install(FILES packaging/etc/host.toml DESTINATION /etc/fenlux COMPONENT system EXCLUDE_FROM_ALL)
  install(FILES packaging/etc/logrotate.conf DESTINATION /etc/logrotate.d RENAME fenlux-host COMPONENT system
    EXCLUDE_FROM_ALL)
  install(FILES packaging/fenlux-host.service DESTINATION lib/systemd/system COMPONENT system EXCLUDE_FROM_ALL)
  fenlux_debian_package(program fenlux-host admin
    "User-mode side of a kernel filter driver - reference host\n A complete host with a driver emulator, which answers kernel events with the\n module's verdicts."
    host system)
  set(CPACK_DEBIAN_PROGRAM_PACKAGE_DEPENDS "${library_package} (= ${FENLUX_DEB_VERSION})")
  set(CPACK_DEBIAN_PROGRAM_PACKAGE_CONTROL_EXTRA
      ${PROJECT_SOURCE_DIR}/packaging/debian/conffiles ${PROJECT_SOURCE_DIR}/packaging/debian/program/postinst
      ${PROJECT_SOURCE_DIR}/packaging/debian/program/prerm ${PROJECT_SOURCE_DIR}/packaging/debian/program/postrm)
endif()
include(CPack)
