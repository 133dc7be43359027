// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdio>
#include <cstdlib>

// Reports a violated FFT precondition and ends the program.
[[noreturn]] inline void fftreal_assertion_failed(const char *expression, const char *file,
                                                  int line) noexcept
{
    std::fprintf(stderr, "Assertion failed: %s (%s:%d)\n", expression, file, line);
    std::fflush(stderr);
    std::abort();
}

// Like assert(), but active in every build, NDEBUG or not: the FFT's
// preconditions guard memory accesses, so a Release build must keep them. The
// message quotes the expression exactly as written at the call site.
#define FFTREAL_ASSERT(expression)                                                                 \
    ((expression) ? static_cast<void>(0)                                                           \
                  : fftreal_assertion_failed(#expression, __FILE__, __LINE__))
