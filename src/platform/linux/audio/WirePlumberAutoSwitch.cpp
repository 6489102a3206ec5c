#include "platform/linux/audio/WirePlumberAutoSwitch.h"

#include <memory>
#include <string_view>
#include <variant>

#include "platform/linux/pipewire/PipeWireCalls.h"
#include "platform/linux/pipewire/PipeWireConnection.h"

namespace wh::platform {
namespace {

constexpr const char* kJsonType = "Spa:String:JSON";

// WirePlumber's settings metadata, bound for one call: the key's value as the daemon last told it.
class SettingsMetadata {
 public:
  // Nothing when the daemon cannot be reached or has no such metadata (`why` says which).
  static std::unique_ptr<SettingsMetadata> open(const std::string& remote, double timeout, std::string& why) {
    auto opened =
        PipeWireConnection::open({.remote = remote, .threadName = "wrenhaven.autoswitch", .timeout = timeout});
    if (auto* failure = std::get_if<PipeWireConnection::Failure>(&opened)) {
      why = failure->text();
      return nullptr;
    }
    std::unique_ptr<SettingsMetadata> metadata(
        new SettingsMetadata(std::move(std::get<std::unique_ptr<PipeWireConnection>>(opened))));
    if (!metadata->bind(why)) return nullptr;
    return metadata;
  }

  ~SettingsMetadata() {
    connection_->locked([&] {
      if (metadata_ != nullptr) {
        spa_hook_remove(&listener_);
        pw_proxy_destroy(reinterpret_cast<pw_proxy*>(metadata_));
      }
      if (registry_ != nullptr) pw_proxy_destroy(reinterpret_cast<pw_proxy*>(registry_));
    });
  }

  std::optional<std::string> value() {
    return connection_->locked([&] { return value_; });
  }

  // Sets (or removes) the value and waits until the metadata tells it back; answers what ended
  // the wait, if anything did.
  std::optional<std::string> set(const std::optional<std::string>& value) {
    // The store is WirePlumber's, in its own process: the change goes there through the daemon and
    // comes back to every listener, this one too, when WirePlumber has taken it.
    auto failure = connection_->locked([&] {
      pw::setProperty(metadata_, 0, WirePlumberAutoSwitch::key, value ? kJsonType : nullptr,
                      value ? value->c_str() : nullptr);
      return connection_->waitLocked([&] { return value_ == value; });
    });
    if (failure) return failure->text() + " (" + WirePlumberAutoSwitch::key + " did not change)";
    return std::nullopt;
  }

 private:
  explicit SettingsMetadata(std::unique_ptr<PipeWireConnection> connection) : connection_(std::move(connection)) {}

  bool bind(std::string& why) {
    std::optional<std::uint32_t> id;
    for (const auto& global : connection_->globals(PW_TYPE_INTERFACE_Metadata)) {
      const std::string* name = global.property(PW_KEY_METADATA_NAME);
      if (name != nullptr && *name == WirePlumberAutoSwitch::metadataName) id = global.id;
    }
    if (!id) {
      why = std::string("no \"") + WirePlumberAutoSwitch::metadataName + "\" metadata (WirePlumber before 0.5)";
      return false;
    }
    static const pw_metadata_events events = [] {
      pw_metadata_events e{};
      e.version = PW_VERSION_METADATA_EVENTS;
      e.property = &SettingsMetadata::onProperty;
      return e;
    }();
    connection_->locked([&] {
      registry_ = pw::registry(connection_->core());
      metadata_ = pw::bindMetadata(registry_, *id);
      pw::addListener(metadata_, &listener_, &events, this);
    });
    // The metadata lists what it holds to a new listener before the sync's answer.
    if (auto failure = connection_->roundtrip()) {
      why = failure->text();
      return false;
    }
    return true;
  }

  // On the loop's thread, with the lock held.
  static int onProperty(void* data, std::uint32_t subject, const char* key, const char*, const char* value) {
    auto* self = static_cast<SettingsMetadata*>(data);
    if (subject != 0) return 0;
    // No key: everything was removed.
    if (key == nullptr || std::string_view(key) == WirePlumberAutoSwitch::key) {
      self->value_ = key != nullptr && value != nullptr ? std::optional<std::string>(value) : std::nullopt;
      self->connection_->signal();
    }
    return 0;
  }

  std::unique_ptr<PipeWireConnection> connection_;
  pw_registry* registry_ = nullptr;
  pw_metadata* metadata_ = nullptr;
  spa_hook listener_{};
  std::optional<std::string> value_;  // with the lock held
};

// A JSON boolean as WirePlumber reads it; no value is its default, on.
bool switchesOn(const std::optional<std::string>& value) {
  return !value || !(*value == "false" || *value == "\"false\"");
}

}  // namespace

std::optional<AutoSwitchReading> WirePlumberAutoSwitch::read() {
  std::string why;
  auto metadata = SettingsMetadata::open(remote_, timeout_, why);
  if (!metadata) return std::nullopt;
  const auto value = metadata->value();
  return AutoSwitchReading{owner, switchesOn(value), settingMark + value.value_or("")};
}

WriteAnswer WirePlumberAutoSwitch::turnOff() { return write("false"); }

WriteAnswer WirePlumberAutoSwitch::putBack(const std::string& setting) {
  if (!setting.starts_with(settingMark)) return WriteAnswer::refuse("not a WirePlumber setting: " + setting);
  const std::string value = setting.substr(std::string_view(settingMark).size());
  return write(value.empty() ? std::nullopt : std::optional(value));
}

WriteAnswer WirePlumberAutoSwitch::write(const std::optional<std::string>& value) {
  std::string why;
  auto metadata = SettingsMetadata::open(remote_, timeout_, why);
  if (!metadata) return WriteAnswer::refuse(why);
  if (auto failure = metadata->set(value)) return WriteAnswer::refuse(*failure);
  return WriteAnswer::accept();
}

std::optional<AutoSwitchReading> EitherAutoSwitch::read() {
  for (HeadsetAutoSwitch* each :
       {static_cast<HeadsetAutoSwitch*>(&wirePlumber_), static_cast<HeadsetAutoSwitch*>(&pulse_)}) {
    if (auto reading = each->read()) {
      lastRead_ = each;
      return reading;
    }
  }
  lastRead_ = nullptr;
  return std::nullopt;
}

WriteAnswer EitherAutoSwitch::turnOff() {
  if (lastRead_ == nullptr) return WriteAnswer::refuse("the server has no automatic headset switch");
  return lastRead_->turnOff();
}

WriteAnswer EitherAutoSwitch::putBack(const std::string& setting) {
  if (setting.starts_with(WirePlumberAutoSwitch::settingMark)) return wirePlumber_.putBack(setting);
  return pulse_.putBack(setting);
}

}  // namespace wh::platform
