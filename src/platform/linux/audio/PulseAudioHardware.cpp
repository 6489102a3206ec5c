#include "platform/linux/audio/PulseAudioHardware.h"

#include <pulse/pulseaudio.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <functional>
#include <set>
#include <string_view>

#include "core/log/Log.h"
#include "platform/linux/audio/PulsePropertyLists.h"

namespace wh::platform {

namespace {

// A client, sink or source index; PA_INVALID_INDEX for none.
std::optional<std::uint32_t> knownIndex(std::uint32_t index) {
  return index == PA_INVALID_INDEX ? std::nullopt : std::optional(index);
}

// A sink or a source; they differ in their flags' names only.
template <class Info>
PulseDeviceInfo deviceRecord(const Info& info, bool isSink, unsigned hardwareFlag, unsigned networkFlag) {
  PulseDeviceInfo device;
  device.index = info.index;
  device.isSink = isSink;
  device.name = info.name ? info.name : "";
  device.description = info.description ? info.description : "";
  device.rate = info.sample_spec.rate;
  device.hardware = (info.flags & hardwareFlag) != 0;
  device.network = (info.flags & networkFlag) != 0;
  device.properties = deviceProperties(info.proplist);
  if (info.card != PA_INVALID_INDEX) device.card = info.card;
  return device;
}

template <class Info>
PulseStreamInfo streamInfo(const Info& info) {
  PulseStreamInfo stream;
  stream.index = info.index;
  stream.client = knownIndex(info.client);
  stream.corked = info.corked != 0;
  // A level meter's capture (PA_STREAM_PEAK_DETECT): PulseAudio resamples it with "peaks";
  // pipewire-pulse reports its own resampler and marks the stream resample.peaks instead.
  stream.peakMeter = (info.resample_method != nullptr && std::strcmp(info.resample_method, "peaks") == 0) ||
                     propertyOf(info.proplist, "resample.peaks") == "true";
  return stream;
}

}  // namespace

// Everything that touches libpulse. Its callbacks run on the main loop's thread with the loop's
// lock held; so do connect() and lost().
class PulseAudioHardware::Connection {
 public:
  Connection(PulseAudioHardware& owner, MainQueue& main, Options options)
      : owner_(owner), main_(main), options_(std::move(options)), delay_(options_.reconnectDelay) {
    loop_ = pa_threaded_mainloop_new();
    api_ = pa_threaded_mainloop_get_api(loop_);
    pa_threaded_mainloop_set_name(loop_, "wrenhaven.pulse");
    pa_threaded_mainloop_lock(loop_);
    connect();
    pa_threaded_mainloop_unlock(loop_);
    pa_threaded_mainloop_start(loop_);
  }

  ~Connection() {
    pa_threaded_mainloop_lock(loop_);
    if (retry_ != nullptr) api_->time_free(retry_);
    if (confirm_ != nullptr) api_->time_free(confirm_);
    retry_ = nullptr;
    confirm_ = nullptr;
    drop(context_);
    drop(dead_);
    pa_threaded_mainloop_unlock(loop_);
    pa_threaded_mainloop_stop(loop_);
    pa_threaded_mainloop_free(loop_);
  }

  // Sends one write that the server answers with success or failure, without waiting for the
  // answer. Once it is sent, `shown` makes the mirror show it; `done` gets the answer on the main
  // queue. An acceptance is confirmed a moment later (see confirmLater). A refusal is logged and
  // the cards and defaults are read again before it is answered, so that the mirror shows what the
  // server kept by then. A write that cannot be sent, or whose connection ends before its answer,
  // is refused.
  void send(const std::function<pa_operation*(pa_context*, pa_context_success_cb_t, void*)>& start,
            const std::function<void()>& shown, WriteDone done) {
    auto write = std::make_unique<Write>(Write{this, std::move(done), nullptr, {}, false});
    pa_threaded_mainloop_lock(loop_);
    if (context_ != nullptr && pa_context_get_state(context_) == PA_CONTEXT_READY) {
      write->carrier = start(context_, &Connection::onAnswer, write.get());
    }
    if (write->carrier != nullptr) {
      pa_operation_set_state_callback(write->carrier, &Connection::onSettled, write.get());
      track(write->carrier);
      shown();
      write.release();  // onSettled has it now
    }
    pa_threaded_mainloop_unlock(loop_);
    if (write) refuse(std::move(write->done), "not connected to the sound server");
  }

  // Hands a refusal to `done` on the main queue.
  void refuse(WriteDone done, std::string reason) { deliver(std::move(done), WriteAnswer::refuse(std::move(reason))); }

 private:
  // One write on its way: whose answer it is, and the operation that will settle it (the write
  // itself, then the read-back after a refusal).
  struct Write {
    Connection* self;
    WriteDone done;
    pa_operation* carrier = nullptr;
    std::string reason;  // the server's, once it has refused
    bool answered = false;
  };

  void deliver(WriteDone done, WriteAnswer reply) {
    if (done) main_.post([done = std::move(done), reply = std::move(reply)] { done(reply); });
  }
  static void answerWrite(Write& write, WriteAnswer reply) {
    write.answered = true;
    write.self->deliver(std::move(write.done), std::move(reply));
  }

  static void onAnswer(pa_context* context, int success, void* userdata) {
    auto& write = *static_cast<Write*>(userdata);
    Connection* self = write.self;
    if (success != 0) {
      answerWrite(write, WriteAnswer::accept());
      return self->confirmLater();
    }
    const int error = pa_context_errno(context);
    write.reason = pa_strerror(error);
    Log::error("the sound server refused a change: " + write.reason);
    track(pa_context_get_card_info_list(context, &Connection::onCard<false>, self));
    // No answer in libpulse's time limit: the server is stuck, and a read-back would wait as long.
    if (error == PA_ERR_TIMEOUT) {
      track(pa_context_get_server_info(context, &Connection::onServer<false>, self));
      return answerWrite(write, WriteAnswer::refuse(write.reason));
    }
    // Answered once the defaults have come back: the server answers in order.
    pa_operation* readBack = pa_context_get_server_info(context, &Connection::onReadBack, &write);
    if (readBack == nullptr) return answerWrite(write, WriteAnswer::refuse(write.reason));
    write.carrier = readBack;
    pa_operation_set_state_callback(readBack, &Connection::onSettled, &write);
    track(readBack);
  }

  static void onReadBack(pa_context* context, const pa_server_info* info, void* userdata) {
    auto& write = *static_cast<Write*>(userdata);
    if (info != nullptr && context == write.self->context_) write.self->applyServer(*info);
    answerWrite(write, WriteAnswer::refuse(write.reason));
  }

  // An operation that carries a write has ended: answered, or cancelled with its connection.
  static void onSettled(pa_operation* operation, void* userdata) {
    auto* write = static_cast<Write*>(userdata);
    if (pa_operation_get_state(operation) == PA_OPERATION_RUNNING || operation != write->carrier) return;
    if (!write->answered) {
      answerWrite(*write, WriteAnswer::refuse(write->reason.empty() ? "the connection to the sound server ended" : write->reason));
    }
    delete write;
  }

  void connect() {
    pa_proplist* properties = pa_proplist_new();
    pa_proplist_sets(properties, PA_PROP_APPLICATION_NAME, options_.clientName.c_str());
    context_ = pa_context_new_with_proplist(api_, options_.clientName.c_str(), properties);
    pa_proplist_free(properties);
    if (context_ == nullptr) {
      lost("cannot create a sound server connection");
      return;
    }
    pa_context_set_state_callback(context_, &Connection::onState, this);
    pa_context_set_subscribe_callback(context_, &Connection::onEvent, this);
    const char* server = options_.server.empty() ? nullptr : options_.server.c_str();
    pa_context* context = context_;
    // A refusal may already have come through the state callback (which then dropped the context).
    if (pa_context_connect(context, server, PA_CONTEXT_NOAUTOSPAWN, nullptr) < 0 && context_ == context) {
      lost(pa_strerror(pa_context_errno(context)));
    }
  }

  // The connection failed or ended: forget everything, fail waiting writes, and try again later.
  void lost(const std::string& error) {
    if (context_ != nullptr) {
      pa_context_set_state_callback(context_, nullptr, nullptr);
      pa_context_set_subscribe_callback(context_, nullptr, nullptr);
      // Freed on the next try: this may run inside one of the context's own callbacks.
      drop(dead_);
      dead_ = context_;
      context_ = nullptr;
    }
    pendingLists_ = 0;
    owner_.clear();
    owner_.setState(false, true, error);
    scheduleRetry();
  }

  // Reads the server's defaults again a moment after a write, or after a device went away.
  // PipeWire's session manager decides the default itself: when another program's choice overtakes
  // ours before it decides, the default never changes, no event comes, and only a fresh read shows
  // that ours did not win. And PipeWire's pulse server tells each client of a new default only
  // when its own pick changes: a client that asked in between, while there was none, is never told.
  void confirmLater() {
    if (confirm_ != nullptr || context_ == nullptr) return;
    timeval when{};
    pa_gettimeofday(&when);
    pa_timeval_add(&when, static_cast<pa_usec_t>(confirmDelay * 1e6));
    confirm_ = api_->time_new(api_, &when, &Connection::onConfirm, this);
  }

  static void onConfirm(pa_mainloop_api* api, pa_time_event* event, const timeval*, void* userdata) {
    auto* self = static_cast<Connection*>(userdata);
    api->time_free(event);
    self->confirm_ = nullptr;
    if (self->context_ != nullptr && pa_context_get_state(self->context_) == PA_CONTEXT_READY) {
      track(pa_context_get_server_info(self->context_, &Connection::onServer<false>, self));
    }
  }

  void scheduleRetry() {
    if (retry_ != nullptr) return;
    timeval when{};
    pa_gettimeofday(&when);
    pa_timeval_add(&when, static_cast<pa_usec_t>(delay_ * 1e6));
    delay_ = std::min(delay_ * 2, options_.maxReconnectDelay);
    retry_ = api_->time_new(api_, &when, &Connection::onRetry, this);
  }

  static void onRetry(pa_mainloop_api* api, pa_time_event* event, const timeval*, void* userdata) {
    auto* self = static_cast<Connection*>(userdata);
    api->time_free(event);
    self->retry_ = nullptr;
    self->drop(self->dead_);
    self->connect();
  }

  static void drop(pa_context*& context) {
    if (context == nullptr) return;
    pa_context_set_state_callback(context, nullptr, nullptr);
    pa_context_set_subscribe_callback(context, nullptr, nullptr);
    pa_context_disconnect(context);
    pa_context_unref(context);
    context = nullptr;
  }

  static void onState(pa_context* context, void* userdata) {
    auto* self = static_cast<Connection*>(userdata);
    if (context != self->context_) return;
    switch (pa_context_get_state(context)) {
      case PA_CONTEXT_READY:
        self->delay_ = self->options_.reconnectDelay;
        self->synchronise();
        break;
      case PA_CONTEXT_FAILED:
      case PA_CONTEXT_TERMINATED:
        self->lost(pa_strerror(pa_context_errno(context)));
        break;
      default:
        break;
    }
  }

  // Subscribes, then asks for every list; the mirror is up to date when the last list has come.
  void synchronise() {
    const auto mask = static_cast<pa_subscription_mask_t>(
        PA_SUBSCRIPTION_MASK_SINK | PA_SUBSCRIPTION_MASK_SOURCE | PA_SUBSCRIPTION_MASK_CLIENT |
        PA_SUBSCRIPTION_MASK_SINK_INPUT | PA_SUBSCRIPTION_MASK_SOURCE_OUTPUT | PA_SUBSCRIPTION_MASK_SERVER |
        PA_SUBSCRIPTION_MASK_CARD);
    track(pa_context_subscribe(context_, mask, nullptr, nullptr));
    pendingLists_ = 7;
    track(pa_context_get_card_info_list(context_, &Connection::onCard<true>, this));
    track(pa_context_get_server_info(context_, &Connection::onServer<true>, this));
    track(pa_context_get_sink_info_list(context_, &Connection::onSink<true>, this));
    track(pa_context_get_source_info_list(context_, &Connection::onSource<true>, this));
    track(pa_context_get_client_info_list(context_, &Connection::onClient<true>, this));
    track(pa_context_get_sink_input_info_list(context_, &Connection::onSinkInput<true>, this));
    track(pa_context_get_source_output_info_list(context_, &Connection::onSourceOutput<true>, this));
  }

  // A list has ended (or failed: what came is kept; the events will mend the rest).
  void listDone() {
    if (pendingLists_ > 0 && --pendingLists_ == 0) owner_.setState(true, false, {});
  }

  static void track(pa_operation* operation) {
    if (operation != nullptr) pa_operation_unref(operation);
  }

  static void onEvent(pa_context* context, pa_subscription_event_type_t type, std::uint32_t index, void* userdata) {
    auto* self = static_cast<Connection*>(userdata);
    if (context != self->context_) return;
    const auto facility = type & PA_SUBSCRIPTION_EVENT_FACILITY_MASK;
    const bool removed = (type & PA_SUBSCRIPTION_EVENT_TYPE_MASK) == PA_SUBSCRIPTION_EVENT_REMOVE;
    PulseMirror& mirror = self->owner_;
    switch (facility) {
      case PA_SUBSCRIPTION_EVENT_SINK:
        if (removed) {
          self->confirmLater();
          return mirror.removeDevice(true, index);
        }
        return track(pa_context_get_sink_info_by_index(context, index, &Connection::onSink<false>, self));
      case PA_SUBSCRIPTION_EVENT_SOURCE:
        if (removed) {
          self->confirmLater();
          return mirror.removeDevice(false, index);
        }
        return track(pa_context_get_source_info_by_index(context, index, &Connection::onSource<false>, self));
      case PA_SUBSCRIPTION_EVENT_CLIENT:
        if (removed) return mirror.removeClient(index);
        return track(pa_context_get_client_info(context, index, &Connection::onClient<false>, self));
      case PA_SUBSCRIPTION_EVENT_SINK_INPUT:
        if (removed) return mirror.removeStream(true, index);
        return track(pa_context_get_sink_input_info(context, index, &Connection::onSinkInput<false>, self));
      case PA_SUBSCRIPTION_EVENT_SOURCE_OUTPUT:
        if (removed) return mirror.removeStream(false, index);
        return track(pa_context_get_source_output_info(context, index, &Connection::onSourceOutput<false>, self));
      case PA_SUBSCRIPTION_EVENT_CARD:
        if (removed) return mirror.removeCard(index);
        return track(pa_context_get_card_info_by_index(context, index, &Connection::onCard<false>, self));
      case PA_SUBSCRIPTION_EVENT_SERVER:
        return track(pa_context_get_server_info(context, &Connection::onServer<false>, self));
      default:
        return;
    }
  }

  // Shared by every info callback: ignores answers for an old connection, ends a list, and
  // applies a record. An object that vanished before its answer comes back as an error: its
  // removal event does the rest.
  template <bool List, class Info, class Apply>
  static void answer(pa_context* context, const Info* info, int eol, void* userdata, Apply apply) {
    auto* self = static_cast<Connection*>(userdata);
    if (context != self->context_) return;
    if (eol != 0) {
      if (List) self->listDone();
      return;
    }
    if (info != nullptr) apply(self->owner_, *info);
  }

  template <bool List>
  static void onServer(pa_context* context, const pa_server_info* info, void* userdata) {
    auto* self = static_cast<Connection*>(userdata);
    if (context != self->context_) return;
    if (info != nullptr) self->applyServer(*info);
    if (List) self->listDone();
  }

  void applyServer(const pa_server_info& info) {
    const std::string sink = info.default_sink_name ? info.default_sink_name : "";
    const std::string source = info.default_source_name ? info.default_source_name : "";
    owner_.applyDefaults(sink, source);
    // PipeWire's pulse server names these while its session manager has not picked a default.
    const bool undecided = sink == "@DEFAULT_SINK@" || source == "@DEFAULT_SOURCE@";
    undecidedReads_ = undecided ? undecidedReads_ + 1 : 0;
    if (undecided && undecidedReads_ <= maxUndecidedReads) confirmLater();
  }

  template <bool List>
  static void onSink(pa_context* context, const pa_sink_info* info, int eol, void* userdata) {
    answer<List>(context, info, eol, userdata, [](PulseMirror& mirror, const pa_sink_info& sink) {
      mirror.applyDevice(deviceRecord(sink, true, PA_SINK_HARDWARE, PA_SINK_NETWORK));
    });
  }

  template <bool List>
  static void onSource(pa_context* context, const pa_source_info* info, int eol, void* userdata) {
    answer<List>(context, info, eol, userdata, [](PulseMirror& mirror, const pa_source_info& source) {
      PulseDeviceInfo device = deviceRecord(source, false, PA_SOURCE_HARDWARE, PA_SOURCE_NETWORK);
      device.isMonitor = source.monitor_of_sink != PA_INVALID_INDEX;
      mirror.applyDevice(device);
    });
  }

  template <bool List>
  static void onCard(pa_context* context, const pa_card_info* info, int eol, void* userdata) {
    answer<List>(context, info, eol, userdata, [](PulseMirror& mirror, const pa_card_info& card) {
      PulseCardInfo record{card.index, card.name ? card.name : "",
                           propertyOf(card.proplist, PA_PROP_DEVICE_DESCRIPTION).value_or(""),
                           deviceProperties(card.proplist), card.active_profile2 ? card.active_profile2->name : "", {}};
      for (std::uint32_t i = 0; i < card.n_profiles; ++i) {
        const pa_card_profile_info2& profile = *card.profiles2[i];
        record.profiles.push_back({profile.name, pulseProfileKind(profile.name), profile.priority,
                                   profile.available != 0});
      }
      mirror.applyCard(record);
    });
  }

  template <bool List>
  static void onClient(pa_context* context, const pa_client_info* info, int eol, void* userdata) {
    answer<List>(context, info, eol, userdata, [](PulseMirror& mirror, const pa_client_info& client) {
      mirror.applyClient(pulseClient(client.index, clientProperties(client.proplist)));
    });
  }

  template <bool List>
  static void onSinkInput(pa_context* context, const pa_sink_input_info* info, int eol, void* userdata) {
    answer<List>(context, info, eol, userdata, [](PulseMirror& mirror, const pa_sink_input_info& input) {
      mirror.applyStream(true, streamInfo(input), knownIndex(input.sink));
    });
  }

  template <bool List>
  static void onSourceOutput(pa_context* context, const pa_source_output_info* info, int eol, void* userdata) {
    answer<List>(context, info, eol, userdata, [](PulseMirror& mirror, const pa_source_output_info& output) {
      mirror.applyStream(false, streamInfo(output), knownIndex(output.source));
    });
  }

  PulseAudioHardware& owner_;
  MainQueue& main_;
  Options options_;
  pa_threaded_mainloop* loop_ = nullptr;
  pa_mainloop_api* api_ = nullptr;
  pa_context* context_ = nullptr;
  pa_context* dead_ = nullptr;
  pa_time_event* retry_ = nullptr;
  pa_time_event* confirm_ = nullptr;
  static constexpr double confirmDelay = 0.25;  // seconds: PipeWire's session manager decides in milliseconds
  static constexpr int maxUndecidedReads = 20;  // the defaults are read again for 5 s while undecided
  int undecidedReads_ = 0;
  double delay_;
  int pendingLists_ = 0;
};

PulseAudioHardware::PulseAudioHardware(MainQueue& main, Options options)
    : PulseMirror(main), connection_(std::make_unique<Connection>(*this, main, std::move(options))) {}

// The connection goes first: no callback may reach the mirror once it starts to go away.
PulseAudioHardware::~PulseAudioHardware() { connection_.reset(); }

void PulseAudioHardware::setState(bool ready, bool failed, const std::string& error) {
  std::lock_guard lock(stateMutex_);
  ready_ = ready;
  if (failed) {
    failedOnce_ = true;
    lastError_ = error;
  }
  stateChanged_.notify_all();
}

bool PulseAudioHardware::waitUntilReady(double seconds) {
  std::unique_lock lock(stateMutex_);
  stateChanged_.wait_for(lock, std::chrono::duration<double>(seconds), [&] { return ready_ || failedOnce_; });
  return ready_;
}

bool PulseAudioHardware::ready() const {
  std::lock_guard lock(stateMutex_);
  return ready_;
}

std::string PulseAudioHardware::lastError() const {
  std::lock_guard lock(stateMutex_);
  return lastError_;
}

// Reads follow a write at once; the server's answer confirms or mends it a moment later.
void PulseAudioHardware::setDefaultDevice(AudioProperty which, AudioObjectID device, WriteDone done) {
  const bool sink = which != AudioProperty::defaultInputDevice;
  const bool settable = which == AudioProperty::defaultInputDevice || which == AudioProperty::defaultOutputDevice ||
                        which == AudioProperty::defaultSystemOutputDevice;
  const auto name = settable ? deviceServerName(device, sink) : std::nullopt;
  if (!name) return connection_->refuse(std::move(done), sink ? "no such output device" : "no such input device");
  connection_->send(
      [&](pa_context* context, pa_context_success_cb_t answer, void* userdata) {
        return sink ? pa_context_set_default_sink(context, name->c_str(), answer, userdata)
                    : pa_context_set_default_source(context, name->c_str(), answer, userdata);
      },
      [&] { noteDefault(sink, *name); }, std::move(done));
}

void PulseAudioHardware::setCardProfile(AudioObjectID card, const std::string& profile, WriteDone done) {
  const auto name = cardServerName(card);
  if (!name) return connection_->refuse(std::move(done), "no such card");
  connection_->send(
      [&](pa_context* context, pa_context_success_cb_t answer, void* userdata) {
        return pa_context_set_card_profile_by_name(context, name->c_str(), profile.c_str(), answer, userdata);
      },
      [&] { noteCardProfile(card, profile); }, std::move(done));
}

}  // namespace wh::platform
