#pragma once
// A stand-in MPRIS player on a private session bus (mpris_player.py beside this file) that
// records the calls it receives.

#include <memory>
#include <string>
#include <vector>

#include "support/ChildProcess.h"

namespace wh::test {

class MprisStandIn {
 public:
  // `mode`: "ok", "error" (answers errors) or "silent" (never answers). Waits until it owns its name.
  MprisStandIn(const std::string& busAddress, const std::string& name, const std::string& desktopEntry,
               const std::string& mode = "ok");
  bool ready() const { return ready_; }
  // The calls so far, as "Next" or "Seek -5000000".
  std::vector<std::string> calls();

 private:
  std::unique_ptr<ChildProcess> process_;
  bool ready_ = false;
};

}  // namespace wh::test
