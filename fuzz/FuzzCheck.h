// SPDX-License-Identifier: MIT
#pragma once

#include <cstdio>
#include <cstdlib>

// A broken invariant is a finding: report it and abort so that libFuzzer
// saves the input (and the replay run fails).
#define VORN_FUZZ_CHECK(condition)                                                                                     \
    do {                                                                                                               \
        if (!(condition)) {                                                                                            \
            std::fprintf(stderr, "%s:%d: check failed: %s\n", __FILE__, __LINE__, #condition);                         \
            std::abort();                                                                                              \
        }                                                                                                              \
    } while (0)
