#pragma once
// Process taps on the PulseAudio protocol (PulseAudio, or PipeWire's pulse server). A tap is a
// private null sink named after the application, to which every playback stream of the
// application's clients is moved, also the streams that appear later or that something else moves
// away: nothing plays that sink, so the application is silent (mute). A stream that something
// keeps taking away, or that the server will not move, is left where it is, and the tap calls the
// request's lostHold. The sink is marked as no output to offer people (node.virtual). A gain tap
// also records the sink's monitor and plays it, through the gain mixer, to the output device, on
// its connection's real-time thread "wrenhaven.tap"; the playback rate follows the fill of the
// output stream, so the two clocks' drift neither starves nor piles up the stream (the tap
// measures the stream and applies what its TapRateControl decides). On PipeWire the gain tap
// instead plays the sink to the output through a node of its own inside PipeWire's graph
// (PipeWireGainPath: one clock, no rate control), and over the pulse protocol only where the
// daemon is out of reach. A tap built while another of the application's runs
// takes over its sink, so a rebuild moves no stream. The last tap to stop moves the streams back
// where they were (or to the default output when that is gone) and unloads the sink. Failures
// carry the server's error numbers.

#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>

#include "core/volume/ProcessTap.h"
#include "core/volume/TapRateControl.h"
#include "platform/linux/audio/PulseMirror.h"
#include "platform/linux/pipewire/PipeWireGainPath.h"
#include "platform/linux/volume/PulseSession.h"

namespace wh::platform {

class PulseProcessTaps final : public ProcessTaps {
 public:
  struct Options {
    std::string server;  // empty: libpulse's own search
    double operationTimeout = 2.0;
    // How much sound the output stream should still hold when it holds least (just before the
    // monitor hands over its next piece): room for late wake-ups of the tap thread and of the
    // server's own protocol thread, and for a server held up as a whole (a virtual machine's
    // processors taken away for 20 to 30 ms), after which the output catches up at once while
    // the monitor's pieces still have the round trip through the tap to make. The tap raises it
    // for a while after the stream runs dry.
    double fillMargin = TapRateControl::defaultMargin;
    // On PipeWire (its pulse server names itself so), a gain tap plays its sink to the output
    // inside PipeWire's graph in this way; none: over the pulse protocol, as on PulseAudio.
    std::optional<PipeWireGainPath::Design> pipeWirePath = PipeWireGainPath::Design::filter;
    std::string pipeWireRemote{};  // empty: libpipewire's own search
  };
  // Tap sinks are named with this prefix; a sink that carries it and belongs to no running tap
  // was left behind by an agent that ended without stopping it.
  static constexpr const char* sinkPrefix = tapSinkPrefix;

  PulseProcessTaps(PulseMirror& mirror, Options options);
  explicit PulseProcessTaps(PulseMirror& mirror) : PulseProcessTaps(mirror, Options()) {}

  Result build(const ProcessTap::Request& request) override;
  void removeLeftovers() override;

  class Tap;
  struct Sink;
  class SinkTable;

 private:
  PulseMirror& mirror_;
  Options options_;
  std::shared_ptr<SinkTable> sinks_;
};

class PulseProcessTaps::Tap final : public ProcessTap {
 public:
  Tap(const Request& request, std::set<std::uint32_t> clients, const Options& options,
      std::shared_ptr<SinkTable> sinks);
  ~Tap() override;

  // Answers the failure, after undoing what was made; nothing on success.
  std::optional<Failure> start(const Request& request);
  void stop() override;

  const std::string& sinkName() const { return sinkName_; }
  // How often the output stream ran dry, and how many frames went through.
  std::uint64_t underflows() const { return underflows_.load(); }
  std::uint64_t frames() const { return frames_.load(); }
  // Seconds a sample spends between the tap sink and the output device, as the server reports
  // it: the monitor's capture stream and the output stream together (unknown: a negative value).
  double latency();
  // The path inside PipeWire's graph, when the gain goes that way.
  const PipeWireGainPath* pipeWirePath() const { return pipeWirePath_.get(); }

 private:
  std::optional<Failure> startGain(const std::string& outputUID);
  std::optional<Failure> startPipeWireGain(const std::string& outputUID);
  void moveIn(std::uint32_t input, std::uint32_t from);
  void refused(std::uint32_t input, int error);
  void loseHold();
  void pump();
  void measureFill(std::size_t piece);
  std::int64_t heldFrames() const;
  static void onEvent(pa_context* context, pa_subscription_event_type_t type, std::uint32_t index, void* self);
  static void onRecheck(pa_mainloop_api* api, pa_time_event* event, const struct timeval* when, void* self);

  std::shared_ptr<SinkTable> sinks_;
  PulseSession session_;
  std::string bundleID_;
  std::set<std::uint32_t> clients_;
  std::function<void()> lostHold_;
  bool lost_ = false;                      // lostHold_ was called; with the loop's lock held
  std::deque<std::uint32_t> movesInFlight_;  // streams whose move has not been answered yet
  TapRateControl control_;  // on the tap's thread
  std::shared_ptr<Sink> sink_;  // held from a successful start until stop
  std::string sinkName_;
  Options options_;
  std::unique_ptr<PipeWireGainPath> pipeWirePath_;
  pa_stream* capture_ = nullptr;
  pa_stream* playback_ = nullptr;
  bool timingPending_ = false;
  std::size_t pieceAtRequest_ = 0;
  bool stopped_ = false;
  // Looks again where the clients' streams are, a moment after a stream was moved in.
  pa_time_event* recheck_ = nullptr;
  std::atomic<std::uint64_t> underflows_{0};
  std::atomic<std::uint64_t> frames_{0};
};

}  // namespace wh::platform
