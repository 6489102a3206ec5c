#pragma once
// A gain tap's path from its sink to the output device inside PipeWire's own graph, on the
// output's clock: the tap sink's monitor ports feed a node of the agent's that applies the gain
// (GainMixer::render, in the node's real-time process call) and feeds the output's playback ports.
// The node runs in the same graph cycle as the sink and the output, so it adds no delay of its own
// and needs no rate control.
//
// Two ways of building it (measured side by side by bench/tap_rig):
//   - filter: one pw_filter with two mono input and two mono output ports, and four links the
//     agent makes itself with the "link-factory". The node has no media.class, so the session
//     manager (WirePlumber) neither offers it as a device nor manages its links; they end with the
//     agent's connection.
//   - streamPair: a capture stream of the sink's monitor and a playback stream to the output
//     (stream.capture.sink, target.object), linked by the session manager, in one node.group so
//     one driver runs both; the capture's process call writes into the playback stream.
//
// Everything is torn down by the destructor (the links and nodes go with the connection).

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <variant>
#include <vector>

#include "core/volume/GainMixer.h"
#include "platform/linux/pipewire/PipeWireConnection.h"

struct pw_filter;
struct pw_stream;

namespace wh::platform {

class PipeWireGainPath {
 public:
  enum class Design { filter, streamPair };
  struct Request {
    PipeWireConnection::Options connection;
    std::string sinkName;    // the tap sink's node.name
    std::string outputName;  // the output device's node.name
    std::string label;       // the application, for the node's name and description
    Design design = Design::filter;
  };
  using Started = std::variant<std::unique_ptr<PipeWireGainPath>, PipeWireConnection::Failure>;

  // Builds the path and waits until it is linked; the gain is read from `box` in every cycle.
  static Started start(const Request& request, GainBox& box);
  ~PipeWireGainPath();
  PipeWireGainPath(const PipeWireGainPath&) = delete;
  PipeWireGainPath& operator=(const PipeWireGainPath&) = delete;

  // The graph's cycle as the node last ran in it: frames per cycle and the rate (0 before).
  std::uint32_t quantum() const { return quantum_.load(std::memory_order_relaxed); }
  std::uint32_t rate() const { return rate_.load(std::memory_order_relaxed); }
  std::uint64_t cycles() const { return cycles_.load(std::memory_order_relaxed); }
  // Cycles in which the sink's sound had not reached the node (it played silence).
  std::uint64_t starvedCycles() const { return starved_.load(std::memory_order_relaxed); }
  // Whether the connection to the daemon still holds.
  bool connected() const { return connection_->connected(); }

 private:
  PipeWireGainPath(std::unique_ptr<PipeWireConnection> connection, GainBox& box);
  std::optional<PipeWireConnection::Failure> buildFilter(const Request& request);
  std::optional<PipeWireConnection::Failure> buildStreamPair(const Request& request);
  std::optional<PipeWireConnection::Failure> link(std::uint32_t fromPort, std::uint32_t toPort);
  void process(std::uint32_t frames, std::uint32_t rate);
  void processPair();
  void enterGraphThread();

  std::unique_ptr<PipeWireConnection> connection_;
  GainBox& box_;
  pw_filter* filter_ = nullptr;
  pw_stream* capture_ = nullptr;
  pw_stream* playback_ = nullptr;
  std::vector<void*> inputs_, outputs_;  // the filter's ports, owned by the filter
  std::vector<struct pw_proxy*> links_;
  std::vector<float> silence_;  // stands in for an input port without a buffer
  struct Hooks;
  std::unique_ptr<Hooks> hooks_;
  std::atomic<std::uint32_t> quantum_{0}, rate_{0};
  std::atomic<std::uint64_t> cycles_{0}, starved_{0};
};

}  // namespace wh::platform
