# What the DLL has beyond the shared library of other systems: the attach hook, a .def file that exports init
# undecorated, a version resource, and the linker flags of a library that is loaded into a security agent.
enable_language(RC)

# The module's version is written once, in the code that reports it; the resource shows it by its digits (19072701 is
# 19.7.27.1).
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/src/kdi/driver_version.cpp)
file(STRINGS ${PROJECT_SOURCE_DIR}/src/kdi/driver_version.cpp FENLUX_MODULE_VERSION REGEX "kModuleVersion = [0-9]+;")
if(NOT FENLUX_MODULE_VERSION MATCHES "kModuleVersion = ([0-9]+)")
  message(FATAL_ERROR "src/kdi/driver_version.cpp names no module version")
endif()
set(FENLUX_MODULE_VERSION ${CMAKE_MATCH_1})
math(EXPR FENLUX_VERSION_1 "${FENLUX_MODULE_VERSION} / 1000000")
math(EXPR FENLUX_VERSION_2 "${FENLUX_MODULE_VERSION} / 10000 % 100")
math(EXPR FENLUX_VERSION_3 "${FENLUX_MODULE_VERSION} / 100 % 100")
math(EXPR FENLUX_VERSION_4 "${FENLUX_MODULE_VERSION} % 100")
configure_file(version.rc.in ${CMAKE_CURRENT_BINARY_DIR}/version.rc @ONLY)

target_sources(fenlux PRIVATE attach_win.cpp fenlux.def ${CMAKE_CURRENT_BINARY_DIR}/version.rc)
set_target_properties(fenlux PROPERTIES PREFIX "")

# POCO's Net is linked for what it does when it loads: its network initialiser runs. Nothing of it is called, so the
# linker has to be told to take the object file that holds it. For MinGW's the package says so that
# scripts/windows-deps.sh makes.
target_link_libraries(fenlux PRIVATE Poco::Net)
if(MSVC)
  target_link_options(fenlux PRIVATE "/INCLUDE:?initializeNetwork@Net@Poco@@YAXXZ")
endif()
