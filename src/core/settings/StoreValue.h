#pragma once
// A value in the shared settings store. The store keeps the value types apart: booleans,
// numbers, strings, string arrays, other arrays, dictionaries, and data (bytes, which by
// convention hold JSON text). A data value and a string with the same text are different values.

#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace wh {

class StoreValue {
 public:
  enum class Kind { boolean, number, string, stringArray, array, dictionary, data };

  static StoreValue boolean(bool value) { return StoreValue(nlohmann::json(value), false); }
  static StoreValue number(double value) { return StoreValue(nlohmann::json(value), false); }
  static StoreValue string(std::string value) { return StoreValue(nlohmann::json(std::move(value)), false); }
  static StoreValue stringArray(const std::vector<std::string>& value) {
    return StoreValue(nlohmann::json(value), false);
  }
  // A dictionary or array built from JSON. Only objects and arrays are accepted here; any other
  // JSON value becomes the matching plain value.
  static StoreValue fromJson(nlohmann::json value) { return StoreValue(std::move(value), false); }
  static StoreValue data(std::string bytes) { return StoreValue(nlohmann::json(std::move(bytes)), true); }

  Kind kind() const {
    if (isData_) return Kind::data;
    switch (json_.type()) {
      case nlohmann::json::value_t::boolean:
        return Kind::boolean;
      case nlohmann::json::value_t::string:
        return Kind::string;
      case nlohmann::json::value_t::array:
        for (const auto& element : json_) {
          if (!element.is_string()) return Kind::array;
        }
        return Kind::stringArray;
      case nlohmann::json::value_t::object:
        return Kind::dictionary;
      default:
        return Kind::number;
    }
  }

  std::optional<bool> asBool() const {
    if (kind() == Kind::boolean) return json_.get<bool>();
    return std::nullopt;
  }
  std::optional<std::string> asString() const {
    if (kind() == Kind::string) return json_.get<std::string>();
    return std::nullopt;
  }
  std::optional<std::vector<std::string>> asStringArray() const {
    if (kind() == Kind::stringArray) return json_.get<std::vector<std::string>>();
    return std::nullopt;
  }
  // The bytes of a data value.
  const std::string* asData() const { return isData_ ? json_.get_ptr<const std::string*>() : nullptr; }
  // The value as JSON (for a data value: its bytes as a JSON string).
  const nlohmann::json& json() const { return json_; }

  friend bool operator==(const StoreValue& a, const StoreValue& b) {
    return a.isData_ == b.isData_ && a.json_ == b.json_;
  }

 private:
  StoreValue(nlohmann::json json, bool isData) : json_(std::move(json)), isData_(isData) {
    if (json_.is_null()) json_ = false;
  }
  nlohmann::json json_;
  bool isData_;
};

// The store port: a per-user key-value store shared by the agent and the settings program.
// Safe to use from any thread. Reads see what another process wrote as soon as it is written.
class SettingsStore {
 public:
  virtual ~SettingsStore() = default;
  virtual std::optional<StoreValue> object(const std::string& key) const = 0;
  // Stores the value, or removes the key when the value is empty.
  virtual void set(const std::string& key, std::optional<StoreValue> value) = 0;
  // Several keys in one write; a store that can, applies them at once.
  virtual void setMany(std::vector<std::pair<std::string, std::optional<StoreValue>>> changes) {
    for (auto& [key, value] : changes) set(key, std::move(value));
  }
};

}  // namespace wh
