#include "platform/linux/mediakeys/EvdevCapture.h"

#include <fcntl.h>
#include <linux/input.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <set>

#include "core/log/Log.h"

namespace wh::platform {

namespace {

constexpr char wakeToStop = 's';
constexpr char wakeToLook = 'l';
constexpr std::size_t recordsPerRead = 64;

void writeAll(int fd, const input_event* records, std::size_t count) {
  const auto* bytes = reinterpret_cast<const char*>(records);
  std::size_t left = count * sizeof(input_event);
  while (left > 0) {
    const ssize_t written = ::write(fd, bytes, left);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return;
    bytes += written;
    left -= static_cast<std::size_t>(written);
  }
}

}  // namespace

// One media key waiting for the main thread. Whoever moves it out of `waiting` first owns it:
// the main thread (to decide) or the reader (to give up and let the key through).
struct EvdevCapture::Pending {
  enum class Phase { waiting, deciding, decided, abandoned };
  std::mutex mutex;
  std::condition_variable changed;
  Phase phase = Phase::waiting;
  bool swallow = false;
};

EvdevCapture::EvdevCapture(std::unique_ptr<KernelInput> kernel, MainQueue& main, MediaKeySource::Handler handler,
                           double limit)
    : kernel_(std::move(kernel)), main_(main), handler_(std::move(handler)), limit_(limit) {
  if (::pipe2(wake_, O_CLOEXEC | O_NONBLOCK) != 0) return;
  thread_ = std::thread([this] { run(); });
}

EvdevCapture::~EvdevCapture() {
  if (thread_.joinable()) {
    wake(wakeToStop);
    thread_.join();
  }
  for (int fd : wake_) {
    if (fd >= 0) ::close(fd);
  }
}

void EvdevCapture::enable() { wake(wakeToLook); }

void EvdevCapture::wake(char why) {
  if (wake_[1] >= 0) [[maybe_unused]] auto written = ::write(wake_[1], &why, 1);
}

void EvdevCapture::openNew(std::vector<KernelInput::Device>& devices) {
  std::set<std::string> open;
  for (const auto& device : devices) open.insert(device.path);
  for (auto& device : kernel_->openDevices(open)) devices.push_back(device);
  devices_ = devices.size();
}

void EvdevCapture::run() {
  std::vector<KernelInput::Device> devices;
  openNew(devices);
  for (;;) {
    std::vector<pollfd> watched{{wake_[0], POLLIN, 0}, {kernel_->changesFd(), POLLIN, 0}};
    for (const auto& device : devices) watched.push_back({device.fd, POLLIN, 0});
    if (::poll(watched.data(), watched.size(), -1) < 0 && errno != EINTR) return;

    bool look = false;
    if (watched[0].revents & POLLIN) {
      char why;
      while (::read(wake_[0], &why, 1) == 1) {
        if (why == wakeToStop) {
          for (const auto& device : devices) kernel_->closeDevice(device);
          return;
        }
        look = true;
      }
    }
    if (watched[1].revents & POLLIN) {
      kernel_->drainChanges();
      look = true;
    }
    std::vector<KernelInput::Device> kept;
    for (std::size_t i = 0; i < devices.size(); ++i) {
      if (watched[i + 2].revents == 0 || readFrom(devices[i])) {
        kept.push_back(devices[i]);
      } else {
        Log::info("input device " + devices[i].path + " went away");
        kernel_->closeDevice(devices[i]);
      }
    }
    devices = std::move(kept);
    devices_ = devices.size();
    if (look) openNew(devices);
  }
}

bool EvdevCapture::readFrom(const KernelInput::Device& device) {
  input_event records[recordsPerRead];
  const ssize_t bytes = ::read(device.fd, records, sizeof records);
  if (bytes < 0) return errno == EAGAIN || errno == EINTR;
  if (bytes == 0) return false;
  const std::size_t count = static_cast<std::size_t>(bytes) / sizeof(input_event);
  std::size_t from = 0;  // the first record not yet sent on
  for (std::size_t i = 0; i < count; ++i) {
    if (records[i].type != EV_KEY) continue;
    const auto event = mediaKeyEvent(records[i].code, records[i].value);
    if (!event) continue;
    writeAll(device.emitter, records + from, i - from);
    from = i + 1;
    if (!decide(*event)) writeAll(device.emitter, records + i, 1);
  }
  writeAll(device.emitter, records + from, count - from);
  return true;
}

bool EvdevCapture::decide(const MediaKeyEvent& event) {
  auto pending = std::make_shared<Pending>();
  main_.post([pending, event, alive = lifetime_.weak(), decideOnMain = handler_.decide] {
    {
      std::lock_guard lock(pending->mutex);
      if (pending->phase != Pending::Phase::waiting) return;
      pending->phase = Pending::Phase::deciding;
    }
    const bool swallow = alive.alive() && decideOnMain(event);
    std::lock_guard lock(pending->mutex);
    pending->swallow = swallow;
    pending->phase = Pending::Phase::decided;
    pending->changed.notify_all();
  });
  std::unique_lock lock(pending->mutex);
  const auto limit = std::chrono::duration<double>(limit_);
  if (pending->changed.wait_for(lock, limit, [&] { return pending->phase == Pending::Phase::decided; })) {
    return pending->swallow;
  }
  if (pending->phase == Pending::Phase::waiting) {
    pending->phase = Pending::Phase::abandoned;
    main_.post([alive = lifetime_.weak(), disabled = handler_.disabled] {
      if (alive.alive() && disabled) disabled(MediaKeySource::Disabled::byTimeout);
    });
    return false;
  }
  // The main thread is deciding right now: its answer is moments away.
  pending->changed.wait(lock, [&] { return pending->phase == Pending::Phase::decided; });
  return pending->swallow;
}

}  // namespace wh::platform
