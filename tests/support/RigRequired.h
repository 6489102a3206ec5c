#pragma once
// Tests that need a real service (a sound server, a bus, an X display, a sandbox) and cannot get it.
// On a developer's machine such a test is skipped, and ctest's summary counts it. Under CI=true the
// rigs are part of what is being tested, so a rig that cannot start fails the test with its reason.

#include <gtest/gtest.h>

#include <cstdlib>
#include <string_view>

namespace wh::test {

inline bool rigsRequired() {
  const char* ci = std::getenv("CI");
  return ci != nullptr && std::string_view(ci) == "true";
}

}  // namespace wh::test

// Ends the current test (or its SetUp) when `ready` is false: a failure under CI, a skip elsewhere.
#define REQUIRE_RIG(ready, why)                                                  \
  if (ready) {                                                                  \
  } else if (::wh::test::rigsRequired())                                        \
    GTEST_FAIL() << "the test rig could not start under CI=true: " << (why);    \
  else                                                                          \
    GTEST_SKIP() << (why)
