#include "platform/linux/settings/JsonFileStore.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <functional>
#include <map>

#include <nlohmann/json.hpp>

#include "core/log/Log.h"

namespace wh::platform {

namespace {

using nlohmann::json;

constexpr char dataKey[] = "$data";

// An open file descriptor, closed when dropped.
class Descriptor {
 public:
  Descriptor() = default;
  explicit Descriptor(int fd) : fd_(fd) {}
  Descriptor(Descriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    if (this != &other) {
      reset();
      fd_ = std::exchange(other.fd_, -1);
    }
    return *this;
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor() { reset(); }

  int get() const { return fd_; }
  explicit operator bool() const { return fd_ >= 0; }

 private:
  void reset() {
    if (fd_ >= 0) ::close(fd_);
    fd_ = -1;
  }
  int fd_ = -1;
};

std::string errorText(int error) { return std::strerror(error); }

bool sameTime(const timespec& a, const timespec& b) { return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec; }

// Whether two stat results describe the same file with the same contents. Every write renames a
// new file into place, and the kept descriptor stops the old inode number from being reused, so
// a different inode means different contents; size and times catch edits made in place.
bool sameFile(const struct stat& a, const struct stat& b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino && a.st_size == b.st_size && sameTime(a.st_mtim, b.st_mtim) &&
         sameTime(a.st_ctim, b.st_ctim);
}

bool readAll(int fd, std::string& bytes) {
  char buffer[16384];
  for (;;) {
    const ssize_t count = ::read(fd, buffer, sizeof buffer);
    if (count > 0) {
      bytes.append(buffer, static_cast<std::size_t>(count));
    } else if (count == 0) {
      return true;
    } else if (errno != EINTR) {
      return false;
    }
  }
}

bool writeAll(int fd, const std::string& bytes) {
  std::size_t done = 0;
  while (done < bytes.size()) {
    const ssize_t count = ::write(fd, bytes.data() + done, bytes.size() - done);
    if (count > 0) {
      done += static_cast<std::size_t>(count);
    } else if (count < 0 && errno != EINTR) {
      return false;
    }
  }
  return true;
}

// A dictionary's own "$" keys carry one more "$" in the file, so that no dictionary looks like
// the data wrapper.
json escapeKeys(const json& dictionary) {
  json escaped = json::object();
  for (const auto& [key, value] : dictionary.items()) escaped[key.starts_with('$') ? "$" + key : key] = value;
  return escaped;
}

json unescapeKeys(const json& dictionary) {
  json plain = json::object();
  for (const auto& [key, value] : dictionary.items()) plain[key.starts_with("$$") ? key.substr(1) : key] = value;
  return plain;
}

json toFileValue(const StoreValue& value) {
  if (const std::string* bytes = value.asData()) return json{{dataKey, *bytes}};
  if (value.kind() == StoreValue::Kind::dictionary) return escapeKeys(value.json());
  return value.json();
}

std::optional<StoreValue> fromFileValue(const json& value) {
  if (value.is_null()) return std::nullopt;
  if (value.is_object()) {
    if (const auto bytes = value.find(dataKey); value.size() == 1 && bytes != value.end() && bytes->is_string()) {
      return StoreValue::data(bytes->get<std::string>());
    }
    return StoreValue::fromJson(unescapeKeys(value));
  }
  return StoreValue::fromJson(value);
}

// 20261115T201205Z
std::string utcStamp() {
  const std::time_t now = std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
  std::tm parts{};
  ::gmtime_r(&now, &parts);
  char text[32];
  std::strftime(text, sizeof text, "%Y%m%dT%H%M%SZ", &parts);
  return text;
}

void syncFolder(const std::filesystem::path& folder) {
  const Descriptor fd(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (fd) ::fsync(fd.get());  // the rename reaches the disk; a failure here loses nothing
}

}  // namespace

std::optional<SettingsValues> decodeSettingsFile(std::string_view bytes) {
  // Copying and writing a value follow its nesting level by level on the stack, so a file nested
  // deeper than any settings value reads as unreadable instead of ending the program.
  bool tooDeep = false;
  const auto depthLimit = [&tooDeep](int depth, json::parse_event_t, json&) {
    if (depth >= maxSettingsDepth) tooDeep = true;  // `depth`: the objects and arrays around it
    return !tooDeep;
  };
  // An empty file holds nothing worth keeping: it reads as an empty document.
  const json document = bytes.empty() ? json::object() : json::parse(bytes, depthLimit, false);
  if (tooDeep || !document.is_object()) return std::nullopt;  // a parse error reads as a discarded value
  SettingsValues values;
  for (const auto& [key, value] : document.items()) {
    if (auto converted = fromFileValue(value)) values.emplace(key, std::move(*converted));
  }
  return values;
}

std::optional<std::string> encodeSettingsFile(const SettingsValues& values) {
  json document = json::object();
  for (const auto& [key, value] : values) document[key] = toFileValue(value);
  try {
    return document.dump(2) + "\n";
  } catch (const json::exception&) {
    return std::nullopt;
  }
}

struct JsonFileStore::Snapshot {
  enum class State { missing, parsed, unreadable };
  State state = State::missing;
  Descriptor file;          // the file these values came from, held open while they are kept
  struct stat identity {};  // that file's stat when it was read
  SettingsValues values;

  static std::shared_ptr<const Snapshot> empty(State state) {
    auto snapshot = std::make_shared<Snapshot>();
    snapshot->state = state;
    return snapshot;
  }

  // After a failed open or stat: an absent file is missing, any other failure unreadable.
  static std::shared_ptr<const Snapshot> failed(int error) {
    return empty(error == ENOENT ? State::missing : State::unreadable);
  }

  static std::shared_ptr<const Snapshot> load(const std::filesystem::path& path) {
    auto snapshot = std::make_shared<Snapshot>();
    snapshot->file = Descriptor(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!snapshot->file) return failed(errno);
    snapshot->state = State::unreadable;
    std::string bytes;
    if (::fstat(snapshot->file.get(), &snapshot->identity) != 0 || !readAll(snapshot->file.get(), bytes)) {
      return snapshot;
    }
    auto values = decodeSettingsFile(bytes);
    if (!values) return snapshot;
    snapshot->values = std::move(*values);
    snapshot->state = State::parsed;
    return snapshot;
  }
};

JsonFileStore::JsonFileStore(std::filesystem::path file)
    : file_(std::move(file)), lockFile_(file_.string() + ".lock") {}

JsonFileStore::~JsonFileStore() = default;

std::shared_ptr<const JsonFileStore::Snapshot> JsonFileStore::current() const {
  std::lock_guard lock(mutex_);
  struct stat now {};
  if (::stat(file_.c_str(), &now) != 0) {
    const int error = errno;
    kept_.reset();
    return Snapshot::failed(error);
  }
  if (kept_ && sameFile(kept_->identity, now)) return kept_;
  auto loaded = Snapshot::load(file_);
  kept_ = loaded->file ? loaded : nullptr;
  return loaded;
}

std::optional<StoreValue> JsonFileStore::object(const std::string& key) const {
  const auto snapshot = current();
  const auto found = snapshot->values.find(key);
  if (found == snapshot->values.end()) return std::nullopt;
  return found->second;
}

void JsonFileStore::set(const std::string& key, std::optional<StoreValue> value) {
  Changes changes;
  changes.emplace_back(key, std::move(value));
  write(std::move(changes));
}

void JsonFileStore::setMany(Changes changes) { write(std::move(changes)); }

bool JsonFileStore::setAside(std::string& failure) const {
  const std::string stamp = utcStamp();
  for (int attempt = 1; attempt < 1000; ++attempt) {
    std::string aside = file_.string() + ".unreadable-" + stamp;
    if (attempt > 1) {
      aside += '-';
      aside += std::to_string(attempt);
    }
    // A second name keeps the bytes where they are; where the file system has no hard links,
    // a rename that refuses to replace does the same.
    int result = ::link(file_.c_str(), aside.c_str());
    if (result != 0 && errno != EEXIST) {
      result = ::renameat2(AT_FDCWD, file_.c_str(), AT_FDCWD, aside.c_str(), RENAME_NOREPLACE);
    }
    if (result == 0) {
      Log::info("kept the unreadable settings file as " + aside);
      return true;
    }
    if (errno != EEXIST) {
      failure = "could not keep the unreadable file: " + errorText(errno);
      return false;
    }
  }
  failure = "no free name to keep the unreadable file";
  return false;
}

bool JsonFileStore::write(Changes changes) {
  const auto failed = [this](const std::string& reason) {
    Log::error("settings write failed for " + file_.string() + ": " + reason);
    return false;
  };
  std::lock_guard serial(writeMutex_);
  const std::filesystem::path folder = file_.parent_path();
  std::error_code folderError;
  std::filesystem::create_directories(folder, folderError);
  if (folderError) return failed(folderError.message());

  const Descriptor lock(::open(lockFile_.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
  if (!lock) return failed(errorText(errno));
  while (::flock(lock.get(), LOCK_EX) != 0) {
    if (errno != EINTR) return failed(errorText(errno));
  }

  // Under the lock no other writer can replace the file until this write is done.
  const auto before = current();
  auto values = before->values;
  for (auto& [key, value] : changes) {
    if (value) {
      values.insert_or_assign(key, std::move(*value));
    } else if (const auto found = values.find(key); found != values.end()) {
      values.erase(found);
    }
  }
  const auto text = encodeSettingsFile(values);
  if (!text) return failed("a value is not valid utf-8 text");

  std::string temporaryPath = file_.string() + ".tmp-XXXXXX";
  Descriptor temporary(::mkostemp(temporaryPath.data(), O_CLOEXEC));
  if (!temporary) return failed(errorText(errno));
  const auto discard = [&](const std::string& reason) {
    ::unlink(temporaryPath.c_str());
    return failed(reason);
  };
  if (!writeAll(temporary.get(), *text) || ::fsync(temporary.get()) != 0) return discard(errorText(errno));
  std::string setAsideFailure;
  if (before->state == Snapshot::State::unreadable && !setAside(setAsideFailure)) return discard(setAsideFailure);
  if (::rename(temporaryPath.c_str(), file_.c_str()) != 0) return discard(errorText(errno));
  syncFolder(folder);

  // The file just written is what the next read would load: keep it.
  auto written = std::make_shared<Snapshot>();
  written->state = Snapshot::State::parsed;
  written->values = std::move(values);
  if (::fstat(temporary.get(), &written->identity) == 0) {
    written->file = std::move(temporary);
    std::lock_guard keep(mutex_);
    kept_ = std::move(written);
  }
  return true;
}

}  // namespace wh::platform
