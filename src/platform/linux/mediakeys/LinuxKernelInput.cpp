// The kernel calls of the media key reader: libevdev for the devices, uinput for their twins,
// inotify for devices that come and go.

#include <fcntl.h>
#include <libevdev/libevdev-uinput.h>
#include <libevdev/libevdev.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <map>
#include <optional>

#include "core/input/KeyCapabilities.h"
#include "core/log/Log.h"
#include "platform/linux/mediakeys/KernelInput.h"

namespace wh::platform {

namespace {

constexpr const char* inputFolder = "/dev/input";
constexpr const char* twinPrefix = "Wrenhaven: ";

class LinuxKernelInput final : public KernelInput {
 public:
  LinuxKernelInput() : changes_(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
    if (changes_ >= 0) ::inotify_add_watch(changes_, inputFolder, IN_CREATE | IN_ATTRIB | IN_DELETE);
  }
  ~LinuxKernelInput() override {
    for (auto& [fd, open] : open_) release(fd, open);
    if (changes_ >= 0) ::close(changes_);
  }

  std::vector<Device> openDevices(const std::set<std::string>& already) override {
    std::vector<Device> devices;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(inputFolder, error)) {
      const std::string path = entry.path().string();
      if (entry.path().filename().string().rfind("event", 0) != 0 || already.count(path)) continue;
      if (auto device = openDevice(path)) devices.push_back(*device);
    }
    return devices;
  }

  void closeDevice(const Device& device) override {
    if (auto found = open_.find(device.fd); found != open_.end()) {
      release(device.fd, found->second);
      open_.erase(found);
    }
  }

  int changesFd() const override { return changes_; }
  void drainChanges() override {
    char buffer[4096];
    while (::read(changes_, buffer, sizeof buffer) > 0) {
    }
  }

 private:
  struct Open {
    libevdev* device = nullptr;
    libevdev_uinput* twin = nullptr;
  };

  std::optional<Device> openDevice(const std::string& path) {
    const int fd = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) return std::nullopt;
    Open opened;
    if (libevdev_new_from_fd(fd, &opened.device) < 0) {
      ::close(fd);
      return std::nullopt;
    }
    const std::string name = libevdev_get_name(opened.device) ? libevdev_get_name(opened.device) : "";
    const bool media = std::any_of(std::begin(mediaKeyCodes), std::end(mediaKeyCodes),
                                   [&](int code) { return libevdev_has_event_code(opened.device, EV_KEY, code); });
    if (!media || name.rfind(twinPrefix, 0) == 0 || libevdev_grab(opened.device, LIBEVDEV_GRAB) < 0) {
      release(fd, opened);
      return std::nullopt;
    }
    libevdev_set_name(opened.device, (twinPrefix + name).c_str());
    if (libevdev_uinput_create_from_device(opened.device, LIBEVDEV_UINPUT_OPEN_MANAGED, &opened.twin) < 0) {
      Log::error("could not make a twin of " + name + " through /dev/uinput");
      release(fd, opened);
      return std::nullopt;
    }
    Log::info("reading media keys from " + name + " (" + path + ")");
    open_[fd] = opened;
    return Device{fd, libevdev_uinput_get_fd(opened.twin), path, libevdev_has_event_type(opened.device, EV_REP) != 0};
  }

  static void release(int fd, Open& opened) {
    if (opened.twin) libevdev_uinput_destroy(opened.twin);
    if (opened.device) {
      libevdev_grab(opened.device, LIBEVDEV_UNGRAB);
      libevdev_free(opened.device);
    }
    ::close(fd);
  }

  int changes_;
  std::map<int, Open> open_;
};

}  // namespace

std::unique_ptr<KernelInput> linuxKernelInput() { return std::make_unique<LinuxKernelInput>(); }

}  // namespace wh::platform
