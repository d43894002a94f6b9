// Runtime-assumption checks with the library's assertion text: "file,line:expression", where
// file is the source's base name without extension.
#pragma once

#include <vorx/develop.h>

#define VORX_ASSUME_STR2(x) #x
#define VORX_ASSUME_STR(x) VORX_ASSUME_STR2(x)

// Reports `expr` through the assumption box when it is false; yields `expr`.
#define VORX_ASSUME(file, expr)                                                                    \
  ::VORX::Develop::_isfalse_(static_cast<bool>(expr), file "," VORX_ASSUME_STR(__LINE__) ":" #expr)
