#pragma once
// Connects and disconnects the user's headphones, keeps a connection phase for each, and tells
// the rest of the agent when headphones connected (and why) or disconnected. Blocking Bluetooth
// calls run on the "wrenhaven.bluetooth" queue; all state lives on the main thread.

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>

#include "core/bluetooth/BluetoothPorts.h"
#include "core/runtime/Runtime.h"
#include "core/settings/Settings.h"

namespace wh {

enum class ConnectReason { user, wake, repair, external };
const char* caseName(ConnectReason reason);

class BluetoothManager {
 public:
  class Phase {
   public:
    enum class Kind { failed, disconnected, connecting, connected, disconnecting };
    static Phase failed(std::string message) { return Phase(Kind::failed, std::move(message)); }
    static Phase disconnected() { return Phase(Kind::disconnected); }
    static Phase connecting() { return Phase(Kind::connecting); }
    static Phase connected() { return Phase(Kind::connected); }
    static Phase disconnecting() { return Phase(Kind::disconnecting); }

    Kind kind() const { return kind_; }
    const std::string& message() const { return message_; }
    // "disconnected", "connecting", "connected", "disconnecting", or "failed:" + the message.
    std::string text() const;
    friend bool operator==(const Phase&, const Phase&) = default;

   private:
    explicit Phase(Kind kind, std::string message = {}) : kind_(kind), message_(std::move(message)) {}
    Kind kind_;
    std::string message_;
  };

  using Paired = PairedDevice;

  static constexpr const char* queueLabel = "wrenhaven.bluetooth";
  // Closing links before sleep has a queue of its own, so it never waits behind a connect (which
  // may take its whole time limit) while the machine waits to sleep.
  static constexpr const char* sleepQueueLabel = "wrenhaven.bluetooth.sleep";
  static constexpr double slowPollInterval = 30.0;
  static constexpr double slowPollTolerance = 10.0;
  static constexpr double fastPollInterval = 1.0;
  static constexpr double fastPollTolerance = 0.2;
  static constexpr double fastPollDuration = 10.0;
  static constexpr double settleDelay = 1.0;
  static constexpr double wakeDelay = 3.0;
  // How often settling re-reads a state the stack could not give before it gives up on the
  // link (the close was asked for, so it counts as closed).
  static constexpr int settleReads = 10;

  BluetoothManager(Runtime& runtime, Settings& settings, BluetoothStack& stack, SleepWatcher& sleep);
  BluetoothManager(const BluetoothManager&) = delete;
  BluetoothManager& operator=(const BluetoothManager&) = delete;

  std::function<void()> onChange;
  std::function<void(const std::string& address, ConnectReason reason)> onConnected;
  std::function<void(const std::string& address)> onDisconnected;

  // Registers for connection notifications, starts the slow poll, follows sleep and wake, and
  // reads every headphone's state once.
  void start();
  // Whether `start` has registered for connection notifications.
  bool started() const { return connectNote_ != nullptr; }

  // The one-click action: connect when not connected, disconnect when connected.
  void toggle(const std::string& address);
  // One connect with its retries; `completion` gets the final result exactly once.
  void connect(const std::string& address, ConnectReason reason, int attempt,
               std::function<void(bool)> completion = nullptr);
  // Closes the connection; the caller has set the phase to `disconnecting`.
  void disconnect(const std::string& address, std::function<void()> completion = nullptr);
  // Re-reads the connection state of every remembered headphone.
  void refresh();
  // Stores a phase; calls `onChange` only when it differs from the stored one.
  void set(const std::string& address, const Phase& phase);

  const std::map<std::string, Phase>& phase() const { return phase_; }
  // The phase of one headphone; absent ones read as nothing.
  std::optional<Phase> phaseOf(const std::string& address) const;
  SerialQueue& queue() { return *queue_; }
  // The paired Bluetooth audio devices, in the stack's order; none while the stack cannot be asked.
  std::vector<Paired> pairedAudioDevices() const { return stack_.pairedAudioDevices().valueOr({}); }
  // Whether Bluetooth can be used at all; a change calls `onChange` (followed from the start,
  // before `start`, so that the guide and the panel can say what stops it).
  BluetoothAdapterState adapterState() const { return stack_.adapterState(); }

  static std::string describe(BluetoothStatus status);
  static int maxAttempts(ConnectReason reason);
  // The delay before the attempt after `failedAttempt`.
  static double retryDelay(ConnectReason reason, int failedAttempt);

 private:
  void deviceConnected(const std::string& address);
  void deviceDisconnected(const std::string& address);
  void willSleep(std::function<void()> done);
  void didWake();
  void settle(const std::string& address, int read = 1);
  void startFastPoll();
  void finishConnect(const std::string& address, ConnectReason reason, int attempt,
                     const BluetoothResult<BluetoothStatus>& result, std::function<void(bool)> completion);

  Runtime& runtime_;
  Settings& settings_;
  BluetoothStack& stack_;
  SleepWatcher& sleep_;
  std::map<std::string, Phase> phase_;
  std::shared_ptr<SerialQueue> sleepQueue_;
  std::shared_ptr<SerialQueue> queue_;
  std::unique_ptr<Registration> connectNote_;
  std::unique_ptr<Registration> sleepNote_;
  std::unique_ptr<Registration> adapterNote_;
  // Headphones whose disconnect notifications are wanted (registered while connected).
  std::set<std::string> disconnectNotes_;
  std::unique_ptr<RepeatingTimer> poll_;
  double fastPollUntil_ = 0;
  std::unique_ptr<RepeatingTimer> fastPoll_;
  HeldWork wakeWork_;
  Lifetime lifetime_;
};

}  // namespace wh
