// The readable forms of mangled names: C++ and Rust, as profilers and debuggers show them. By libiberty, which valgrind and
// perf use.
//
//     _ZN4shop5orderEi.part.0    shop::order(int) [clone .part.0]    with parameters, as valgrind shows it
//                                shop::order                         without, as perf does
//
// A mangled name of some dozen bytes can stand for a readable one of gigabytes. One that is longer than 64 KiB is not made,
// nor that of a mangled one longer than 16 KiB.
#pragma once

#include <string>
#include <string_view>

/// The readable form of a mangled name, with the parameters of a function; the name itself for any other.
std::string demangled(std::string_view name);

/// The readable form of a mangled name, without the parameters of a function; the name itself for any other.
std::string demangled_without_parameters(std::string_view name);
