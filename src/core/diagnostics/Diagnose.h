#pragma once
// The diagnostics text: the agent's view of the machine, printed by "--diagnose".

#include <string>

#include "core/app/BuildInfo.h"

namespace wh {

class Diagnose {
 public:
  struct Sources {
    BuildInfo build;
    std::string systemVersion;  // the operating system's name and version
  };

  explicit Diagnose(Sources sources) : sources_(std::move(sources)) {}

  // The whole report, lines joined with "\n" (no final newline).
  std::string text() const;

 private:
  Sources sources_;
};

}  // namespace wh
