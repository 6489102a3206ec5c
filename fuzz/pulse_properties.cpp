// A sound server object's property list as `pactl list` shows it ("Name: ...", "Flags: ...",
// "Active Profile: ...", profile lines "name: ...", properties key = "value"), loaded into a
// libpulse pa_proplist and read the way the adapter reads a sink, a source, its card and a client:
// the device and client properties, PulseMirror's classification (transport, profile kinds,
// who a client is) and what the mirror then reports.

#include <pulse/proplist.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <string_view>

#include "FuzzCheck.h"
#include "platform/linux/audio/PulseMirror.h"
#include "platform/linux/audio/PulsePropertyLists.h"

namespace {

using namespace wh;
using namespace wh::platform;

// The mirror reports changes on the main queue; nothing listens here.
class NoMainQueue final : public MainQueue {
 public:
  void post(Work) override {}
  std::shared_ptr<WorkItem> after(double, Work work) override { return std::make_shared<WorkItem>(std::move(work)); }
  std::unique_ptr<RepeatingTimer> every(double, double, Work) override { return nullptr; }
};

// The mirror alone: PulseAudioHardware adds the writes that go to the server.
class Mirror final : public PulseMirror {
 public:
  using PulseMirror::PulseMirror;
  void setCardProfile(AudioObjectID, const std::string&, WriteDone) override {}
  void setDefaultDevice(AudioProperty, AudioObjectID, WriteDone) override {}
};

std::string_view trimmed(std::string_view text) {
  while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
  while (!text.empty() && (text.back() == ' ' || text.back() == '\r')) text.remove_suffix(1);
  return text;
}

struct Listing {
  std::string name;
  std::string activeProfile;
  std::vector<std::string> profiles;
  bool hardware = false;
  bool network = false;
};

Listing load(std::string_view text, pa_proplist* properties) {
  Listing listing;
  while (!text.empty()) {
    const auto end = text.find('\n');
    const std::string_view line = trimmed(text.substr(0, end));
    text = end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
    if (const auto equals = line.find(" = "); equals != std::string_view::npos) {
      const std::string key(line.substr(0, equals));
      std::string_view value = line.substr(equals + 3);
      if (value.size() >= 2 && value.front() == '"' && value.back() == '"') {
        pa_proplist_sets(properties, key.c_str(), std::string(value.substr(1, value.size() - 2)).c_str());
      } else {
        // Not a string: the server may hold arbitrary bytes under a key.
        pa_proplist_set(properties, key.c_str(), value.data(), value.size());
      }
    } else if (line.starts_with("Name: ")) {
      listing.name = line.substr(6);
    } else if (line.starts_with("Active Profile: ")) {
      listing.activeProfile = line.substr(16);
    } else if (line.starts_with("Flags: ")) {
      listing.hardware = line.find("HARDWARE") != std::string_view::npos;
      listing.network = line.find("NETWORK") != std::string_view::npos;
    } else if (const auto colon = line.find(": "); colon != std::string_view::npos) {
      listing.profiles.emplace_back(line.substr(0, colon));
    }
  }
  return listing;
}

const std::set<std::uint32_t> transports{fourCharCode("blue"), fourCharCode("blea"), fourCharCode("bltn"),
                                         fourCharCode("usb "), fourCharCode("1394"), fourCharCode("ntwk"),
                                         fourCharCode("grup"), fourCharCode("unkn")};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::unique_ptr<pa_proplist, decltype(&pa_proplist_free)> properties(pa_proplist_new(), pa_proplist_free);
  const Listing listing = load(std::string_view(reinterpret_cast<const char*>(data), size), properties.get());

  const std::string description = propertyOf(properties.get(), PA_PROP_DEVICE_DESCRIPTION).value_or("");
  PulseCardInfo card{7, listing.name, description, deviceProperties(properties.get()), listing.activeProfile, {}};
  for (const auto& profile : listing.profiles) card.profiles.push_back({profile, pulseProfileKind(profile), 1, true});
  PulseDeviceInfo sink{1, true, listing.name, description, 48000, false, listing.hardware, listing.network,
                       deviceProperties(properties.get()), 7};
  PulseDeviceInfo source = sink;
  source.index = 2;
  source.isSink = false;
  const PulseClientInfo client = pulseClient(3, clientProperties(properties.get()));
  if (client.pid) FUZZ_CHECK(*client.pid > 0);
  if (client.appID) FUZZ_CHECK(!client.appID->empty());

  NoMainQueue main;
  Mirror mirror(main);
  mirror.applyCard(card);
  mirror.applyDevice(sink);
  mirror.applyDevice(source);
  mirror.applyClient(client);
  mirror.applyStream(true, {5, client.index, false, false}, sink.index);
  mirror.applyDefaults(listing.name, listing.name);
  const bool tap = listing.name.starts_with(tapSinkPrefix);
  FUZZ_CHECK(mirror.devices().size() == (tap ? 0U : 2U));
  for (const AudioObjectID device : mirror.devices()) {
    FUZZ_CHECK(transports.contains(mirror.deviceTransport(device).value_or(0)));
    FUZZ_CHECK(mirror.deviceUID(device) == listing.name);
  }
  for (const AudioCard& known : mirror.cards()) FUZZ_CHECK(transports.contains(known.transport));
  const auto processes = mirror.processObjects();
  FUZZ_CHECK(processes.size() == 1);
  FUZZ_CHECK(mirror.processPID(processes.front()) == client.pid);
  FUZZ_CHECK(mirror.processBundleID(processes.front()) == client.appID);
  return 0;
}
