#pragma once
// What every fuzz target shares: a check that stops the run with its reason, so that libFuzzer
// keeps the input that broke it.

#include <cstdio>
#include <cstdlib>

#define FUZZ_CHECK(condition)                                                              \
  do {                                                                                     \
    if (!(condition)) {                                                                    \
      std::fprintf(stderr, "%s:%d: check failed: %s\n", __FILE__, __LINE__, #condition); \
      std::abort();                                                                        \
    }                                                                                      \
  } while (false)
