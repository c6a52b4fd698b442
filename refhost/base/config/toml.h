// The TOML library, configured once for all files that include it. It is large, so only base/config includes it.
#pragma once

// Header only: the shared library that some systems package is then not needed at run time.
#define TOML_HEADER_ONLY 1
#define TOML_ENABLE_FORMATTERS 0
// The parser asserts some conditions before it reports the syntax error that violates them. An assertion would end the
// host because of a typing error in its file.
#define TOML_ASSERT(expr) static_assert(true)

#include <toml++/toml.h>
