# Compiler options for MSVC. Untested.

# init is extern "C" and throws: the compiler must not assume that such functions do not.
string(REPLACE "/EHsc" "" CMAKE_CXX_FLAGS "${CMAKE_CXX_FLAGS}")
add_compile_options(/EHs /W4 /permissive- /utf-8 /Zc:__cplusplus /Zc:preprocessor)
add_compile_definitions(NOMINMAX)
# Address-space randomization, no execution of data, no timestamps.
add_link_options(/DYNAMICBASE /NXCOMPAT /HIGHENTROPYVA /Brepro)
