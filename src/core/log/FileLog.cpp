#include "core/log/FileLog.h"

#include <cstdlib>
#include <ctime>
#include <mutex>
#include <system_error>

namespace wh {

FileLog::FileLog(std::filesystem::path directory, const std::string& name, std::shared_ptr<SerialQueue> queue,
                 WallClock wallClock, SyncToDisk syncToDisk)
    : directory_(std::move(directory)),
      url_(directory_ / (name + ".log")),
      previous_(directory_ / (name + ".1.log")),
      queue_(std::move(queue)),
      wallClock_(std::move(wallClock)),
      syncToDisk_(std::move(syncToDisk)) {}

FileLog::~FileLog() {
  queue_->sync([this] {
    if (handle_ != nullptr) std::fclose(handle_);
    handle_ = nullptr;
  });
}

std::string FileLog::sharedName() {
  return std::getenv("XCTestConfigurationFilePath") != nullptr ? "Wrenhaven Tests" : "Wrenhaven";
}

std::string FileLog::stamp(std::chrono::system_clock::time_point time) {
  using namespace std::chrono;
  const auto millis = time_point_cast<milliseconds>(time);
  const auto day = floor<days>(millis);
  const year_month_day date{day};
  const hh_mm_ss clock{millis - day};
  char text[32];
  std::snprintf(text, sizeof text, "%04d-%02u-%02uT%02d:%02d:%02d.%03dZ", static_cast<int>(date.year()),
                static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                static_cast<int>(clock.hours().count()), static_cast<int>(clock.minutes().count()),
                static_cast<int>(clock.seconds().count()), static_cast<int>(clock.subseconds().count()));
  return text;
}

void FileLog::write(LogLevel level, const std::string& message) {
  std::string line = stamp(wallClock_());
  line += level == LogLevel::error ? " ERROR " : " INFO ";
  line += message;
  line += '\n';
  queue_->async([this, line = std::move(line)] { append(line); });
}

void FileLog::flush() {
  queue_->sync([this] {
    if (handle_ == nullptr) return;
    std::fflush(handle_);
    if (syncToDisk_) syncToDisk_(handle_);
  });
}

std::vector<std::filesystem::path> FileLog::files() const {
  std::vector<std::filesystem::path> found;
  std::error_code error;
  for (const auto& path : {previous_, url_}) {
    if (std::filesystem::exists(path, error)) found.push_back(path);
  }
  return found;
}

bool FileLog::open() {
  std::error_code ignored;
  std::filesystem::create_directories(directory_, ignored);
  // Append mode creates a missing file empty and never truncates an existing one.
  handle_ = std::fopen(url_.c_str(), "ab");
  return handle_ != nullptr;
}

void FileLog::drop() {
  if (handle_ != nullptr) std::fclose(handle_);
  handle_ = nullptr;
}

void FileLog::append(const std::string& line) {
  if (handle_ == nullptr && !open()) return;  // the line is lost
  bool ok = std::fseek(handle_, 0, SEEK_END) == 0;
  ok = ok && std::fwrite(line.data(), 1, line.size(), handle_) == line.size();
  ok = ok && std::fflush(handle_) == 0;
  const long offset = ok ? std::ftell(handle_) : -1;
  // A file deleted or moved away while open still takes writes, which nobody will ever read:
  // count that as a failed write too, so the next line starts a new file where it belongs.
  std::error_code error;
  if (offset < 0 || !std::filesystem::exists(url_, error)) {
    drop();
    return;
  }
  if (static_cast<std::uintmax_t>(offset) > maxBytes) rotate();
}

void FileLog::rotate() {
  drop();
  std::error_code ignored;
  std::filesystem::remove(previous_, ignored);
  std::filesystem::rename(url_, previous_, ignored);
}

namespace {

struct Sinks {
  std::mutex mutex;
  std::shared_ptr<SystemLog> system;
  std::shared_ptr<FileLog> file;
};

Sinks& sinks() {
  static Sinks instance;
  return instance;
}

void emit(LogLevel level, const std::string& message) {
  std::shared_ptr<SystemLog> system;
  std::shared_ptr<FileLog> file;
  {
    auto& all = sinks();
    std::lock_guard lock(all.mutex);
    system = all.system;
    file = all.file;
  }
  if (system) system->write(level, message);
  if (file) file->write(level, message);
}

}  // namespace

void Log::info(const std::string& message) { emit(LogLevel::info, message); }
void Log::error(const std::string& message) { emit(LogLevel::error, message); }

void Log::install(std::shared_ptr<SystemLog> system, std::shared_ptr<FileLog> file) {
  auto& all = sinks();
  std::lock_guard lock(all.mutex);
  all.system = std::move(system);
  all.file = std::move(file);
}

std::shared_ptr<FileLog> Log::file() {
  auto& all = sinks();
  std::lock_guard lock(all.mutex);
  return all.file;
}

}  // namespace wh
