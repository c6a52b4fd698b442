# The Windows parts of the shared library: the attach hook, a .def file that exports init undecorated, and a version
# resource.
enable_language(RC)

# The module's version is defined once, with the protocol's numbers. The resource shows its digits: 19072701 becomes
# 19.7.27.1.
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/src/kdi/driver_records.h)
file(STRINGS ${PROJECT_SOURCE_DIR}/src/kdi/driver_records.h FENLUX_MODULE_VERSION REGEX "kModuleVersion = [0-9]+;")
if(NOT FENLUX_MODULE_VERSION MATCHES "kModuleVersion = ([0-9]+)")
  message(FATAL_ERROR "src/kdi/driver_records.h defines no module version")
endif()
set(FENLUX_MODULE_VERSION ${CMAKE_MATCH_1})
math(EXPR FENLUX_VERSION_1 "${FENLUX_MODULE_VERSION} / 1000000")
math(EXPR FENLUX_VERSION_2 "${FENLUX_MODULE_VERSION} / 10000 % 100")
math(EXPR FENLUX_VERSION_3 "${FENLUX_MODULE_VERSION} / 100 % 100")
math(EXPR FENLUX_VERSION_4 "${FENLUX_MODULE_VERSION} % 100")
configure_file(version.rc.in ${CMAKE_CURRENT_BINARY_DIR}/version.rc @ONLY)

target_sources(fenlux PRIVATE attach_win.cpp fenlux.def ${CMAKE_CURRENT_BINARY_DIR}/version.rc)
set_target_properties(fenlux PROPERTIES PREFIX "")

# POCO's Net is linked because its network initializer runs when it loads. The module calls nothing in it, so make the
# linker take the object file with the initializer. For MinGW, the package that scripts/windows-deps.sh builds does so.
target_link_libraries(fenlux PRIVATE Poco::Net)
if(MSVC)
  target_link_options(fenlux PRIVATE "/INCLUDE:?initializeNetwork@Net@Poco@@YAXXZ")
endif()
