#pragma once
// The agent's own log file: one line per event, written on a private serial queue, rotated when
// it grows past a million bytes so that at most two files exist.

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "core/runtime/Runtime.h"

namespace wh {

enum class LogLevel { info, error };

class FileLog {
 public:
  using WallClock = std::function<std::chrono::system_clock::time_point()>;
  using SyncToDisk = std::function<void(std::FILE*)>;

  static constexpr std::uintmax_t maxBytes = 1'000'000;
  static constexpr const char* queueLabel = "com.quintelbarrows.filelog";

  // `directory` is the log folder; the files are <name>.log and <name>.1.log inside it.
  // `syncToDisk` forces a stream's contents to the disk on flush (the platform provides it).
  FileLog(std::filesystem::path directory, const std::string& name, std::shared_ptr<SerialQueue> queue,
          WallClock wallClock = std::chrono::system_clock::now, SyncToDisk syncToDisk = {});
  ~FileLog();
  FileLog(const FileLog&) = delete;
  FileLog& operator=(const FileLog&) = delete;

  // The log's name: "Wrenhaven", or "Wrenhaven Tests" when a test runner hosts the process.
  static std::string sharedName();
  // 2026-11-15T20:12:05.123Z
  static std::string stamp(std::chrono::system_clock::time_point time);

  // Takes the time now and queues the line; returns at once.
  void write(LogLevel level, const std::string& message);
  // Waits for every queued line and forces the open file's contents to disk.
  void flush();
  // The log files that exist now: the previous one first, then the current one.
  std::vector<std::filesystem::path> files() const;

  const std::filesystem::path& directory() const { return directory_; }
  const std::filesystem::path& url() const { return url_; }
  const std::filesystem::path& previous() const { return previous_; }

 private:
  void append(const std::string& line);  // on the queue
  bool open();                            // on the queue
  void drop();                            // on the queue
  void rotate();                          // on the queue

  std::filesystem::path directory_;
  std::filesystem::path url_;
  std::filesystem::path previous_;
  std::shared_ptr<SerialQueue> queue_;
  WallClock wallClock_;
  SyncToDisk syncToDisk_;
  std::FILE* handle_ = nullptr;  // touched only on the queue
};

// Where the agent reports to the operating system's log.
class SystemLog {
 public:
  virtual ~SystemLog() = default;
  virtual void write(LogLevel level, const std::string& message) = 0;
};

// The only logging calls: each message goes to the system log, then to the file log.
class Log {
 public:
  Log() = delete;
  static void info(const std::string& message);
  static void error(const std::string& message);

  // Sets where lines go; either may be empty. Lines logged before this go nowhere.
  static void install(std::shared_ptr<SystemLog> system, std::shared_ptr<FileLog> file);
  static std::shared_ptr<FileLog> file();
};

}  // namespace wh
