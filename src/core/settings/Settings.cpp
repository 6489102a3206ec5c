#include "core/settings/Settings.h"

#include <algorithm>
#include <mutex>

#include "core/settings/Address.h"

namespace wh {

bool Shared::isAgent(std::optional<std::string_view> bundleIdentifier) {
  return bundleIdentifier.has_value() && *bundleIdentifier == domain;
}

namespace {

// The data bytes under `key`, if the key holds data.
std::optional<std::string> dataValue(const SettingsStore& store, const char* key) {
  const auto value = store.object(key);
  if (!value) return std::nullopt;
  if (const std::string* bytes = value->asData()) return *bytes;
  return std::nullopt;
}

// Menus read the device list many times between changes, and decoding it costs far more than
// reading the store. Decoding is a pure function of the stored bytes, so the last result is kept
// with the exact bytes it came from and reused only for the same bytes.
std::vector<DeviceSetting> decodeDevicesRemembered(const std::string& bytes) {
  static std::mutex mutex;
  static std::string lastBytes;
  static std::vector<DeviceSetting> lastDevices;
  std::lock_guard lock(mutex);
  if (bytes != lastBytes) {
    lastDevices = decodeDevices(bytes).value_or(std::vector<DeviceSetting>{});
    lastBytes = bytes;
  }
  return lastDevices;
}

std::optional<StoreValue> asData(std::optional<std::string> bytes) {
  if (!bytes) return std::nullopt;
  return StoreValue::data(std::move(*bytes));
}

}  // namespace

Settings::Settings(SettingsStore& store, NotificationCenter& notifications, bool isAgent, CommandSender* commands)
    : store_(store), notifications_(notifications), isAgent_(isAgent), commands_(commands) {}

bool Settings::boolValue(const std::string& key, bool defaultValue) const {
  const auto value = store_.object(key);
  return value ? value->asBool().value_or(defaultValue) : defaultValue;
}

std::optional<std::string> Settings::stringValue(const char* key) const {
  const auto value = store_.object(key);
  return value ? value->asString() : std::nullopt;
}

std::vector<DeviceSetting> Settings::devices() const {
  const auto bytes = dataValue(store_, Keys::devices);
  if (!bytes) return {};
  return decodeDevicesRemembered(*bytes);
}

void Settings::setDevices(const std::vector<DeviceSetting>& devices) {
  store_.set(Keys::devices, asData(encodeDevices(devices)));
  changed("");
}

AppVolumes Settings::appVolumes() const {
  const auto bytes = dataValue(store_, Keys::appVolumes);
  if (!bytes) return {};
  return decodeAppVolumes(*bytes).value_or(AppVolumes{});
}

void Settings::setAppVolumes(const AppVolumes& volumes) {
  AppVolumes kept;
  for (const auto& [app, volume] : volumes) {
    // An untouched app is not stored; a muted one always is, whatever its gain.
    if (volume.muted || !(volume.gain >= 0.999F)) kept.emplace(app, volume);
  }
  store_.set(Keys::appVolumes, asData(encodeAppVolumes(kept)));
  changed(Keys::appVolumes);
}

CallModeOption Settings::callMode() const {
  const auto text = stringValue(Keys::callMode);
  return text ? callModeOption(*text).value_or(CallModeOption::automatic) : CallModeOption::automatic;
}

void Settings::setCallMode(CallModeOption option) {
  store_.set(Keys::callMode, StoreValue::string(std::string(rawValue(option))));
  changed("");
}

IdlePlayAction Settings::idlePlay() const {
  const auto text = stringValue(Keys::mediaKeysIdlePlay);
  return text ? idlePlayAction(*text).value_or(IdlePlayAction::ask) : IdlePlayAction::ask;
}

void Settings::setIdlePlay(IdlePlayAction action) {
  store_.set(Keys::mediaKeysIdlePlay, StoreValue::string(std::string(rawValue(action))));
  changed("");
}

void Settings::addDevice(std::string_view address, const std::string& name) {
  const std::string normal = normalizeAddress(address);
  auto list = devices();
  const bool known = std::any_of(list.begin(), list.end(), [&](const DeviceSetting& device) {
    return normalizeAddress(device.address) == normal;
  });
  if (known) return;
  DeviceSetting added;
  added.address = normal;
  added.name = name;
  added.icon = std::string(rawValue(guessDeviceIcon(name)));
  list.push_back(std::move(added));
  setDevices(list);
}

void Settings::removeDevice(std::string_view address) {
  const std::string normal = normalizeAddress(address);
  auto list = devices();
  std::erase_if(list, [&](const DeviceSetting& device) { return normalizeAddress(device.address) == normal; });
  setDevices(list);
}

void Settings::changed(const std::string& key) {
  notifications_.post(changedName, key);
  if (isAgent_) return;
  if (commands_ != nullptr) commands_->send("reload", nlohmann::json::object());
}

}  // namespace wh
