#include "core/diagnostics/Diagnose.h"

#include <vector>

#include "core/audio/CoreAudio.h"
#include "core/quality/CallDetector.h"

namespace wh {

namespace {

std::string join(const std::vector<std::string>& lines) {
  std::string out;
  for (std::size_t i = 0; i < lines.size(); ++i) {
    if (i > 0) out += '\n';
    out += lines[i];
  }
  return out;
}

std::string deviceLine(AudioHardware& audio, const AudioDevice& device, std::optional<AudioObjectID> output,
                       std::optional<AudioObjectID> input) {
  std::string line = "  " + device.name + "  [" + Diagnose::transport(device.transport);
  if (device.hasInput) line += " in";
  if (device.hasOutput) line += " out";
  line += "] ";
  const auto rate = audio.deviceNominalSampleRate(device.id);
  line += rate ? std::to_string(static_cast<long long>(*rate)) + " Hz" : "?";
  std::string roles;
  if (output == device.id) roles = "default output";
  if (input == device.id) roles += roles.empty() ? "default input" : ", default input";
  if (!roles.empty()) line += " " + roles;
  return line;
}

const char* kindText(ProfileKind kind) {
  switch (kind) {
    case ProfileKind::music:
      return "music";
    case ProfileKind::headset:
      return "headset";
    case ProfileKind::other:
      break;
  }
  return "other";
}

// "  WH-1000XM4: a2dp-sink (music profile; offers a2dp-sink, headset-head-unit, off)"
std::string cardLine(const AudioCard& card) {
  std::string line = "  " + (card.description.empty() ? card.name : card.description) + ": " +
                     (card.activeProfile.empty() ? "?" : card.activeProfile) + " (" + kindText(card.activeKind()) +
                     " profile; offers";
  for (std::size_t i = 0; i < card.profiles.size(); ++i) line += (i == 0 ? " " : ", ") + card.profiles[i].name;
  return line + ")";
}

}  // namespace

std::string Diagnose::transport(std::uint32_t code) {
  if (Transport::isBluetooth(code)) return "bluetooth";
  if (code == Transport::builtIn) return "built-in";
  if (code == Transport::aggregate) return "aggregate";
  std::string text;
  for (int shift = 24; shift >= 0; shift -= 8) text += static_cast<char>((code >> shift) & 0xff);
  return text;
}

std::string Diagnose::text() const {
  std::vector<std::string> lines;
  lines.push_back("Wrenhaven " + sources_.build.versionText() + " on " + sources_.systemVersion);

  lines.push_back("\nAudio devices:");
  if (AudioHardware* audio = sources_.audio) {
    const auto output = DefaultDevice::id(*audio, Direction::output);
    const auto input = DefaultDevice::id(*audio, Direction::input);
    for (const auto& device : AudioDevice::all(*audio)) lines.push_back(deviceLine(*audio, device, output, input));
  } else {
    lines.push_back("  no sound server reachable" +
                    (sources_.audioProblem.empty() ? std::string() : ": " + sources_.audioProblem));
  }

  std::optional<AudioDevice> microphone;
  if (sources_.audio && sources_.preferredMicrophone) microphone = sources_.preferredMicrophone();
  lines.push_back("Preferred mic: " + (microphone ? microphone->name : std::string("none")));
  if (sources_.audio) {
    lines.push_back("\nBluetooth cards:");
    std::optional<std::string> autoSwitch;  // read once, and only when there is a card to show it for
    for (const auto& card : sources_.audio->cards()) {
      if (!Transport::isBluetooth(card.transport)) continue;
      lines.push_back(cardLine(card));
      if (sources_.autoSwitch) {
        if (!autoSwitch) autoSwitch = sources_.autoSwitch();
        lines.push_back("    automatic headset switching: " + *autoSwitch);
      }
      if (sources_.guardAction) {
        const std::string action = sources_.guardAction(card.name);
        lines.push_back("    profile guard: " + (action.empty() ? std::string("nothing done since it came") : action));
      }
    }
  }

  lines.push_back("\nAudio processes:");
  std::vector<AudioProcess> processes;
  if (AudioProcessMonitor* monitor = sources_.processes) {
    monitor->refresh();
    processes = monitor->processes();
    for (const auto& process : processes) {
      std::string line = "  pid " + std::to_string(process.pid) + " " +
                         (process.bundleID.empty() ? std::string(noBundleID) : process.bundleID);
      if (process.runningInput) line += " INPUT";
      if (process.runningOutput) line += " OUTPUT";
      lines.push_back(line);
    }
  }
  lines.push_back(std::string("In a call: ") +
                  (CallDetector::inCall(processes, sources_.meetingApps) ? "true" : "false"));

  lines.push_back(texts::kBatteryEntriesHeading);
  if (sources_.batteryEntries) {
    for (const auto& entry : sources_.batteryEntries()) {
      lines.push_back("  " + entry.name.value_or("?") + ": " + entry.levels.summary());
    }
  }
  lines.push_back(texts::accessibilityLine(sources_.inputAccess));
  for (const auto* problem : {&sources_.mediaKeysProblem, &sources_.hotkeysProblem}) {
    if (*problem) lines.push_back(**problem);
  }
  return join(lines);
}

}  // namespace wh
