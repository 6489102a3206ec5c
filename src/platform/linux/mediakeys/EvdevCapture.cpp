#include "platform/linux/mediakeys/EvdevCapture.h"

#include <fcntl.h>
#include <linux/input.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <set>

#include "core/log/Log.h"

namespace wh::platform {

namespace {

constexpr char wakeToStop = 's';
constexpr char wakeToLook = 'l';
constexpr std::size_t recordsPerRead = 64;

// Answers 0 when every record went out, else the error number of the write that failed.
int writeAll(int fd, const input_event* records, std::size_t count) {
  const auto* bytes = reinterpret_cast<const char*>(records);
  std::size_t left = count * sizeof(input_event);
  while (left > 0) {
    const ssize_t written = ::write(fd, bytes, left);
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) return errno;
    if (written == 0) return EIO;
    bytes += written;
    left -= static_cast<std::size_t>(written);
  }
  return 0;
}

double secondsNow() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
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
  std::vector<Open> devices;
  openNew(devices);
  thread_ = std::thread([this, devices = std::move(devices)]() mutable { run(std::move(devices)); });
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

void EvdevCapture::openNew(std::vector<Open>& devices) {
  std::set<std::string> open;
  for (const auto& known : devices) open.insert(known.device.path);
  for (auto& device : kernel_->openDevices(open)) devices.push_back({device, {}});
  devices_ = devices.size();
}

void EvdevCapture::run(std::vector<Open> devices) {
  while (step(devices)) {
  }
  // Whatever ended the reader, no keyboard stays grabbed with nobody passing its keys on.
  for (const auto& open : devices) kernel_->closeDevice(open.device);
  devices_ = 0;
}

bool EvdevCapture::step(std::vector<Open>& devices) {
  std::vector<pollfd> watched{{wake_[0], POLLIN, 0}, {kernel_->changesFd(), POLLIN, 0}};
  double nextRepeat = INFINITY;
  for (const auto& open : devices) {
    watched.push_back({open.device.fd, POLLIN, 0});
    if (const auto due = open.repeat.due()) nextRepeat = std::min(nextRepeat, *due);
  }
  const int timeoutMs =
      std::isinf(nextRepeat) ? -1 : static_cast<int>(std::ceil(std::max(0.0, nextRepeat - secondsNow()) * 1000));
  if (kernel_->wait(watched.data(), watched.size(), timeoutMs) < 0) {
    if (errno == EINTR) return true;
    Log::error(std::string("the media key reader stopped: ") + std::strerror(errno));
    return false;
  }

  bool look = false;
  if (watched[0].revents & POLLIN) {
    char why;
    while (::read(wake_[0], &why, 1) == 1) {
      if (why == wakeToStop) return false;
      look = true;
    }
  }
  if (watched[1].revents & POLLIN) {
    kernel_->drainChanges();
    look = true;
  }
  std::vector<Open> kept;
  for (std::size_t i = 0; i < devices.size(); ++i) {
    Open& open = devices[i];
    int refusal = 0;
    const Read read = watched[i + 2].revents == 0 ? Read::kept : readFrom(open, refusal);
    if (read == Read::kept) {
      // A repeat the main thread lets through is dropped: the device itself never made it.
      if (const auto repeat = open.repeat.take(secondsNow())) decide(*repeat);
      kept.push_back(std::move(open));
      continue;
    }
    if (read == Read::gone) {
      Log::info("input device " + open.device.path + " went away");
    } else {
      Log::error("could not pass keys on through the twin of " + open.device.path + " (" + std::strerror(refusal) +
                 "); letting go of it");
    }
    kernel_->closeDevice(open.device);
  }
  devices = std::move(kept);
  devices_ = devices.size();
  if (look) openNew(devices);
  return true;
}

EvdevCapture::Read EvdevCapture::readFrom(Open& open, int& refusal) {
  const auto& device = open.device;
  input_event records[recordsPerRead];
  const ssize_t bytes = ::read(device.fd, records, sizeof records);
  if (bytes < 0) return errno == EAGAIN || errno == EINTR ? Read::kept : Read::gone;
  if (bytes == 0) return Read::gone;
  const std::size_t count = static_cast<std::size_t>(bytes) / sizeof(input_event);
  auto passOn = [&](std::size_t first, std::size_t end) {
    refusal = writeAll(device.emitter, records + first, end - first);
    return refusal == 0;
  };
  std::size_t from = 0;  // the first record not yet sent on
  for (std::size_t i = 0; i < count; ++i) {
    if (records[i].type != EV_KEY) continue;
    const auto event = mediaKeyEvent(records[i].code, records[i].value);
    if (!event) continue;
    if (!passOn(from, i)) return Read::twinRefused;
    from = i + 1;
    const bool swallowed = decide(*event);
    if (!device.repeats && (swallowed || !event->isDown)) open.repeat.key(*event, secondsNow());
    if (!swallowed && !passOn(i, i + 1)) return Read::twinRefused;
  }
  return passOn(from, count) ? Read::kept : Read::twinRefused;
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
    if (pending->phase == Pending::Phase::deciding) pending->phase = Pending::Phase::decided;
    pending->changed.notify_all();
  });
  std::unique_lock lock(pending->mutex);
  const auto limit = std::chrono::duration<double>(limit_);
  if (pending->changed.wait_for(lock, limit, [&] { return pending->phase == Pending::Phase::decided; })) {
    return pending->swallow;
  }
  // Not decided in time, whether or not the main thread has begun: the key goes through.
  pending->phase = Pending::Phase::abandoned;
  main_.post([alive = lifetime_.weak(), disabled = handler_.disabled] {
    if (alive.alive() && disabled) disabled(MediaKeySource::Disabled::byTimeout);
  });
  return false;
}

}  // namespace wh::platform
