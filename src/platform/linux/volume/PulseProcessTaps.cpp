#include "platform/linux/volume/PulseProcessTaps.h"

#include <pulse/rtclock.h>

#include <pthread.h>
#include <sched.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <mutex>
#include <random>
#include <utility>
#include <vector>

#include "core/log/Log.h"

namespace wh::platform {

namespace {

constexpr std::uint32_t tapRate = 48000;
constexpr std::uint8_t tapChannels = 2;
constexpr pa_sample_spec tapFormat{PA_SAMPLE_FLOAT32LE, tapRate, tapChannels};
constexpr std::uint32_t frameBytes = tapChannels * sizeof(float);
// The monitor is read in pieces of this length; the output stream asks for no more than this.
constexpr double captureFragment = 0.005;
constexpr double playbackTarget = 0.02;
constexpr int tapThreadPriority = 5;
// How many times a stream taken away from the tap's sink is moved back. A move shows up as several
// changes, and on PipeWire an answer may still name the old sink, or no sink, until the session
// manager has relinked the stream: only a stream seen on the sink and then elsewhere counts.
constexpr int maxTakeBacks = 10;
// Moves sent for one stream, counted or not: a stream that never reaches the sink is let go too.
constexpr int maxMovesSent = 6 * maxTakeBacks;
// A moment after a stream was moved in, the tap looks where its streams are: a move can be refused
// or overtaken while the session manager relinks the stream, with no later change to report it.
constexpr pa_usec_t recheckDelay = 500 * PA_USEC_PER_MSEC;

// What marks a tap sink as no place to play to (see loadSink).
constexpr const char* tapSinkProperties = "node.virtual=true";

std::uint32_t bytesFor(double seconds) {
  return static_cast<std::uint32_t>(seconds * tapRate) * frameBytes;
}

// A sink name made of the characters every server accepts in one.
std::string sinkNameFor(const std::string& bundleID) {
  std::string name = PulseProcessTaps::sinkPrefix;
  for (char c : bundleID) name += (std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '.' || c == '-') ? c : '_';
  std::random_device random;
  return name + "." + std::to_string(random() % 1000000000U);
}

struct SinkRecord {
  std::uint32_t index, module;
  std::string name;
};
struct InputRecord {
  std::uint32_t index, client, sink;
};

// Blocking reads and writes on a session, with the session's lock held.
struct Calls {
  PulseSession& session;

  template <class Record>
  struct Collect {
    PulseSession* session;
    std::vector<Record> records;
  };

  std::vector<SinkRecord> sinks() {
    Collect<SinkRecord> collect{&session, {}};
    session.await(pa_context_get_sink_info_list(
        session.context(),
        [](pa_context*, const pa_sink_info* info, int, void* data) {
          auto* c = static_cast<Collect<SinkRecord>*>(data);
          if (info != nullptr) c->records.push_back({info->index, info->owner_module, info->name ? info->name : ""});
          c->session->signal();
        },
        &collect));
    return collect.records;
  }

  std::vector<InputRecord> inputs() {
    Collect<InputRecord> collect{&session, {}};
    session.await(pa_context_get_sink_input_info_list(
        session.context(),
        [](pa_context*, const pa_sink_input_info* info, int, void* data) {
          auto* c = static_cast<Collect<InputRecord>*>(data);
          if (info != nullptr) c->records.push_back({info->index, info->client, info->sink});
          c->session->signal();
        },
        &collect));
    return collect.records;
  }

  std::string defaultSink() { return serverInfo().defaultSink; }
  // PipeWire's pulse server names itself "PulseAudio (on PipeWire <version>)".
  bool onPipeWire() { return serverInfo().name.find("on PipeWire") != std::string::npos; }

  struct ServerInfo {
    std::string name, defaultSink;
  };
  ServerInfo serverInfo() {
    Collect<ServerInfo> collect{&session, {}};
    session.await(pa_context_get_server_info(
        session.context(),
        [](pa_context*, const pa_server_info* info, void* data) {
          auto* c = static_cast<Collect<ServerInfo>*>(data);
          if (info != nullptr) {
            c->records.push_back({info->server_name ? info->server_name : "",
                                  info->default_sink_name ? info->default_sink_name : ""});
          }
          c->session->signal();
        },
        &collect));
    return collect.records.empty() ? ServerInfo{} : collect.records.front();
  }

  struct Answer {
    PulseSession* session;
    bool success = false;
  };
  static void onSuccess(pa_context*, int success, void* data) {
    auto* answer = static_cast<Answer*>(data);
    answer->success = success != 0;
    answer->session->signal();
  }

  // Each answers whether the server did it.
  template <class Start>
  bool succeeds(Start start) {
    Answer answer{&session};
    return session.await(start(&Calls::onSuccess, &answer)) && answer.success;
  }
  bool move(std::uint32_t input, std::uint32_t sink) {
    return succeeds([&](auto done, Answer* answer) {
      return pa_context_move_sink_input_by_index(session.context(), input, sink, done, answer);
    });
  }
  bool move(std::uint32_t input, const std::string& sink) {
    return succeeds([&](auto done, Answer* answer) {
      return pa_context_move_sink_input_by_name(session.context(), input, sink.c_str(), done, answer);
    });
  }
  bool unload(std::uint32_t module) { return session.unloadModule(module); }
  std::uint32_t load(const char* name, const std::string& arguments) { return session.loadModule(name, arguments); }
};

// Moves the streams of the given sinks back to where they came from (`origins`), or to the default
// output (or the first other sink): those whose origin is gone, and the `followers`, which came
// from the default output of their time and so follow the default.
void moveOut(Calls& calls, const std::set<std::uint32_t>& leaving,
             const std::map<std::uint32_t, std::uint32_t>& origins = {}, const std::set<std::uint32_t>& followers = {}) {
  const auto sinks = calls.sinks();
  std::string fallback = calls.defaultSink();
  for (const auto& sink : sinks) {
    if (leaving.count(sink.index) > 0 && sink.name == fallback) fallback.clear();
  }
  for (const auto& sink : sinks) {
    if (fallback.empty() && leaving.count(sink.index) == 0) fallback = sink.name;
  }
  for (const auto& input : calls.inputs()) {
    if (leaving.count(input.sink) == 0) continue;
    const auto origin = followers.count(input.index) > 0 ? origins.end() : origins.find(input.index);
    const bool back = origin != origins.end() && std::any_of(sinks.begin(), sinks.end(), [&](const SinkRecord& s) {
                        return s.index == origin->second && leaving.count(s.index) == 0;
                      });
    if (back ? !calls.move(input.index, origin->second) : !fallback.empty() && !calls.move(input.index, fallback)) {
      Log::error("could not give stream " + std::to_string(input.index) + " its output back");
    }
  }
}

}  // namespace

// One application's tap sink. The taps built for the application while an earlier one still runs
// (for a new output, or gain after mute) share it, so its streams stay where they are.
struct PulseProcessTaps::Sink {
  std::string name;
  std::uint32_t module = PA_INVALID_INDEX;
  std::uint32_t index = PA_INVALID_INDEX;
  int holders = 0;  // guarded by the table's lock
  // Taps on their own threads share these.
  std::mutex mutex;
  std::map<std::uint32_t, std::uint32_t> origins;  // playback stream -> the sink it came from
  // The default output when the latest tap was built, and the streams that came from the default
  // output: given back, those follow the default of that time, not the sink they left.
  std::uint32_t defaultOutput = PA_INVALID_INDEX;
  std::set<std::uint32_t> followers;
  void takeIn(std::uint32_t input, std::uint32_t from) {  // with the lock held
    if (origins.emplace(input, from).second && from == defaultOutput) followers.insert(input);
  }
  struct Moves {
    int takenBack = 0;    // times it was taken away after it had reached the sink
    int sent = 0;         // moves sent, counted or not
    bool settled = false; // last reported on the sink
  };
  std::map<std::uint32_t, Moves> moves;  // playback stream -> how it was moved in
};

class PulseProcessTaps::SinkTable {
 public:
  // The application's sink, if one of its taps holds one; the caller holds it too.
  std::shared_ptr<Sink> take(const std::string& bundleID) {
    std::lock_guard lock(mutex_);
    const auto found = sinks_.find(bundleID);
    if (found == sinks_.end()) return nullptr;
    ++found->second->holders;
    return found->second;
  }
  void add(const std::string& bundleID, const std::shared_ptr<Sink>& sink) {
    std::lock_guard lock(mutex_);
    ++sink->holders;
    sinks_[bundleID] = sink;
  }
  // Answers whether the caller was the sink's last holder.
  bool release(const std::string& bundleID, const std::shared_ptr<Sink>& sink) {
    std::lock_guard lock(mutex_);
    if (--sink->holders > 0) return false;
    if (const auto found = sinks_.find(bundleID); found != sinks_.end() && found->second == sink) sinks_.erase(found);
    return true;
  }

 private:
  std::mutex mutex_;
  std::map<std::string, std::shared_ptr<Sink>> sinks_;
};

namespace {

bool present(const std::vector<SinkRecord>& sinks, const PulseProcessTaps::Sink& sink) {
  return std::any_of(sinks.begin(), sinks.end(),
                     [&](const SinkRecord& s) { return s.index == sink.index && s.name == sink.name; });
}

std::shared_ptr<PulseProcessTaps::Sink> loadSink(Calls& calls, PulseProcessTaps::SinkTable& table,
                                                const std::string& bundleID) {
  auto sink = std::make_shared<PulseProcessTaps::Sink>();
  sink->name = sinkNameFor(bundleID);
  // Marked virtual: PipeWire's pulse server (0.3.76 on; before, only nodes with a device.api) then
  // reports the sink without the hardware flag, as PulseAudio reports every null sink. Mixers
  // that leave out outputs without it (plasma-pa by default, pavucontrol's "Hardware Output
  // Devices") do not offer it, and neither server's switch-on-connect moves streams to it.
  const std::string arguments = "sink_name=" + sink->name + " format=float32le rate=" + std::to_string(tapRate) +
                                " channels=" + std::to_string(tapChannels) +
                                " sink_properties='device.description=\"Wrenhaven " + bundleID + "\" " +
                                tapSinkProperties + "'";
  sink->module = calls.load("module-null-sink", arguments);
  if (sink->module == PA_INVALID_INDEX) return nullptr;
  for (const auto& record : calls.sinks()) {
    if (record.name == sink->name) sink->index = record.index;
  }
  if (sink->index == PA_INVALID_INDEX) {
    calls.unload(sink->module);
    return nullptr;
  }
  table.add(bundleID, sink);
  return sink;
}

}  // namespace

PulseProcessTaps::PulseProcessTaps(PulseMirror& mirror, Options options)
    : mirror_(mirror), options_(std::move(options)), sinks_(std::make_shared<SinkTable>()) {}

ProcessTaps::Result PulseProcessTaps::build(const ProcessTap::Request& request) {
  std::set<std::uint32_t> clients;
  for (const AudioObjectID process : request.processes) {
    if (const auto index = mirror_.clientServerIndex(process)) clients.insert(*index);
  }
  auto tap = std::make_shared<Tap>(request, std::move(clients), options_, sinks_);
  if (const auto failure = tap->start(request)) return *failure;
  return tap;
}

void PulseProcessTaps::removeLeftovers() {
  PulseSession session(options_.server, "Wrenhaven", "wrenhaven.taps", options_.operationTimeout);
  if (session.connect() != 0) return;
  PulseSession::Lock lock(session);
  Calls calls{session};
  std::set<std::uint32_t> stale, modules;
  for (const auto& sink : calls.sinks()) {
    if (sink.name.rfind(sinkPrefix, 0) != 0) continue;
    stale.insert(sink.index);
    if (sink.module != PA_INVALID_INDEX) modules.insert(sink.module);
    Log::info("removing tap sink " + sink.name + " left behind by an earlier run");
  }
  if (stale.empty()) return;
  moveOut(calls, stale);
  for (const auto module : modules) calls.unload(module);
}

PulseProcessTaps::Tap::Tap(const Request& request, std::set<std::uint32_t> clients, const Options& options,
                           std::shared_ptr<SinkTable> sinks)
    : ProcessTap(request),
      sinks_(std::move(sinks)),
      session_(options.server, "Wrenhaven tap", "wrenhaven.tap", options.operationTimeout),
      bundleID_(request.bundleID),
      clients_(std::move(clients)),
      lostHold_(request.lostHold),
      control_(tapRate, options.fillMargin),
      options_(options) {}

PulseProcessTaps::Tap::~Tap() { stop(); }

std::optional<ProcessTap::Failure> PulseProcessTaps::Tap::start(const Request& request) {
  using Step = Failure::Step;
  // A gain tap with nowhere to play fails before any stream is moved: moving an application's
  // streams out and straight back can leave PipeWire's session manager relinking them to the old
  // output while the next tap moves them in, and the two then take turns.
  if (request.mode == Mode::gain && !request.outputUID) return Failure{Step::aggregate, badDeviceStatus};
  if (const int error = session_.connect(); error != 0) return Failure{Step::tap, error};
  std::optional<Failure> failure;
  bool inGraph = false;  // the gain path inside PipeWire's graph, made without the session's lock
  {
    PulseSession::Lock lock(session_);
    Calls calls{session_};
    if (request.mode == Mode::gain) {
      const auto sinks = calls.sinks();
      if (std::none_of(sinks.begin(), sinks.end(), [&](const SinkRecord& sink) { return sink.name == *request.outputUID; })) {
        return Failure{Step::aggregate, PA_ERR_NOENTITY};
      }
    }
    sink_ = sinks_->take(bundleID_);
    if (sink_ != nullptr && !present(calls.sinks(), *sink_)) {
      sinks_->release(bundleID_, sink_);  // the server it was made on is gone
      sink_.reset();
    }
    if (sink_ == nullptr) sink_ = loadSink(calls, *sinks_, bundleID_);
    if (sink_ == nullptr) failure = Failure{Step::tap, session_.error()};
    if (!failure) {
      sinkName_ = sink_->name;
      const std::string defaultName = calls.defaultSink();
      std::uint32_t defaultIndex = PA_INVALID_INDEX;
      for (const auto& record : calls.sinks()) defaultIndex = record.name == defaultName ? record.index : defaultIndex;
      {
        std::lock_guard guard(sink_->mutex);
        sink_->moves.clear();  // this tap tries each stream afresh
        sink_->defaultOutput = defaultIndex;
      }
      // Streams that appear later are caught by the subscription; those there now, by the list.
      pa_context_set_subscribe_callback(session_.context(), &Tap::onEvent, this);
      recheck_ = session_.api()->time_new(session_.api(), nullptr, &Tap::onRecheck, this);  // not armed yet
      calls.succeeds([&](auto done, Calls::Answer* answer) {
        return pa_context_subscribe(session_.context(), PA_SUBSCRIPTION_MASK_SINK_INPUT, done, answer);
      });
      // Waited for, so that a tap this one replaces finds none of them when it stops. A stream
      // that has gone meanwhile needs no move.
      for (const auto& input : calls.inputs()) {
        if (clients_.count(input.client) == 0 || input.sink == sink_->index) continue;
        {
          std::lock_guard guard(sink_->mutex);
          sink_->takeIn(input.index, input.sink);
        }
        if (!calls.move(input.index, sink_->index)) refused(input.index, session_.error());
      }
    }
    inGraph = !failure && request.mode == Mode::gain && options_.pipeWirePath && calls.onPipeWire();
    if (!failure && request.mode == Mode::gain && !inGraph) failure = startGain(*request.outputUID);
  }
  if (inGraph) failure = startPipeWireGain(*request.outputUID);
  if (failure) stop();
  return failure;
}

// A stream of the tap's clients that is not on the tap's sink: a new one, or one that something
// else took away (on PipeWire the session manager can relink a stream whose earlier target went
// away just as it was moved). Only a stream that had reached the sink and was then taken away
// counts as taken: a stream on its way (not linked yet, or reported by an answer older than the
// move) is sent again without counting. A stream taken away too often is left where it is, so
// the tap never fights another program that keeps moving it, and says that it lost its hold.
void PulseProcessTaps::Tap::moveIn(std::uint32_t input, std::uint32_t from) {
  {
    std::lock_guard guard(sink_->mutex);
    auto& moves = sink_->moves[input];
    if (from == sink_->index) {
      moves.settled = true;
      return;
    }
    if (moves.takenBack > maxTakeBacks || moves.sent > maxMovesSent) return;  // given up before
    const bool taken = sink_->origins.count(input) > 0 && std::exchange(moves.settled, false);
    if ((taken && ++moves.takenBack > maxTakeBacks) || ++moves.sent > maxMovesSent) {
      Log::info("a stream of " + bundleID_ + " keeps being moved away from its tap; left where it is");
      loseHold();
      return;
    }
    sink_->takeIn(input, from);
  }
  // Not waited for: this runs inside the subscription's callback. The server answers a
  // connection's requests in order, so the answer belongs to the oldest move in flight.
  if (pa_operation* operation = pa_context_move_sink_input_by_index(
          session_.context(), input, sink_->index,
          [](pa_context* context, int success, void* self) {
            auto* tap = static_cast<Tap*>(self);
            if (tap->movesInFlight_.empty()) return;
            const std::uint32_t moved = tap->movesInFlight_.front();
            tap->movesInFlight_.pop_front();
            if (success == 0 && !tap->stopped_) tap->refused(moved, pa_context_errno(context));
          },
          this)) {
    movesInFlight_.push_back(input);
    pa_operation_unref(operation);
  }
  if (recheck_ != nullptr) pa_context_rttime_restart(session_.context(), recheck_, pa_rtclock_now() + recheckDelay);
}

// A move that failed. Both servers answer PA_ERR_INVALID for a stream that may not be moved (one
// opened with PA_STREAM_DONT_MOVE; on PipeWire a node with `node.dont-reconnect`): the tap cannot
// have it. A stream that has gone meanwhile, or a server that did not answer in time, is no refusal.
void PulseProcessTaps::Tap::refused(std::uint32_t input, int error) {
  if (error != PA_ERR_INVALID && error != PA_ERR_NOTSUPPORTED && error != PA_ERR_ACCESS) return;
  {
    std::lock_guard guard(sink_->mutex);
    sink_->moves[input].sent = maxMovesSent + 1;  // not tried again
  }
  Log::info("the server will not move a stream of " + bundleID_ + " to its tap: " + pa_strerror(error));
  loseHold();
}

// With the loop's lock held.
void PulseProcessTaps::Tap::loseHold() {
  if (std::exchange(lost_, true) || !lostHold_) return;
  lostHold_();
}

void PulseProcessTaps::Tap::onRecheck(pa_mainloop_api*, pa_time_event*, const struct timeval*, void* self) {
  auto* tap = static_cast<Tap*>(self);
  if (tap->stopped_ || !tap->session_.connected()) return;
  pa_operation* operation = pa_context_get_sink_input_info_list(
      tap->session_.context(),
      [](pa_context*, const pa_sink_input_info* info, int last, void* data) {
        auto* owner = static_cast<Tap*>(data);
        if (last == 0 && info != nullptr && !owner->stopped_ && owner->clients_.count(info->client) > 0) {
          owner->moveIn(info->index, info->sink);
        }
      },
      self);
  if (operation != nullptr) pa_operation_unref(operation);
}

void PulseProcessTaps::Tap::onEvent(pa_context* context, pa_subscription_event_type_t type, std::uint32_t index,
                                    void* self) {
  const auto* owner = static_cast<Tap*>(self);
  const auto kind = type & PA_SUBSCRIPTION_EVENT_TYPE_MASK;
  if (kind == PA_SUBSCRIPTION_EVENT_REMOVE || owner->stopped_) return;
  // Only the streams the tap took in are asked about when they change: every question is work
  // for the server's protocol thread, which on PipeWire also moves the sound, and the tap's own
  // output stream changes twice a second.
  if (kind == PA_SUBSCRIPTION_EVENT_CHANGE) {
    std::lock_guard guard(owner->sink_->mutex);
    if (owner->sink_->origins.count(index) == 0) return;
  }
  pa_operation* operation = pa_context_get_sink_input_info(
      context, index,
      [](pa_context*, const pa_sink_input_info* info, int, void* data) {
        auto* tap = static_cast<Tap*>(data);
        if (info != nullptr && !tap->stopped_ && tap->clients_.count(info->client) > 0) tap->moveIn(info->index, info->sink);
      },
      self);
  if (operation != nullptr) pa_operation_unref(operation);
}

std::optional<ProcessTap::Failure> PulseProcessTaps::Tap::startGain(const std::string& outputUID) {
  using Step = Failure::Step;
  const auto ready = [](pa_stream* stream) { return pa_stream_get_state(stream) == PA_STREAM_READY; };
  const auto settled = [&](pa_stream* stream) {
    return session_.awaitUntil([&] { return !PA_STREAM_IS_GOOD(pa_stream_get_state(stream)) || ready(stream); }) &&
           ready(stream);
  };
  const auto signal = [](pa_stream*, void* session) { static_cast<PulseSession*>(session)->signal(); };

  playback_ = pa_stream_new(session_.context(), ("Wrenhaven " + bundleID_).c_str(), &tapFormat, nullptr);
  if (playback_ == nullptr) return Failure{Step::io, session_.error()};
  pa_stream_set_state_callback(playback_, signal, &session_);
  pa_stream_set_underflow_callback(
      playback_,
      [](pa_stream*, void* data) {
        auto* tap = static_cast<Tap*>(data);
        ++tap->underflows_;
        tap->control_.ranDry();
      },
      this);
  const pa_buffer_attr playbackAttributes{static_cast<std::uint32_t>(-1), bytesFor(playbackTarget),
                                          bytesFor(playbackTarget / 2), bytesFor(captureFragment),
                                          static_cast<std::uint32_t>(-1)};
  const auto playbackFlags = static_cast<pa_stream_flags_t>(PA_STREAM_ADJUST_LATENCY | PA_STREAM_VARIABLE_RATE |
                                                            PA_STREAM_DONT_MOVE);
  if (pa_stream_connect_playback(playback_, outputUID.c_str(), &playbackAttributes, playbackFlags, nullptr, nullptr) < 0 ||
      !settled(playback_)) {
    return Failure{Step::io, session_.error()};
  }

  capture_ = pa_stream_new(session_.context(), ("Wrenhaven tap " + bundleID_).c_str(), &tapFormat, nullptr);
  if (capture_ == nullptr) return Failure{Step::io, session_.error()};
  pa_stream_set_state_callback(capture_, signal, &session_);
  pa_stream_set_read_callback(capture_, [](pa_stream*, size_t, void* tap) { static_cast<Tap*>(tap)->pump(); }, this);
  const auto max = static_cast<std::uint32_t>(-1);
  const pa_buffer_attr captureAttributes{max, max, max, max, bytesFor(captureFragment)};
  const std::string monitor = sinkName_ + ".monitor";
  if (pa_stream_connect_record(capture_, monitor.c_str(), &captureAttributes,
                               static_cast<pa_stream_flags_t>(PA_STREAM_ADJUST_LATENCY | PA_STREAM_DONT_MOVE)) < 0 ||
      !settled(capture_)) {
    return Failure{Step::io, session_.error()};
  }
  return std::nullopt;
}

std::optional<ProcessTap::Failure> PulseProcessTaps::Tap::startPipeWireGain(const std::string& outputUID) {
  PipeWireGainPath::Request request{{.remote = options_.pipeWireRemote,
                                     .clientName = "Wrenhaven tap",
                                     .threadName = "wrenhaven.tap",
                                     .timeout = options_.operationTimeout},
                                    sinkName_, outputUID, bundleID_, *options_.pipeWirePath};
  auto started = PipeWireGainPath::start(request, box());
  PulseSession::Lock lock(session_);
  if (auto* path = std::get_if<std::unique_ptr<PipeWireGainPath>>(&started)) {
    pipeWirePath_ = std::move(*path);
    return std::nullopt;
  }
  // The daemon may be out of reach where its pulse server is not (another machine's server, a
  // sandbox that passes on only the pulse socket): the pulse protocol's path still works there.
  Log::error("the gain path of " + bundleID_ + " could not be made in PipeWire's graph, so it goes over the "
             "pulse protocol: " + std::get<PipeWireConnection::Failure>(started).text());
  return startGain(outputUID);
}

// On the tap's thread, with the loop's lock held: everything the monitor has is played out.
void PulseProcessTaps::Tap::pump() {
  if (frames_.load(std::memory_order_relaxed) == 0) {
    // The audio thread runs at real-time priority where the system allows it.
    const sched_param priority{tapThreadPriority};
    pthread_setschedparam(pthread_self(), SCHED_FIFO, &priority);
    // The output stream starts with its margin of silence rather than waiting for the rate to
    // build it up.
    void* out = nullptr;
    std::size_t margin = control_.startFrames() * frameBytes;
    if (pa_stream_begin_write(playback_, &out, &margin) == 0 && out != nullptr) {
      std::memset(out, 0, margin);
      pa_stream_write(playback_, out, margin, nullptr, 0, PA_SEEK_RELATIVE);
    }
  }
  const void* data = nullptr;
  std::size_t bytes = 0, written = 0;
  bool handed = false;
  while (pa_stream_peek(capture_, &data, &bytes) == 0 && bytes > 0) {
    handed = true;
    std::size_t done = control_.drop(bytes / frameBytes, heldFrames()) * frameBytes;
    while (done + frameBytes <= bytes && pa_stream_get_state(playback_) == PA_STREAM_READY) {
      void* out = nullptr;
      std::size_t piece = bytes - done;
      if (pa_stream_begin_write(playback_, &out, &piece) < 0 || out == nullptr) break;
      piece = std::min(piece, bytes - done) / frameBytes * frameBytes;
      const InputAudioBuffer input{tapChannels, static_cast<std::uint32_t>(piece),
                                   data ? static_cast<const float*>(data) + done / sizeof(float) : nullptr};
      const AudioBuffer output{tapChannels, static_cast<std::uint32_t>(piece), static_cast<float*>(out)};
      GainMixer::render({&input, 1}, {&output, 1}, tapChannels, box());
      pa_stream_write(playback_, out, piece, nullptr, 0, PA_SEEK_RELATIVE);
      done += piece;
      written += piece;
    }
    pa_stream_drop(capture_);
    frames_.fetch_add(bytes / frameBytes, std::memory_order_relaxed);
  }
  if (handed) measureFill(written);
  if (const auto rate = control_.adjust()) {
    if (pa_operation* operation = pa_stream_update_sample_rate(playback_, *rate, nullptr, nullptr)) {
      pa_operation_unref(operation);
    }
  }
}

// Frames in the output stream: what was written (libpulse counts each write at once), less where
// the server read at the last timing update.
std::int64_t PulseProcessTaps::Tap::heldFrames() const {
  const pa_timing_info* timing = pa_stream_get_timing_info(playback_);
  if (timing == nullptr || timing->write_index_corrupt != 0 || timing->read_index_corrupt != 0) return 0;
  return (timing->write_index - timing->read_index) / frameBytes;
}

// Asks the server where it reads the output stream, after each piece played out. The stream holds
// least just before a piece arrives (only the server takes sound out in between), so its answer
// less that piece is the low point of this round; the lowest of these between two corrections is
// what the rate control follows. (The interpolated latency is no use here: PipeWire's pulse server lets
// it run ahead by up to a second between two timing updates.)
void PulseProcessTaps::Tap::measureFill(std::size_t piece) {
  if (timingPending_) return;
  pieceAtRequest_ = piece;
  pa_operation* operation = pa_stream_update_timing_info(
      playback_,
      [](pa_stream* stream, int success, void* data) {
        auto* tap = static_cast<Tap*>(data);
        tap->timingPending_ = false;
        const pa_timing_info* timing = pa_stream_get_timing_info(stream);
        if (success == 0 || timing == nullptr || timing->write_index_corrupt != 0 || timing->read_index_corrupt != 0) {
          return;
        }
        const std::int64_t held = timing->write_index - timing->read_index;
        tap->control_.lowPoint((held - static_cast<std::int64_t>(tap->pieceAtRequest_)) / frameBytes);
      },
      this);
  if (operation == nullptr) return;
  timingPending_ = true;
  pa_operation_unref(operation);
}

double PulseProcessTaps::Tap::latency() {
  PulseSession::Lock lock(session_);
  double total = 0;
  for (pa_stream* stream : {capture_, playback_}) {
    const auto updated = [&] {
      return session_.await(pa_stream_update_timing_info(
          stream, [](pa_stream*, int, void* session) { static_cast<PulseSession*>(session)->signal(); }, &session_));
    };
    pa_usec_t usec = 0;
    int negative = 0;
    if (stream == nullptr || !updated() || pa_stream_get_latency(stream, &usec, &negative) != 0) return -1;
    total += (negative != 0 ? -1.0 : 1.0) * static_cast<double>(usec) / 1e6;
  }
  return total;
}

void PulseProcessTaps::Tap::stop() {
  PulseSession::Lock lock(session_);
  if (stopped_) return;
  stopped_ = true;
  // The playback path goes before the sink it reads.
  pipeWirePath_.reset();
  for (pa_stream** stream : {&capture_, &playback_}) {
    if (*stream == nullptr) continue;
    pa_stream_set_read_callback(*stream, nullptr, nullptr);
    pa_stream_set_state_callback(*stream, nullptr, nullptr);
    pa_stream_set_underflow_callback(*stream, nullptr, nullptr);
    pa_stream_disconnect(*stream);
    pa_stream_unref(*stream);
    *stream = nullptr;
  }
  if (session_.connected()) pa_context_set_subscribe_callback(session_.context(), nullptr, nullptr);
  if (recheck_ != nullptr) session_.api()->time_free(std::exchange(recheck_, nullptr));
  if (sink_ == nullptr) return;
  const auto sink = std::move(sink_);
  sink_.reset();
  // The application's last tap gives the streams back and unloads the sink.
  if (!sinks_->release(bundleID_, sink) || !session_.connected()) return;
  Calls calls{session_};
  // A copy: the sink's lock is never held while the loop's lock is given up to wait for the server.
  std::map<std::uint32_t, std::uint32_t> origins;
  std::set<std::uint32_t> followers;
  {
    std::lock_guard guard(sink->mutex);
    origins = sink->origins;
    followers = sink->followers;
  }
  moveOut(calls, {sink->index}, origins, followers);
  calls.unload(sink->module);
}

}  // namespace wh::platform
