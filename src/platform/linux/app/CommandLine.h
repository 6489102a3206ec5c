#pragma once
// The command line both programs answer: their own options, --help and --version as usual, and a
// short usage on standard error with status 2 for anything else.

#include <optional>
#include <string>
#include <vector>

namespace wh::platform {

struct CommandLineOption {
  std::string name;         // without the leading dashes: "diagnose"
  std::string description;  // one line for --help
};

class CommandLine {
 public:
  static constexpr int usageError = 2;

  // `program` is the name printed in the usage, `summary` the line under it.
  CommandLine(std::string program, std::string summary, std::string versionText,
              std::vector<CommandLineOption> options);

  // Reads argv. When the program should end at once (help, version, a mistake) it prints what it
  // has to say and answers the exit status; otherwise it answers nothing and `isSet` tells the rest.
  std::optional<int> parse(int argc, char** argv);
  bool isSet(const std::string& name) const;

 private:
  std::string shortUsage() const;

  std::string program_;
  std::string summary_;
  std::string versionText_;
  std::vector<CommandLineOption> options_;
  std::vector<std::string> set_;
};

}  // namespace wh::platform
