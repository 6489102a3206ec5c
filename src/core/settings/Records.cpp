#include "core/settings/Records.h"

#include <cmath>
#include <cstddef>
#include <limits>

#include <nlohmann/json.hpp>

namespace wh {

namespace {

using nlohmann::json;

// Raw values in case order: a case's raw value sits at the index of its enumerator.
constexpr std::array<std::string_view, 3> iconTexts{"earbuds", "headphones", "speaker"};
constexpr std::array<std::string_view, 3> callModeTexts{"auto", "alwaysHeadphoneMic", "alwaysPinned"};
constexpr std::array<std::string_view, 4> idlePlayTexts{"ask", "spotify", "music", "nothing"};

template <class Enum, std::size_t count>
std::optional<Enum> caseForText(const std::array<std::string_view, count>& texts, std::string_view text) {
  for (std::size_t index = 0; index < count; ++index) {
    if (texts[index] == text) return static_cast<Enum>(index);
  }
  return std::nullopt;
}

std::string lowercased(std::string_view text) {
  std::string lower(text);
  for (char& c : lower) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return lower;
}

bool containsAny(const std::string& text, std::initializer_list<std::string_view> words) {
  for (std::string_view word : words) {
    if (text.find(word) != std::string::npos) return true;
  }
  return false;
}

// Field readers for decoding. Each returns false when the value under the key has the wrong type;
// an optional field that is missing or null keeps the value already in `out`.

bool readValue(const json& value, std::string& out) {
  if (!value.is_string()) return false;
  out = value.get<std::string>();
  return true;
}

bool readValue(const json& value, bool& out) {
  if (!value.is_boolean()) return false;
  out = value.get<bool>();
  return true;
}

bool readValue(const json& value, std::uint32_t& out) {
  if (value.is_number_unsigned()) {
    const auto number = value.get<std::uint64_t>();
    if (number > std::numeric_limits<std::uint32_t>::max()) return false;
    out = static_cast<std::uint32_t>(number);
    return true;
  }
  if (value.is_number_float()) {
    // 42.0 is still a whole key code; 42.5, -1.0 and 1e10 are not.
    const double number = value.get<double>();
    if (number < 0 || number > std::numeric_limits<std::uint32_t>::max() || std::trunc(number) != number) {
      return false;
    }
    out = static_cast<std::uint32_t>(number);
    return true;
  }
  return false;
}

bool readValue(const json& value, float& out) {
  if (!value.is_number()) return false;
  const double number = value.get<double>();
  if (!std::isfinite(number) || std::fabs(number) > std::numeric_limits<float>::max()) return false;
  out = static_cast<float>(number);
  return true;
}

template <class T>
bool readRequired(const json& object, const char* key, T& out) {
  const auto found = object.find(key);
  return found != object.end() && readValue(*found, out);
}

template <class T>
bool readOptional(const json& object, const char* key, T& out) {
  const auto found = object.find(key);
  if (found == object.end() || found->is_null()) return true;
  return readValue(*found, out);
}

bool readValue(const json& value, HotkeyCombo& out) {
  return value.is_object() && readRequired(value, "keyCode", out.keyCode) &&
         readRequired(value, "modifiers", out.modifiers);
}

bool readValue(const json& value, AppVolumeSetting& out) {
  return value.is_object() && readRequired(value, "gain", out.gain) && readRequired(value, "muted", out.muted);
}

bool readValue(const json& value, DeviceSetting& out) {
  if (!value.is_object()) return false;
  std::string storedIcon;
  HotkeyCombo hotkey;
  const auto hotkeyValue = value.find("hotkey");
  const bool hasHotkey = hotkeyValue != value.end() && !hotkeyValue->is_null();
  const bool valid = readRequired(value, "address", out.address) && readRequired(value, "name", out.name) &&
                     readOptional(value, "icon", storedIcon) &&
                     readOptional(value, "showInMenuBar", out.showInMenuBar) &&
                     readOptional(value, "pinInput", out.pinInput) &&
                     readOptional(value, "connectOnWake", out.connectOnWake) &&
                     readOptional(value, "disconnectOnSleep", out.disconnectOnSleep) &&
                     readOptional(value, "connectOnly", out.connectOnly) &&
                     (!hasHotkey || readValue(*hotkeyValue, hotkey));
  if (!valid) return false;
  out.icon = std::string(rawValue(savedDeviceIcon(storedIcon)));
  if (hasHotkey) out.hotkey = hotkey;
  return true;
}

json parse(std::string_view text) { return json::parse(text.begin(), text.end(), nullptr, false); }

std::string dump(const nlohmann::ordered_json& body) {
  return body.dump(-1, ' ', false, json::error_handler_t::replace);
}

}  // namespace

std::string_view rawValue(DeviceIcon icon) { return iconTexts.at(static_cast<std::size_t>(icon)); }
std::string_view rawValue(CallModeOption option) { return callModeTexts.at(static_cast<std::size_t>(option)); }
std::string_view rawValue(IdlePlayAction action) { return idlePlayTexts.at(static_cast<std::size_t>(action)); }

std::optional<CallModeOption> callModeOption(std::string_view text) {
  return caseForText<CallModeOption>(callModeTexts, text);
}

std::optional<IdlePlayAction> idlePlayAction(std::string_view text) {
  return caseForText<IdlePlayAction>(idlePlayTexts, text);
}

DeviceIcon savedDeviceIcon(std::string_view text) {
  if (text == "airpods" || text == "airpodsPro") return DeviceIcon::earbuds;
  if (text == "airpodsMax") return DeviceIcon::headphones;
  return caseForText<DeviceIcon>(iconTexts, text).value_or(DeviceIcon::headphones);
}

DeviceIcon guessDeviceIcon(std::string_view name) {
  const std::string lower = lowercased(name);
  if (containsAny(lower, {"speaker", "hifi", "hi-fi", "soundbar"})) return DeviceIcon::speaker;
  if (containsAny(lower, {"max"})) return DeviceIcon::headphones;
  if (containsAny(lower, {"buds", "pods", "earbud"})) return DeviceIcon::earbuds;
  if (containsAny(lower, {"in-ear"})) return DeviceIcon::earbuds;
  return DeviceIcon::headphones;
}

std::optional<std::vector<DeviceSetting>> decodeDevices(std::string_view text) {
  const json body = parse(text);
  if (!body.is_array()) return std::nullopt;
  std::vector<DeviceSetting> devices(body.size());
  for (std::size_t index = 0; index < devices.size(); ++index) {
    if (!readValue(body[index], devices[index])) return std::nullopt;
  }
  return devices;
}

std::optional<AppVolumes> decodeAppVolumes(std::string_view text) {
  const json body = parse(text);
  if (!body.is_object()) return std::nullopt;
  AppVolumes volumes;
  for (const auto& [app, value] : body.items()) {
    // One unreadable app costs only its own record.
    if (AppVolumeSetting volume; readValue(value, volume)) volumes.emplace(app, volume);
  }
  return volumes;
}

std::optional<std::string> encodeDevices(const std::vector<DeviceSetting>& devices) {
  auto body = nlohmann::ordered_json::array();
  for (const DeviceSetting& device : devices) {
    nlohmann::ordered_json hotkey = nullptr;
    if (device.hotkey) hotkey = {{"keyCode", device.hotkey->keyCode}, {"modifiers", device.hotkey->modifiers}};
    body.push_back({{"address", device.address},
                    {"name", device.name},
                    {"icon", device.icon},
                    {"showInMenuBar", device.showInMenuBar},
                    {"pinInput", device.pinInput},
                    {"connectOnWake", device.connectOnWake},
                    {"disconnectOnSleep", device.disconnectOnSleep},
                    {"connectOnly", device.connectOnly},
                    {"hotkey", std::move(hotkey)}});
  }
  return dump(body);
}

std::optional<std::string> encodeAppVolumes(const AppVolumes& volumes) {
  auto body = nlohmann::ordered_json::object();
  for (const auto& [app, volume] : volumes) {
    // JSON has no infinities or NaN; writing null would make the whole map unreadable.
    if (!std::isfinite(volume.gain)) return std::nullopt;
    body[app] = {{"gain", volume.gain}, {"muted", volume.muted}};
  }
  return dump(body);
}

}  // namespace wh
