#pragma once
// The audio port held in memory, for tests and benchmarks. Every property can be made unreadable
// (left empty), writes can be refused, and reads are counted. Changes are silent until the test
// calls notify(), which calls the matching handlers at once, as the sound server's report would
// on the main thread; so a test can also make a change that nobody is told about.

#include <cstddef>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "core/audio/AudioHardware.h"

namespace wh {

class MemoryAudioHardware final : public AudioHardware {
 public:
  struct Device {
    AudioObjectID id = audioObjectUnknown;
    std::optional<std::string> uid;
    std::optional<std::string> name;
    std::optional<std::uint32_t> transport;
    std::optional<std::uint32_t> inputStreams;
    std::optional<std::uint32_t> outputStreams;
    std::optional<double> nominalSampleRate;
  };
  struct Process {
    AudioObjectID id = audioObjectUnknown;
    std::optional<std::int32_t> pid;
    std::optional<std::string> bundleID;
    std::optional<bool> runningInput = false;
    std::optional<bool> runningOutput = false;
  };
  // Reads of process properties, for telling cached identities from fresh reads.
  struct ReadCounts {
    std::size_t processObjects = 0;
    std::size_t pid = 0;
    std::size_t bundleID = 0;
    std::size_t runningInput = 0;
    std::size_t runningOutput = 0;
  };

  std::vector<Device> deviceList;
  std::vector<Process> processList;
  std::map<AudioProperty, std::optional<AudioObjectID>> defaults;
  // Writes that the hardware refuses, by property.
  std::map<AudioProperty, bool> refuseWrites;
  // Every accepted or refused write, in order.
  std::vector<std::pair<AudioProperty, AudioObjectID>> writes;
  ReadCounts reads;

  Process* process(AudioObjectID id);
  Device* device(AudioObjectID id);

  // Calls every handler registered for that object and property.
  void notify(AudioObjectID object, AudioProperty property);
  std::size_t listenerCount(AudioObjectID object, AudioProperty property) const;
  std::size_t listenerCount() const { return listeners_.size(); }

  std::vector<AudioObjectID> devices() override;
  std::optional<std::string> deviceUID(AudioObjectID device) override;
  std::optional<std::string> deviceName(AudioObjectID device) override;
  std::optional<std::uint32_t> deviceTransport(AudioObjectID device) override;
  std::optional<std::uint32_t> deviceStreamCount(AudioObjectID device, Direction direction) override;
  std::optional<double> deviceNominalSampleRate(AudioObjectID device) override;
  std::optional<AudioObjectID> defaultDevice(AudioProperty which) override;
  bool setDefaultDevice(AudioProperty which, AudioObjectID device) override;
  std::vector<AudioObjectID> processObjects() override;
  std::optional<std::int32_t> processPID(AudioObjectID process) override;
  std::optional<std::string> processBundleID(AudioObjectID process) override;
  std::optional<bool> processIsRunningInput(AudioObjectID process) override;
  std::optional<bool> processIsRunningOutput(AudioObjectID process) override;
  ListenerToken addListener(AudioObjectID object, AudioProperty property, std::function<void()> handler) override;
  void removeListener(ListenerToken token) override;

 private:
  struct Registration {
    AudioObjectID object;
    AudioProperty property;
    std::shared_ptr<std::function<void()>> handler;
  };
  std::map<ListenerToken, Registration> listeners_;
  ListenerToken nextToken_ = 1;
};

}  // namespace wh
