// How programs must be compiled to use these headers. This is checked first, and a failed check ends the compilation:
// otherwise its error would be lost among those of later headers. Any header of the C++ library defines the macro for
// its strings, so the smallest one is enough here.
#ifndef KIVCLAIM_FRAMEWORK_ZTFI_REQUIREMENTS_H
#define KIVCLAIM_FRAMEWORK_ZTFI_REQUIREMENTS_H

#if !defined(__cplusplus) || __cplusplus < 201703L
#error "kivclaim needs C++17 or later: compile with -std=c++17"
#include "framework/the_error_above_says_what_is_needed"
#endif

#ifndef __cpp_exceptions
#error "kivclaim needs C++ exceptions, which pass between host and library: compile without -fno-exceptions"
#include "framework/the_error_above_says_what_is_needed"
#endif

#include <cstddef>

#if defined(_GLIBCXX_USE_CXX11_ABI) && _GLIBCXX_USE_CXX11_ABI == 0
#error "kivclaim's std::string is the one of C++11: compile without -D_GLIBCXX_USE_CXX11_ABI=0"
#include "framework/the_error_above_says_what_is_needed"
#endif

#endif
