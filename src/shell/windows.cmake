# The Windows parts of the shared library: the attach hook, a .def file that exports init undecorated, and a version
# resource.
enable_language(RC)

# The resource shows the digits of the module's version: 19072701 becomes 19.7.27.1.
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
