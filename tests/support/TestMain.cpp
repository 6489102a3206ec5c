// The main of every test binary. Before any test runs it points the XDG folders at a fresh
// temporary folder, so no test reads or writes the user's settings, logs or state, and it marks
// the process as hosted by a test runner.
#include <cstdlib>
#include <filesystem>

#include <gtest/gtest.h>

#include "support/TempDir.h"

int main(int argc, char** argv) {
  static wh::test::TempDir home("wrenhaven-test-home");
  const auto set = [](const char* name, const std::filesystem::path& path) {
    std::filesystem::create_directories(path);
    ::setenv(name, path.c_str(), 1);
  };
  set("HOME", home.path());
  set("XDG_CONFIG_HOME", home.path() / "config");
  set("XDG_STATE_HOME", home.path() / "state");
  set("XDG_RUNTIME_DIR", home.path() / "runtime");
  std::filesystem::permissions(home.path() / "runtime", std::filesystem::perms::owner_all);  // as the session's is
  ::setenv("XCTestConfigurationFilePath", "wrenhaven-tests", 1);
  testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
