# Where things are installed, relative to the prefix. On Debian, libraries go to the architecture's own directory
# whatever the prefix is, so that a package and a private installation have the same layout.
if(PROJECT_IS_TOP_LEVEL AND NOT WIN32 AND CMAKE_LIBRARY_ARCHITECTURE AND EXISTS /etc/debian_version)
  set(CMAKE_INSTALL_LIBDIR lib/${CMAKE_LIBRARY_ARCHITECTURE} CACHE PATH "Libraries, relative to the prefix")
endif()
include(GNUInstallDirs)
