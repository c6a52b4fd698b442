# Compiler options for MSVC. Untested: nobody has built with it yet, so warnings are not errors.

# init is extern "C" and throws; with /EHsc the compiler assumes that such functions do not throw.
string(REPLACE "/EHsc" "" CMAKE_CXX_FLAGS "${CMAKE_CXX_FLAGS}")
add_compile_options(/EHs /permissive- /utf-8 /Zc:__cplusplus /Zc:preprocessor)
# The warning level that corresponds to -Wall -Wextra of the other compilers. CMake's own /W3 would be overridden with a
# warning for every file.
string(REGEX REPLACE "/W[0-4]" "" CMAKE_CXX_FLAGS "${CMAKE_CXX_FLAGS}")
add_compile_options(/W4)
add_compile_definitions(NOMINMAX)

# Stack cookies (/GS) are on by default. Control Flow Guard checks the targets of indirect calls, and most calls here go
# through tables of operations; compiler and linker both need the option.
add_compile_options(/guard:cf)
add_link_options(/guard:cf)
# Marks the image as compatible with shadow stacks: the processor checks every return address.
add_link_options(/CETCOMPAT)
# Address-space randomization with 64 bits, no execution of data, no timestamps.
add_link_options(/DYNAMICBASE /HIGHENTROPYVA /NXCOMPAT /Brepro)
