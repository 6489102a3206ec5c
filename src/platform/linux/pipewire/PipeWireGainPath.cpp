#include "platform/linux/pipewire/PipeWireGainPath.h"

#include <pipewire/filter.h>
#include <pipewire/stream.h>
#include <pthread.h>
#include <sched.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <iterator>

#include "platform/linux/pipewire/PipeWireCalls.h"

namespace wh::platform {

namespace {

using Failure = PipeWireConnection::Failure;
using Global = PipeWireConnection::Global;

constexpr std::array<const char*, 2> channels{"FL", "FR"};
constexpr std::uint32_t tapRate = 48000;
// Above every ordinary thread, below the sound server's own (PipeWire's default is 88).
constexpr int graphThreadPriority = 20;
// The longest cycle PipeWire runs (its default clock.max-quantum), for the stand-in silence.
constexpr std::size_t maxQuantum = 8192;

std::optional<Failure> failed(const std::variant<Global, Failure>& answer, const std::string& what) {
  if (const auto* failure = std::get_if<Failure>(&answer)) {
    Failure out = *failure;
    out.message = what + (out.message.empty() ? "" : ": " + out.message);
    return out;
  }
  return std::nullopt;
}

bool is(const Global& global, const char* key, const std::string& value) {
  const std::string* found = global.property(key);
  return found != nullptr && *found == value;
}

// The node's audio ports in one direction, in channel order as far as the channel names go.
std::vector<Global> portsOf(PipeWireConnection& connection, std::uint32_t node, const char* direction, bool monitor) {
  std::vector<Global> ports;
  for (auto& port : connection.globals(PW_TYPE_INTERFACE_Port)) {
    if (is(port, PW_KEY_NODE_ID, std::to_string(node)) && is(port, PW_KEY_PORT_DIRECTION, direction) &&
        is(port, PW_KEY_PORT_MONITOR, "true") == monitor && !is(port, PW_KEY_PORT_CONTROL, "true")) {
      ports.push_back(std::move(port));
    }
  }
  std::sort(ports.begin(), ports.end(), [](const Global& a, const Global& b) { return a.id < b.id; });
  return ports;
}

// The port for the tap's channel `c`: the one with its channel name, else by position (a mono
// output takes both channels).
const Global& portFor(const std::vector<Global>& ports, std::size_t c) {
  const auto named = std::find_if(ports.begin(), ports.end(), [&](const Global& p) { return is(p, PW_KEY_AUDIO_CHANNEL, channels[c]); });
  return named != ports.end() ? *named : ports[c % ports.size()];
}

// Waits until the node has `count` ports in `direction`.
std::variant<std::vector<Global>, Failure> waitForPorts(PipeWireConnection& connection, std::uint32_t node,
                                                        const char* direction, bool monitor, std::size_t count,
                                                        const std::string& what) {
  std::vector<Global> ports;
  const auto answer = connection.waitForGlobal(PW_TYPE_INTERFACE_Port, [&](const Global&) {
    ports = portsOf(connection, node, direction, monitor);
    return ports.size() >= count;
  });
  if (auto failure = failed(answer, what)) return *failure;
  return ports;
}

}  // namespace

struct PipeWireGainPath::Hooks {
  spa_hook filter{}, capture{}, playback{};
};

PipeWireGainPath::PipeWireGainPath(std::unique_ptr<PipeWireConnection> connection, GainBox& box)
    : connection_(std::move(connection)), box_(box), silence_(maxQuantum), hooks_(std::make_unique<Hooks>()) {}

PipeWireGainPath::Started PipeWireGainPath::start(const Request& request, GainBox& box) {
  auto opened = PipeWireConnection::open(request.connection);
  if (auto* failure = std::get_if<Failure>(&opened)) return *failure;
  std::unique_ptr<PipeWireGainPath> path(
      new PipeWireGainPath(std::move(std::get<std::unique_ptr<PipeWireConnection>>(opened)), box));
  const auto failure =
      request.design == Design::filter ? path->buildFilter(request) : path->buildStreamPair(request);
  if (failure) return *failure;
  return path;
}

PipeWireGainPath::~PipeWireGainPath() {
  connection_->locked([&] {
    for (pw_proxy* link : links_) pw_proxy_destroy(link);
    if (filter_ != nullptr) pw_filter_destroy(filter_);
    for (pw_stream* stream : {capture_, playback_}) {
      if (stream != nullptr) pw_stream_destroy(stream);
    }
  });
  // The connection ends after: the daemon removes whatever of the agent's it still holds.
}

std::optional<Failure> PipeWireGainPath::buildFilter(const Request& request) {
  PipeWireConnection& pw = *connection_;
  const auto sink = pw.waitForGlobal(PW_TYPE_INTERFACE_Node, {{PW_KEY_NODE_NAME, request.sinkName}});
  if (auto failure = failed(sink, "the tap sink " + request.sinkName)) return failure;
  const auto output = pw.waitForGlobal(PW_TYPE_INTERFACE_Node, {{PW_KEY_NODE_NAME, request.outputName}});
  if (auto failure = failed(output, "the output " + request.outputName)) return failure;
  const std::uint32_t sinkID = std::get<Global>(sink).id, outputID = std::get<Global>(output).id;

  const std::string nodeName = request.sinkName + ".gain";
  static const pw_filter_events events = [] {
    pw_filter_events e{};
    e.version = PW_VERSION_FILTER_EVENTS;
    e.process = [](void* self, spa_io_position* position) {
      if (position != nullptr) {
        static_cast<PipeWireGainPath*>(self)->process(static_cast<std::uint32_t>(position->clock.duration),
                                                      position->clock.rate.denom);
      }
    };
    e.state_changed = [](void* self, pw_filter_state, pw_filter_state, const char*) {
      static_cast<PipeWireGainPath*>(self)->connection_->signal();
    };
    return e;
  }();
  const bool made = pw.locked([&] {
    // No media.class: the session manager makes no device of it and leaves its links alone.
    filter_ = pw_filter_new(pw.core(), ("Wrenhaven " + request.label).c_str(),
                            pw_properties_new(PW_KEY_MEDIA_TYPE, "Audio", PW_KEY_MEDIA_CATEGORY, "Filter",
                                              PW_KEY_MEDIA_ROLE, "DSP", PW_KEY_NODE_NAME, nodeName.c_str(),
                                              PW_KEY_NODE_DESCRIPTION, ("Wrenhaven " + request.label).c_str(),
                                              nullptr));
    if (filter_ == nullptr) return false;
    pw_filter_add_listener(filter_, &hooks_->filter, &events, this);
    for (const char* channel : channels) {
      for (const bool input : {true, false}) {
        const std::string name = std::string(input ? "input_" : "output_") + channel;
        void* port = pw_filter_add_port(
            filter_, input ? PW_DIRECTION_INPUT : PW_DIRECTION_OUTPUT, PW_FILTER_PORT_FLAG_MAP_BUFFERS, 0,
            pw_properties_new(PW_KEY_FORMAT_DSP, "32 bit float mono audio", PW_KEY_PORT_NAME, name.c_str(),
                              PW_KEY_AUDIO_CHANNEL, channel, nullptr),
            nullptr, 0);
        if (port == nullptr) return false;
        (input ? inputs_ : outputs_).push_back(port);
      }
    }
    return pw_filter_connect(filter_, PW_FILTER_FLAG_RT_PROCESS, nullptr, 0) == 0;
  });
  if (!made) return Failure{Failure::Kind::refused, -errno, "could not make the gain node"};
  // By its id: an earlier tap of the same sink (for the output before) has a node of the same name.
  std::uint32_t nodeID = SPA_ID_INVALID;
  if (auto failure = pw.locked([&] {
        return pw.waitLocked([&] { return (nodeID = pw_filter_get_node_id(filter_)) != SPA_ID_INVALID; });
      })) {
    failure->message = "the gain node" + (failure->message.empty() ? "" : ": " + failure->message);
    return failure;
  }

  const auto monitors = waitForPorts(pw, sinkID, "out", true, channels.size(), "the tap sink's monitor ports");
  const auto ins = waitForPorts(pw, nodeID, "in", false, channels.size(), "the gain node's input ports");
  const auto outs = waitForPorts(pw, nodeID, "out", false, channels.size(), "the gain node's output ports");
  const auto playback = waitForPorts(pw, outputID, "in", false, 1, "the output's playback ports");
  for (const auto* answer : {&monitors, &ins, &outs, &playback}) {
    if (const auto* failure = std::get_if<Failure>(answer)) return *failure;
  }
  // The way out first: the node plays silence until its input is linked.
  for (std::size_t c = 0; c < channels.size(); ++c) {
    const auto& own = std::get<std::vector<Global>>(outs);
    if (auto failure = link(portFor(own, c).id, portFor(std::get<std::vector<Global>>(playback), c).id)) return failure;
  }
  for (std::size_t c = 0; c < channels.size(); ++c) {
    const auto& own = std::get<std::vector<Global>>(ins);
    if (auto failure = link(portFor(std::get<std::vector<Global>>(monitors), c).id, portFor(own, c).id)) return failure;
  }
  return std::nullopt;
}

std::optional<Failure> PipeWireGainPath::link(std::uint32_t fromPort, std::uint32_t toPort) {
  PipeWireConnection& pw = *connection_;
  const std::string from = std::to_string(fromPort), to = std::to_string(toPort);
  const bool made = pw.locked([&] {
    const spa_dict_item items[] = {{PW_KEY_LINK_OUTPUT_PORT, from.c_str()},
                                   {PW_KEY_LINK_INPUT_PORT, to.c_str()},
                                   {PW_KEY_OBJECT_LINGER, "false"}};
    const spa_dict properties{0, static_cast<std::uint32_t>(std::size(items)), items};
    pw_proxy* proxy = pw::createObject(pw.core(), "link-factory", PW_TYPE_INTERFACE_Link, PW_VERSION_LINK, &properties);
    if (proxy != nullptr) links_.push_back(proxy);
    return proxy != nullptr;
  });
  if (!made) return Failure{Failure::Kind::refused, -errno, "could not ask for a link"};
  if (auto failure = pw.roundtrip()) {
    failure->message = "linking port " + from + " to " + to + (failure->message.empty() ? "" : ": " + failure->message);
    return failure;
  }
  return failed(pw.waitForGlobal(PW_TYPE_INTERFACE_Link, {{PW_KEY_LINK_OUTPUT_PORT, from}, {PW_KEY_LINK_INPUT_PORT, to}}),
                "the link from port " + from + " to " + to);
}

// The connection's data loop runs the node on a thread of the tap's own; it carries the tap's
// name, as the pulse protocol's audio thread does, and runs at real-time priority where the
// system allows it: libpipewire's client configuration loads no real-time module, and the graph
// waits for the node in every cycle (a few milliseconds), which an ordinary thread on a busy
// machine misses now and then.
void PipeWireGainPath::enterGraphThread() {
  if (cycles_.load(std::memory_order_relaxed) != 0) return;
  pthread_setname_np(pthread_self(), "wrenhaven.tap");
  const sched_param priority{graphThreadPriority};
  pthread_setschedparam(pthread_self(), SCHED_FIFO, &priority);
}

// On the graph's real-time thread, once per cycle.
void PipeWireGainPath::process(std::uint32_t frames, std::uint32_t rate) {
  enterGraphThread();
  quantum_.store(frames, std::memory_order_relaxed);
  rate_.store(rate, std::memory_order_relaxed);
  cycles_.fetch_add(1, std::memory_order_relaxed);
  frames = std::min<std::uint32_t>(frames, maxQuantum);
  std::array<InputAudioBuffer, channels.size()> in{};
  std::array<AudioBuffer, channels.size()> out{};
  const auto bytes = static_cast<std::uint32_t>(frames * sizeof(float));
  for (std::size_t c = 0; c < channels.size(); ++c) {
    const auto* source = static_cast<const float*>(pw_filter_get_dsp_buffer(inputs_[c], frames));
    if (source == nullptr && c == 0) starved_.fetch_add(1, std::memory_order_relaxed);
    in[c] = {1, bytes, source != nullptr ? source : silence_.data()};
    out[c] = {1, bytes, static_cast<float*>(pw_filter_get_dsp_buffer(outputs_[c], frames))};
  }
  GainMixer::render(in, out, static_cast<std::uint32_t>(channels.size()), box_);
}

std::optional<Failure> PipeWireGainPath::buildStreamPair(const Request& request) {
  PipeWireConnection& pw = *connection_;
  const std::string group = request.sinkName + ".group";
  static const pw_stream_events captureEvents = [] {
    pw_stream_events e{};
    e.version = PW_VERSION_STREAM_EVENTS;
    e.process = [](void* self) { static_cast<PipeWireGainPath*>(self)->processPair(); };
    e.state_changed = [](void* self, pw_stream_state, pw_stream_state, const char*) {
      static_cast<PipeWireGainPath*>(self)->connection_->signal();
    };
    return e;
  }();
  static const pw_stream_events playbackEvents = [] {
    pw_stream_events e{};
    e.version = PW_VERSION_STREAM_EVENTS;
    e.state_changed = captureEvents.state_changed;
    return e;
  }();
  const bool made = pw.locked([&] {
    const auto make = [&](const char* category, const std::string& name, const std::string& target, bool monitor) {
      pw_properties* props = pw_properties_new(PW_KEY_MEDIA_TYPE, "Audio", PW_KEY_MEDIA_CATEGORY, category,
                                               PW_KEY_NODE_NAME, name.c_str(), PW_KEY_TARGET_OBJECT, target.c_str(),
                                               PW_KEY_NODE_GROUP, group.c_str(), PW_KEY_NODE_DONT_RECONNECT, "true",
                                               PW_KEY_STREAM_CAPTURE_SINK, monitor ? "true" : "false", nullptr);
      return pw_stream_new(pw.core(), ("Wrenhaven " + request.label).c_str(), props);
    };
    capture_ = make("Capture", request.sinkName + ".capture", request.sinkName, true);
    playback_ = make("Playback", request.sinkName + ".playback", request.outputName, false);
    if (capture_ == nullptr || playback_ == nullptr) return false;
    pw_stream_add_listener(capture_, &hooks_->capture, &captureEvents, this);
    pw_stream_add_listener(playback_, &hooks_->playback, &playbackEvents, this);
    std::array<std::uint8_t, 512> buffer{};
    spa_pod_builder builder{};
    spa_pod_builder_init(&builder, buffer.data(), static_cast<std::uint32_t>(buffer.size()));
    const spa_pod* format = pw::stereoFloatFormat(&builder, tapRate);
    const auto flags = static_cast<pw_stream_flags>(PW_STREAM_FLAG_AUTOCONNECT | PW_STREAM_FLAG_MAP_BUFFERS |
                                                    PW_STREAM_FLAG_RT_PROCESS);
    return pw_stream_connect(playback_, PW_DIRECTION_OUTPUT, PW_ID_ANY, flags, &format, 1) == 0 &&
           pw_stream_connect(capture_, PW_DIRECTION_INPUT, PW_ID_ANY, flags, &format, 1) == 0;
  });
  if (!made) return Failure{Failure::Kind::refused, -errno, "could not make the gain streams"};
  // Linked by the session manager: the capture to the sink's monitor, the playback to the output.
  for (const auto& [name, key] : {std::pair{request.sinkName + ".capture", PW_KEY_LINK_INPUT_NODE},
                                  std::pair{request.sinkName + ".playback", PW_KEY_LINK_OUTPUT_NODE}}) {
    const auto node = pw.waitForGlobal(PW_TYPE_INTERFACE_Node, {{PW_KEY_NODE_NAME, name}});
    if (auto failure = failed(node, name)) return failure;
    const auto linked = pw.waitForGlobal(PW_TYPE_INTERFACE_Link, {{key, std::to_string(std::get<Global>(node).id)}});
    if (auto failure = failed(linked, "a link of " + name)) return failure;
  }
  return std::nullopt;
}

// On the graph's real-time thread: what the capture stream got goes to the playback stream.
void PipeWireGainPath::processPair() {
  enterGraphThread();
  pw_buffer* in = pw_stream_dequeue_buffer(capture_);
  if (in == nullptr) {
    starved_.fetch_add(1, std::memory_order_relaxed);
    return;
  }
  pw_buffer* out = pw_stream_dequeue_buffer(playback_);
  if (out != nullptr) {
    const spa_data& source = in->buffer->datas[0];
    spa_data& target = out->buffer->datas[0];
    const std::uint32_t offset = std::min(source.chunk->offset, source.maxsize);
    const std::uint32_t bytes = std::min(std::min(source.chunk->size, source.maxsize - offset), target.maxsize);
    const InputAudioBuffer input{static_cast<std::uint32_t>(channels.size()), bytes,
                                 source.data != nullptr ? static_cast<const float*>(source.data) + offset / sizeof(float) : nullptr};
    const AudioBuffer output{static_cast<std::uint32_t>(channels.size()), bytes, static_cast<float*>(target.data)};
    GainMixer::render({&input, 1}, {&output, 1}, static_cast<std::uint32_t>(channels.size()), box_);
    target.chunk->offset = 0;
    target.chunk->size = bytes;
    target.chunk->stride = static_cast<std::int32_t>(channels.size() * sizeof(float));
    const std::uint32_t frames = bytes / static_cast<std::uint32_t>(channels.size() * sizeof(float));
    quantum_.store(frames, std::memory_order_relaxed);
    rate_.store(tapRate, std::memory_order_relaxed);
    cycles_.fetch_add(1, std::memory_order_relaxed);
    pw_stream_queue_buffer(playback_, out);
  }
  pw_stream_queue_buffer(capture_, in);
}

}  // namespace wh::platform
