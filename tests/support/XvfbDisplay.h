#pragma once
// A private X display (Xvfb) for tests, on a display number the server picks itself.

#include <memory>
#include <string>

#include "support/ChildProcess.h"

namespace wh::test {

class XvfbDisplay {
 public:
  XvfbDisplay();
  bool available() const { return !name_.empty(); }
  const std::string& whyNot() const { return whyNot_; }
  // ":<n>", for DISPLAY.
  const std::string& name() const { return name_; }

 private:
  std::unique_ptr<ChildProcess> process_;
  std::string name_, whyNot_;
};

}  // namespace wh::test
