#include "platform/linux/pipewire/PipeWireConnection.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "platform/linux/pipewire/PipeWireCalls.h"

namespace wh::platform {

namespace {

const pw_core_events coreEvents = [] {
  pw_core_events events{};
  events.version = PW_VERSION_CORE_EVENTS;
  return events;
}();

std::map<std::string, std::string> toMap(const spa_dict* dict) {
  std::map<std::string, std::string> out;
  if (dict == nullptr) return out;
  for (std::uint32_t i = 0; i < dict->n_items; ++i) {
    if (dict->items[i].key != nullptr) out[dict->items[i].key] = dict->items[i].value ? dict->items[i].value : "";
  }
  return out;
}

// A socket connected to `path`, or a negative errno.
int connectSocket(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof(address.sun_path)) return -ENAMETOOLONG;
  std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
  const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return -errno;
  if (::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) < 0) {
    const int error = errno;
    ::close(fd);
    return -error;
  }
  return fd;
}

}  // namespace

std::string PipeWireConnection::Failure::text() const {
  static constexpr const char* kinds[] = {"no PipeWire daemon answered", "PipeWire did not answer in time",
                                          "PipeWire refused", "the connection to PipeWire ended"};
  std::string out = kinds[static_cast<int>(kind)];
  if (!message.empty()) out += ": " + message;
  if (code != 0) out += " (" + std::string(std::strerror(-code)) + ")";
  return out;
}

const std::string* PipeWireConnection::Global::property(const std::string& key) const {
  const auto found = properties.find(key);
  return found == properties.end() ? nullptr : &found->second;
}

PipeWireConnection::PipeWireConnection(Options options) : options_(std::move(options)) {
  pw_init(nullptr, nullptr);
  loop_ = pw_thread_loop_new(options_.threadName.c_str(), nullptr);
}

PipeWireConnection::~PipeWireConnection() {
  if (loop_ == nullptr) return;
  if (running_) pw_thread_loop_stop(loop_);
  // The loop's thread has ended: what it served is torn down from here.
  if (registry_ != nullptr) {
    spa_hook_remove(&registryListener_);
    pw_proxy_destroy(reinterpret_cast<pw_proxy*>(registry_));
  }
  if (core_ != nullptr) {
    spa_hook_remove(&coreListener_);
    pw_core_disconnect(core_);
  }
  if (context_ != nullptr) pw_context_destroy(context_);
  pw_thread_loop_destroy(loop_);
  pw_deinit();
}

PipeWireConnection::Opened PipeWireConnection::open(const Options& options) {
  std::unique_ptr<PipeWireConnection> connection(new PipeWireConnection(options));
  if (auto failure = connection->connect()) return *failure;
  return connection;
}

std::optional<PipeWireConnection::Failure> PipeWireConnection::connect() {
  if (loop_ == nullptr) return Failure{Failure::Kind::unreachable, -errno, "no thread loop"};
  context_ = pw_context_new(pw_thread_loop_get_loop(loop_), nullptr, 0);
  if (context_ == nullptr) return Failure{Failure::Kind::unreachable, -errno, "no context"};
  pw_properties* properties = pw_properties_new(PW_KEY_APP_NAME, options_.clientName.c_str(), nullptr);
  if (!options_.remote.empty() && options_.remote.front() == '/') {
    const int fd = connectSocket(options_.remote);
    if (fd < 0) {
      pw_properties_free(properties);
      return Failure{Failure::Kind::unreachable, fd, options_.remote};
    }
    core_ = pw_context_connect_fd(context_, fd, properties, 0);
  } else {
    if (!options_.remote.empty()) pw_properties_set(properties, PW_KEY_REMOTE_NAME, options_.remote.c_str());
    core_ = pw_context_connect(context_, properties, 0);
  }
  if (core_ == nullptr) return Failure{Failure::Kind::unreachable, -errno, options_.remote};

  static const pw_core_events events = [] {
    pw_core_events e = coreEvents;
    e.done = &PipeWireConnection::onCoreDone;
    e.error = &PipeWireConnection::onCoreError;
    return e;
  }();
  static const pw_registry_events registryEvents = [] {
    pw_registry_events e{};
    e.version = PW_VERSION_REGISTRY_EVENTS;
    e.global = &PipeWireConnection::onGlobal;
    e.global_remove = &PipeWireConnection::onGlobalRemove;
    return e;
  }();
  pw::addListener(core_, &coreListener_, &events, this);
  registry_ = pw::registry(core_);
  if (registry_ == nullptr) return Failure{Failure::Kind::refused, -errno, "no registry"};
  pw::addListener(registry_, &registryListener_, &registryEvents, this);
  if (pw_thread_loop_start(loop_) < 0) return Failure{Failure::Kind::unreachable, -errno, "no loop thread"};
  running_ = true;
  // The first sync's answer comes after the registry's first listing.
  return roundtrip();
}

void PipeWireConnection::onCoreDone(void* data, std::uint32_t id, int seq) {
  auto* self = static_cast<PipeWireConnection*>(data);
  if (id != PW_ID_CORE) return;
  self->lastDone_ = seq;
  self->signal();
}

void PipeWireConnection::onCoreError(void* data, std::uint32_t id, int /*seq*/, int res, const char* message) {
  auto* self = static_cast<PipeWireConnection*>(data);
  Failure failure{Failure::Kind::refused, res, message != nullptr ? message : ""};
  if (id == PW_ID_CORE && res == -EPIPE) {
    failure.kind = Failure::Kind::lost;
    self->ended_ = failure;
  }
  self->lastError_ = failure;
  self->signal();
}

void PipeWireConnection::onGlobal(void* data, std::uint32_t id, std::uint32_t /*permissions*/, const char* type,
                                  std::uint32_t version, const spa_dict* props) {
  auto* self = static_cast<PipeWireConnection*>(data);
  self->globals_[id] = Global{id, type != nullptr ? type : "", version, toMap(props)};
  self->signal();
}

void PipeWireConnection::onGlobalRemove(void* data, std::uint32_t id) {
  auto* self = static_cast<PipeWireConnection*>(data);
  self->globals_.erase(id);
  self->signal();
}

std::optional<PipeWireConnection::Failure> PipeWireConnection::waitLocked(const std::function<bool()>& ready) {
  timespec deadline{};
  pw_thread_loop_get_time(loop_, &deadline, static_cast<std::int64_t>(options_.timeout * SPA_NSEC_PER_SEC));
  while (!ready()) {
    if (ended_) return ended_;
    if (pw_thread_loop_timed_wait_full(loop_, &deadline) == -ETIMEDOUT && !ready()) {
      return Failure{Failure::Kind::timeout, -ETIMEDOUT, {}};
    }
  }
  return std::nullopt;
}

std::optional<PipeWireConnection::Failure> PipeWireConnection::roundtrip() {
  Lock lock(loop_);
  if (ended_) return ended_;
  lastError_.reset();
  const int seq = pw::sync(core_);
  if (seq < 0) return Failure{Failure::Kind::lost, seq, {}};
  if (auto failure = waitLocked([&] { return lastDone_ == seq || ended_; })) return failure;
  if (ended_) return ended_;
  return lastError_;
}

std::vector<PipeWireConnection::Global> PipeWireConnection::globals(std::string_view type) const {
  Lock lock(loop_);
  std::vector<Global> out;
  for (const auto& [id, global] : globals_) {
    if (global.type == type) out.push_back(global);
  }
  return out;
}

std::optional<PipeWireConnection::Global> PipeWireConnection::global(std::uint32_t id) const {
  Lock lock(loop_);
  const auto found = globals_.find(id);
  return found == globals_.end() ? std::nullopt : std::optional(found->second);
}

std::variant<PipeWireConnection::Global, PipeWireConnection::Failure> PipeWireConnection::waitForGlobal(
    std::string_view type, const std::map<std::string, std::string>& properties) {
  return waitForGlobal(type, [&](const Global& global) {
    return std::all_of(properties.begin(), properties.end(), [&](const auto& wanted) {
      const std::string* value = global.property(wanted.first);
      return value != nullptr && *value == wanted.second;
    });
  });
}

std::variant<PipeWireConnection::Global, PipeWireConnection::Failure> PipeWireConnection::waitForGlobal(
    std::string_view type, const std::function<bool(const Global&)>& matches) {
  Lock lock(loop_);
  std::optional<Global> found;
  const auto look = [&] {
    for (const auto& [id, global] : globals_) {
      if (global.type == type && matches(global)) {
        found = global;
        return true;
      }
    }
    return false;
  };
  if (auto failure = waitLocked(look)) return *failure;
  return *found;
}

bool PipeWireConnection::waitUntilGone(std::uint32_t id) {
  Lock lock(loop_);
  return !waitLocked([&] { return !globals_.contains(id); });
}

std::optional<PipeWireConnection::Failure> PipeWireConnection::failure() const {
  Lock lock(loop_);
  return ended_;
}

}  // namespace wh::platform
