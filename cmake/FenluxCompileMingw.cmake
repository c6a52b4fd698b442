# Hardening of Windows binaries built with MinGW-w64. The linker's flags are in FenluxCompile.cmake. The compiler's
# control-flow protection (-fcf-protection) and the linker's tables for Control Flow Guard do not exist for this target.
# tests/package/hardening.cmake checks the result.

# Stack canaries. Their support code is linked statically, so that no further DLL is needed.
add_compile_options(-fstack-protector-strong)
foreach(language C CXX)
  string(APPEND CMAKE_${language}_STANDARD_LIBRARIES " -Wl,-Bstatic -lssp -Wl,-Bdynamic")
endforeach()
