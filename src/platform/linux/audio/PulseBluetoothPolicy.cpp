#include "platform/linux/audio/PulseBluetoothPolicy.h"

#include <sstream>
#include <vector>

#include "platform/linux/volume/PulseSession.h"

namespace wh::platform {

namespace {

constexpr char moduleName[] = "module-bluetooth-policy";
constexpr char key[] = "auto_switch=";

struct Module {
  std::uint32_t index = PA_INVALID_INDEX;
  std::string argument;
};

// A private connection for one reading or writing: the module list, unloading, loading.
class Session {
 public:
  Session(const std::string& server, double timeout)
      : session_(server, "Wrenhaven", "wrenhaven.policy", timeout), error_(session_.connect()) {}

  bool ready() const { return error_ == 0; }
  std::string error() const { return pa_strerror(error_ != 0 ? error_ : session_.error()); }

  std::optional<std::vector<Module>> modules() {
    Answer<std::vector<Module>> answer{&session_, {}};
    PulseSession::Lock lock(session_);
    const bool done = session_.await(pa_context_get_module_info_list(
        session_.context(),
        [](pa_context*, const pa_module_info* info, int eol, void* userdata) {
          auto& to = *static_cast<Answer<std::vector<Module>>*>(userdata);
          if (eol != 0) return to.session->signal();
          if (info->name != nullptr && std::string(info->name) == moduleName) {
            to.value.push_back({info->index, info->argument ? info->argument : ""});
          }
        },
        &answer));
    return done ? std::optional(answer.value) : std::nullopt;
  }
  bool unload(std::uint32_t index) {
    PulseSession::Lock lock(session_);
    return session_.unloadModule(index);
  }
  bool load(const std::string& argument) {
    PulseSession::Lock lock(session_);
    return session_.loadModule(moduleName, argument) != PA_INVALID_INDEX;
  }

 private:
  template <class T>
  struct Answer {
    PulseSession* session;
    T value;
  };

  PulseSession session_;
  int error_;
};

std::vector<std::string> words(const std::string& text) {
  std::istringstream in(text);
  std::vector<std::string> out;
  for (std::string word; in >> word;) out.push_back(word);
  return out;
}

}  // namespace

bool PulseBluetoothPolicy::switchesOn(const std::string& argument) {
  for (const auto& word : words(argument)) {
    if (word.rfind(key, 0) != 0) continue;
    const std::string value = word.substr(sizeof(key) - 1);
    // The module reads a number, or else a boolean word.
    return !(value == "0" || value == "false" || value == "no" || value == "off" || value == "n" || value == "f");
  }
  return true;  // the module's default is 1
}

std::string PulseBluetoothPolicy::withSwitchOff(const std::string& argument) {
  std::string out;
  for (const auto& word : words(argument)) {
    if (word.rfind(key, 0) == 0) continue;
    out += word + " ";
  }
  return out + key + "0";
}

std::optional<AutoSwitchReading> PulseBluetoothPolicy::read() {
  Session session(server_, timeout_);
  if (!session.ready()) return std::nullopt;
  const auto modules = session.modules();
  if (!modules || modules->empty()) return std::nullopt;
  const std::string& argument = modules->front().argument;
  return AutoSwitchReading{owner, switchesOn(argument), argument};
}

WriteAnswer PulseBluetoothPolicy::turnOff() {
  const auto reading = read();
  if (!reading) return WriteAnswer::refuse("No such entity");
  return reload(withSwitchOff(reading->setting));
}

WriteAnswer PulseBluetoothPolicy::putBack(const std::string& setting) { return reload(setting); }

WriteAnswer PulseBluetoothPolicy::reload(const std::string& argument) {
  Session session(server_, timeout_);
  if (!session.ready()) return WriteAnswer::refuse(session.error());
  const auto modules = session.modules();
  if (!modules) return WriteAnswer::refuse(session.error());
  if (modules->size() == 1 && modules->front().argument == argument) return WriteAnswer::accept();
  // A module holds its argument for life: unload it, then load it with the new one. Should that
  // fail, the old one is loaded again, so the server does not stay without its policy.
  for (const auto& module : *modules) {
    if (!session.unload(module.index)) return WriteAnswer::refuse(session.error());
  }
  // The server unloads a module a moment after it answers, and this one may be loaded only once:
  // wait until it is gone (each look waits for the server, within the session's time limit).
  constexpr int maxLooks = 100;
  for (int looks = 0;; ++looks) {
    const auto left = session.modules();
    if (!left || looks == maxLooks) return WriteAnswer::refuse(left ? "the old module stays loaded" : session.error());
    if (left->empty()) break;
  }
  if (session.load(argument)) return WriteAnswer::accept();
  const std::string reason = session.error();
  if (!modules->empty()) session.load(modules->front().argument);
  return WriteAnswer::refuse(reason);
}

}  // namespace wh::platform
