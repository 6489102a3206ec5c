#pragma once
// The shared settings store on Linux: one JSON file per user, read and written by both the agent
// and the settings program.
//
// The file holds one JSON object keyed by store keys. Booleans, numbers, strings, string arrays,
// other arrays and dictionaries are plain JSON values. A data value is written as a one-key
// object {"$data": "<its bytes as a JSON string>"}, and such an object (the single key "$data"
// with a string value) always reads back as data. So that a dictionary can never pass for data,
// a dictionary's own keys that begin with "$" are written with one more "$" in front ("$data"
// becomes "$$data") and lose it again when read.
//
// Reads see every write of any process on the next call, yet cost one stat() while the file is
// unchanged: the parsed file is kept together with an open descriptor of it (so its inode number
// cannot be handed to a new file while it is kept) and its inode, size, modification and change
// times, which are compared with the file's current ones.
//
// A write takes an exclusive lock on the sibling file "settings.json.lock", reads the current
// file, applies the changes, writes a temporary file in the same folder, forces it to disk and
// renames it over the file, so every reader sees the old or the new file and two processes that
// write different keys at the same moment both keep their changes.
//
// A file that is not a JSON object (not JSON, cut short, another type, nested deeper than
// maxSettingsDepth) or that cannot be read reads as empty. It is never thrown away: the write that replaces it first keeps it beside it
// as "settings.json.unreadable-<UTC time>". A write that fails leaves the file as it was and is
// logged; nothing is thrown.

#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "core/settings/StoreValue.h"

namespace wh::platform {

// A settings file's values by store key.
using SettingsValues = std::map<std::string, StoreValue, std::less<>>;
// How many levels of objects and arrays a settings file may have (the document itself is one).
inline constexpr int maxSettingsDepth = 512;
// The values in a settings file's bytes (an empty file holds none); nothing when the bytes are not
// a JSON object, or nest deeper than maxSettingsDepth.
std::optional<SettingsValues> decodeSettingsFile(std::string_view bytes);
// The bytes of a settings file that holds these values; nothing when a text is not valid UTF-8.
std::optional<std::string> encodeSettingsFile(const SettingsValues& values);

class JsonFileStore final : public SettingsStore {
 public:
  using Changes = std::vector<std::pair<std::string, std::optional<StoreValue>>>;

  explicit JsonFileStore(std::filesystem::path file);
  ~JsonFileStore() override;
  JsonFileStore(const JsonFileStore&) = delete;
  JsonFileStore& operator=(const JsonFileStore&) = delete;

  std::optional<StoreValue> object(const std::string& key) const override;
  void set(const std::string& key, std::optional<StoreValue> value) override;
  void setMany(Changes changes) override;

  // Applies the changes in one replacement of the file (creating its folder when missing).
  // False when the file could not be written; it is then unchanged and the reason is logged.
  bool write(Changes changes);

  const std::filesystem::path& file() const { return file_; }

 private:
  struct Snapshot;
  // The file's contents as they are now: the kept snapshot while the file is unchanged.
  std::shared_ptr<const Snapshot> current() const;
  // Keeps an unreadable file beside it under a name that no earlier one has; false, with the
  // reason in `failure`, when it cannot.
  bool setAside(std::string& failure) const;

  std::filesystem::path file_;
  std::filesystem::path lockFile_;
  mutable std::mutex mutex_;  // guards kept_
  mutable std::shared_ptr<const Snapshot> kept_;
  std::mutex writeMutex_;  // one write at a time in this process
};

}  // namespace wh::platform
