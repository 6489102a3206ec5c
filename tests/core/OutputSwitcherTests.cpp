#include <gtest/gtest.h>

#include <sstream>

#include "doubles/MemoryAudioHardware.h"
#include "core/bluetooth/OutputSwitcher.h"
#include "doubles/VirtualRuntime.h"
#include "support/CapturedLog.h"

namespace wh {
namespace {

struct Scenario {
  std::string script;
  std::string outcome;  // "sets:<ids> repairs:<n> repairing:<n> lines:<n>"
  std::string lastLog = {};
};
void PrintTo(const Scenario& s, std::ostream* out) { *out << s.script; }

// A sound system with a built-in output (1) and, once they appear, the headphones' output (7). It
// answers a write of the default 0.1 s later.
class OutputSwitcherTest : public testing::TestWithParam<Scenario> {
 protected:
  static constexpr const char* buds = "aa-bb-cc-dd-ee-ff";

  // Events: "begin"/"cancel" for the headphones; "+S": S seconds pass; "present": their output
  // appears unreported; "appears": it appears and the device list reports it; "changed": the list
  // reports another device; "current": it is the default; "away": the default moves to the built-in output;
  // "none": there is no default; "fails"/"works": setting the default; "repair=hold|fail": what a
  // reconnect does (none is offered otherwise); "reconnected": a held reconnect succeeds.
  void play(const std::string& script) {
    std::istringstream events(script);
    for (std::string event; events >> event;) {
      if (event[0] == '+') {
        rt.advance(std::stod(event.substr(1)));
      } else if (event == "begin") {
        switcher.begin("AA:BB:CC:DD:EE:FF");
      } else if (event == "cancel") {
        switcher.cancel(buds);
      } else if (event == "present" || event == "appears" || event == "changed") {
        present = present || event != "changed";
        if (event != "present" && devicesChanged) devicesChanged();
      } else if (event == "current" || event == "away") {
        defaultOutput = event == "current" ? 7u : 1u;
      } else if (event == "none") {
        defaultOutput.reset();
      } else if (event == "fails" || event == "works") {
        setWorks = event == "works";
      } else if (event == "reconnected") {
        ASSERT_TRUE(pending) << "no repair is waiting for its reconnect";
        pending(true);
      } else if (event == "repair=hold" || event == "repair=fail") {
        switcher.reconnect = [this, fail = event == "repair=fail"](const std::string&, std::function<void(bool)> done) {
          ++repairs;
          pending = std::move(done);
          if (fail) pending(false);
        };
      } else {
        FAIL() << "unknown script word: " << event;
      }
    }
  }

  VirtualRuntime rt;
  test::CapturedLog log;
  bool present = false, setWorks = true;
  std::optional<OutputSwitcher::DeviceID> defaultOutput = 1;
  std::string sets;
  int repairs = 0;
  std::function<void(bool)> pending;
  std::function<void()> devicesChanged;  // while the switcher watches the device list
  OutputSwitcher switcher{rt, {[this](const std::string& address) -> std::optional<OutputSwitcher::DeviceID> {
                                 return present && address == buds ? std::optional(7u) : std::nullopt;
                               },
                               [this] { return defaultOutput; },
                               [this](OutputSwitcher::DeviceID id, WriteDone done) {
                                 sets += (sets.empty() ? "" : ",") + std::to_string(id);
                                 if (setWorks) defaultOutput = id;
                                 rt.main().after(0.1, [done, works = setWorks] {
                                   if (done) done(works ? WriteAnswer::accept() : WriteAnswer::refuse("Access denied"));
                                 });
                               },
                               [](OutputSwitcher::DeviceID id) { return id == 7 ? std::string("Sleep Buds") : std::to_string(id); },
                               [this](std::function<void()> changed) -> std::shared_ptr<void> {
                                 devicesChanged = std::move(changed);
                                 return std::shared_ptr<void>(nullptr, [this](void*) { devicesChanged = nullptr; });
                               }}};
};

TEST_P(OutputSwitcherTest, Scenario) {
  const Scenario& s = GetParam();
  play(s.script);
  EXPECT_EQ("sets:" + sets + " repairs:" + std::to_string(repairs) + " repairing:" +
                std::to_string(switcher.repairing().size()) + " lines:" + std::to_string(log->lines.size()),
            s.outcome);
  EXPECT_EQ(log->lines.empty() ? "" : log->lines.back(), s.lastLog);
}

const std::string repairLine = "no audio device for aa-bb-cc-dd-ee-ff after connect; reconnecting once";
const std::string gaveUp = "gave up setting output for aa-bb-cc-dd-ee-ff";
const std::string setLine = "output set to Sleep Buds";

INSTANTIATE_TEST_SUITE_P(Switching, OutputSwitcherTest, testing::Values(
    // Polls for the device and applies it when it appears before eight seconds.
    Scenario{"begin +7.5", "sets: repairs:0 repairing:0 lines:0"},
    Scenario{"begin +7.5 present +0.25", "sets:7 repairs:0 repairing:0 lines:0"},
    Scenario{"begin +7.5 present +0.35", "sets:7 repairs:0 repairing:0 lines:1", setLine},
    // The device list's report moves the sound at once, and only while a wait is on; the poll
    // that follows finds nothing left to do.
    Scenario{"begin +0.1 appears", "sets:7 repairs:0 repairing:0 lines:0"},
    Scenario{"begin +0.1 changed +0.1 changed", "sets: repairs:0 repairing:0 lines:0"},
    Scenario{"begin +0.1 appears +0.1 away +0.5", "sets:7 repairs:0 repairing:0 lines:1", setLine},
    Scenario{"begin cancel appears +10", "sets: repairs:0 repairing:0 lines:0"},
    Scenario{"begin +9 appears", "sets: repairs:0 repairing:0 lines:1", gaveUp},
    Scenario{"repair=hold begin +8 appears reconnected", "sets:7 repairs:1 repairing:0 lines:1", repairLine},
    // Still missing at eight seconds: one repair, a fresh wait after it, then giving up for good.
    Scenario{"repair=hold begin +7.99", "sets: repairs:0 repairing:0 lines:0"},
    Scenario{"repair=hold begin +8", "sets: repairs:1 repairing:1 lines:1", repairLine},
    Scenario{"repair=hold begin +8 cancel reconnected +7.9", "sets: repairs:1 repairing:0 lines:1", repairLine},
    Scenario{"repair=hold begin +8 cancel reconnected +8 begin +9", "sets: repairs:1 repairing:0 lines:3", gaveUp},
    Scenario{"begin +8", "sets: repairs:0 repairing:0 lines:1", gaveUp},
    Scenario{"repair=fail begin +30", "sets: repairs:1 repairing:0 lines:1", repairLine},
    // Of two quick begins only the second wait survives; cancel ends the wait and the rechecks.
    Scenario{"repair=hold begin +4 begin +7.9", "sets: repairs:0 repairing:0 lines:0"},
    Scenario{"repair=hold begin +4 begin +8", "sets: repairs:1 repairing:1 lines:1", repairLine},
    Scenario{"present begin cancel away +5", "sets:7 repairs:0 repairing:0 lines:1", setLine},
    Scenario{"repair=hold begin cancel +10", "sets: repairs:0 repairing:0 lines:0"},
    // Already current: nothing, but the rechecks still run; a refused set is not logged, and the
    // rechecks set it again.
    Scenario{"present current begin +2", "sets: repairs:0 repairing:0 lines:0"},
    Scenario{"present current begin +2 away +1", "sets:7 repairs:0 repairing:0 lines:1",
             "output moved away from Sleep Buds; setting it again"},
    Scenario{"present fails begin +0.5", "sets:7 repairs:0 repairing:0 lines:0"},
    Scenario{"present fails begin works +1 none +2", "sets:7,7,7 repairs:0 repairing:0 lines:2",
             "output moved away from Sleep Buds; setting it again"}));

TEST(OutputSwitcherLiveAudio, FindsTheHeadphonesByAddressAndMovesOutputAndAlertsThere) {
  VirtualRuntime rt;
  MemoryAudioHardware hardware(rt.main());
  hardware.deviceList = {{10, "alsa_output.pci-0000_00_1f.3.analog-stereo", "Built-in Audio", {}, {}, 1, {}},
                         {11, "bluez_input.AA_BB_CC_DD_EE_FF.0", "Sleep Buds mic", {}, 1, {}, {}},
                         {12, "bluez_output.AA_BB_CC_DD_EE_FF.1", "Sleep Buds", {}, {}, 1, {}}};
  hardware.defaults[AudioProperty::defaultOutputDevice] = 10;
  auto audio = OutputSwitcher::Audio::live(hardware);
  EXPECT_EQ(audio.find("aa-bb-cc-dd-ee-ff"), 12u) << "the output device, not the microphone";
  EXPECT_FALSE(audio.find("11-22-33-44-55-66"));
  EXPECT_EQ(audio.current(), 10u);
  std::optional<WriteAnswer> answer;
  audio.set(12, [&](const WriteAnswer& a) { answer = a; });
  rt.runReady();
  EXPECT_EQ(answer, WriteAnswer::accept());
  EXPECT_EQ(hardware.defaults[AudioProperty::defaultOutputDevice], 12u);
  EXPECT_EQ(hardware.defaults[AudioProperty::defaultSystemOutputDevice], 12u);
  EXPECT_EQ(audio.name(12), "Sleep Buds");
  EXPECT_EQ(audio.name(99), "99");
}

}  // namespace
}  // namespace wh
