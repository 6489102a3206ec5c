#pragma once
// The log as a test sees it: while a CapturedLog exists, every Log::info and Log::error line is
// kept in `lines` (messages only), and nothing goes to a file.

#include <algorithm>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "core/log/Log.h"

namespace wh::test {

class RecordingLog : public SystemLog {
 public:
  void write(LogLevel, const std::string& message) override {
    std::lock_guard lock(mutex_);
    lines.push_back(message);
  }
  // For lines that may come from another thread while the test reads.
  bool has(const std::string& line) {
    std::lock_guard lock(mutex_);
    return std::find(lines.begin(), lines.end(), line) != lines.end();
  }
  std::vector<std::string> lines;

 private:
  std::mutex mutex_;
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
