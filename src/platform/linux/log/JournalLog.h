#pragma once
// The system log: the systemd journal when it runs, syslog otherwise.

#include <string>

#include "core/log/FileLog.h"

namespace wh::platform {

class JournalLog final : public SystemLog {
 public:
  // `subsystem` is the program's identifier; `category` the area ("core").
  JournalLog(std::string subsystem, std::string category);
  ~JournalLog() override;
  void write(LogLevel level, const std::string& message) override;
  bool usesJournal() const { return journal_; }

 private:
  std::string subsystem_;
  std::string category_;
  bool journal_;
};

}  // namespace wh::platform
