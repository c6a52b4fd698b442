# How Microsoft's compiler compiles the project. Written for those who build on Windows; it has not been run yet.

# init throws at its host, which is C++ behind a C name: exceptions of extern "C" functions must not be assumed away.
string(REPLACE "/EHsc" "" CMAKE_CXX_FLAGS "${CMAKE_CXX_FLAGS}")
add_compile_options(/EHs /W4 /permissive- /utf-8 /Zc:__cplusplus /Zc:preprocessor)
add_compile_definitions(NOMINMAX)
# Address-space randomisation, no execution of data, no time of day in the files.
add_link_options(/DYNAMICBASE /NXCOMPAT /HIGHENTROPYVA /Brepro)
