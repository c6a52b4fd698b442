// The TOML library, configured once for all files that include it. It is large, so only base/config includes it.
#pragma once

// Header-only, so that the shared library that some systems package is not needed at run time.
#define TOML_HEADER_ONLY 1
#define TOML_ENABLE_FORMATTERS 0
// The parser asserts some conditions before it reports the syntax error that violates them. Without this, a typing
// error in the file could abort the host.
#define TOML_ASSERT(expr) static_assert(true)

#include <toml++/toml.h>
