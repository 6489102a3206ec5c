#pragma once
#include <string>

namespace wh {

// What the program says about itself: its identifier and versions.
struct BuildInfo {
  std::string bundleIdentifier;  // "com.quintelbarrows.wrenhaven" for the agent
  std::string shortVersion;      // "0.1.0", or empty when unknown
  std::string buildNumber;       // "42", or empty when unknown

  // "0.1.0 (42)", with "?" for what is unknown.
  std::string versionText() const {
    return (shortVersion.empty() ? "?" : shortVersion) + " (" + (buildNumber.empty() ? "?" : buildNumber) + ")";
  }
};

}  // namespace wh
