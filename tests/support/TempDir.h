#pragma once
#include <filesystem>
#include <string>

namespace wh::test {

// The whole content of a file; empty when it cannot be read.
std::string readFile(const std::filesystem::path& path);

// A fresh folder under the system's temporary folder, removed with everything in it on destruction.
class TempDir {
 public:
  explicit TempDir(const std::string& prefix = "wrenhaven");
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
};

}  // namespace wh::test
