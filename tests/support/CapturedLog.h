#pragma once
// The log as a test sees it: while a CapturedLog exists, every Log::info and Log::error line is
// kept in `lines` (messages only), and nothing goes to a file.

#include <memory>
#include <string>
#include <vector>

#include "core/log/Log.h"

namespace wh::test {

class RecordingLog : public SystemLog {
 public:
  void write(LogLevel, const std::string& message) override { lines.push_back(message); }
  std::vector<std::string> lines;
};

class CapturedLog {
 public:
  CapturedLog() { Log::install(log_, nullptr); }
  ~CapturedLog() { Log::install(nullptr, nullptr); }
  CapturedLog(const CapturedLog&) = delete;
  CapturedLog& operator=(const CapturedLog&) = delete;

  RecordingLog* operator->() const { return log_.get(); }

 private:
  std::shared_ptr<RecordingLog> log_ = std::make_shared<RecordingLog>();
};

}  // namespace wh::test
