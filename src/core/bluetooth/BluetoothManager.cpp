#include "core/bluetooth/BluetoothManager.h"

#include <cstdio>
#include <vector>

#include "core/log/Log.h"
#include "core/settings/Address.h"

namespace wh {

const char* caseName(ConnectReason reason) {
  switch (reason) {
    case ConnectReason::user:
      return "user";
    case ConnectReason::wake:
      return "wake";
    case ConnectReason::repair:
      return "repair";
    case ConnectReason::external:
      return "external";
  }
  return "user";
}

std::string BluetoothManager::Phase::text() const {
  switch (kind_) {
    case Kind::failed:
      return "failed:" + message_;
    case Kind::disconnected:
      return "disconnected";
    case Kind::connecting:
      return "connecting";
    case Kind::connected:
      return "connected";
    case Kind::disconnecting:
      return "disconnecting";
  }
  return "disconnected";
}

namespace {

std::string hexStatus(BluetoothStatus status) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%08x", static_cast<unsigned>(status));
  return text;
}

// The status a connect ends with when the stack could not be asked.
BluetoothStatus statusWhenNotAsked(BluetoothError error) {
  return error == BluetoothError::bluetoothOff ? BluetoothStatus::bluetoothOff : BluetoothStatus::failed;
}

}  // namespace

BluetoothManager::BluetoothManager(Runtime& runtime, Settings& settings, BluetoothStack& stack, SleepWatcher& sleep)
    : runtime_(runtime),
      settings_(settings),
      stack_(stack),
      sleep_(sleep),
      sleepQueue_(runtime.makeSerialQueue(sleepQueueLabel, QueuePriority::userInitiated)),
      queue_(runtime.makeSerialQueue(queueLabel, QueuePriority::userInitiated)),
      adapterNote_(stack_.observeAdapter([this] {
        if (onChange) onChange();
      })) {}

std::string BluetoothManager::describe(BluetoothStatus status) {
  switch (status) {
    case BluetoothStatus::success:
      return "";
    case BluetoothStatus::bluetoothOff:
      return "Bluetooth is off";
    case BluetoothStatus::timeout:
      return "The device did not answer";
    case BluetoothStatus::notFound:
      return "The device is out of range";
    case BluetoothStatus::failed:
      break;
  }
  return "Could not connect";
}

int BluetoothManager::maxAttempts(ConnectReason reason) {
  switch (reason) {
    case ConnectReason::user:
    case ConnectReason::repair:
      return 2;
    case ConnectReason::wake:
      return 4;
    case ConnectReason::external:
      return 1;
  }
  return 1;
}

double BluetoothManager::retryDelay(ConnectReason reason, int failedAttempt) {
  switch (reason) {
    case ConnectReason::wake:
      return 3.0 * failedAttempt;
    case ConnectReason::user:
    case ConnectReason::repair:
      return 1.5;
    case ConnectReason::external:
      return 0;
  }
  return 0;
}

std::optional<BluetoothManager::Phase> BluetoothManager::phaseOf(const std::string& address) const {
  auto found = phase_.find(normalizeAddress(address));
  if (found == phase_.end()) return std::nullopt;
  return found->second;
}

void BluetoothManager::set(const std::string& address, const Phase& phase) {
  const std::string key = normalizeAddress(address);
  auto found = phase_.find(key);
  if (found != phase_.end() && found->second == phase) return;
  phase_.insert_or_assign(key, phase);
  if (onChange) onChange();
}

void BluetoothManager::start() {
  connectNote_ = stack_.observeConnections(
      lifetime_.guard([this](const std::string& address) { deviceConnected(address); }),
      lifetime_.guard([this](const std::string& address) { deviceDisconnected(address); }),
      lifetime_.guard([this] { refresh(); }));
  poll_ = runtime_.main().every(slowPollInterval, slowPollTolerance, lifetime_.guard([this] { refresh(); }));
  sleepNote_ = sleep_.observe(lifetime_.guard([this](std::function<void()> done) { willSleep(std::move(done)); }),
                              lifetime_.guard([this] { didWake(); }));
  refresh();
}

void BluetoothManager::toggle(const std::string& rawAddress) {
  const std::string address = normalizeAddress(rawAddress);
  const auto current = phaseOf(address);
  const auto kind = current ? current->kind() : Phase::Kind::disconnected;
  if (kind == Phase::Kind::connecting || kind == Phase::Kind::disconnecting) return;
  if (kind == Phase::Kind::connected) {
    for (const auto& device : settings_.devices()) {
      if (normalizeAddress(device.address) == address && device.connectOnly) {
        // Stays connected; the sound is moved to the headphones again.
        if (onConnected) onConnected(address, ConnectReason::user);
        return;
      }
    }
    set(address, Phase::disconnecting());
    disconnect(address);
    return;
  }
  connect(address, ConnectReason::user, 1);
}

void BluetoothManager::connect(const std::string& rawAddress, ConnectReason reason, int attempt,
                               std::function<void(bool)> completion) {
  const std::string address = normalizeAddress(rawAddress);
  set(address, Phase::connecting());
  Log::info("connecting " + address + " (" + caseName(reason) + ", attempt " + std::to_string(attempt) + ")");
  BluetoothStack& stack = stack_;
  runThenMain<BluetoothResult<BluetoothStatus>>(
      *queue_, runtime_.main(), lifetime_,
      [&stack, address]() -> BluetoothResult<BluetoothStatus> {
        const auto connected = stack.isConnected(address);
        if (!connected) return connected.error();
        if (*connected) return BluetoothStatus::success;
        return stack.openConnection(address);
      },
      [this, address, reason, attempt, completion = std::move(completion)](BluetoothResult<BluetoothStatus> result) {
        finishConnect(address, reason, attempt, result, completion);
      });
}

void BluetoothManager::finishConnect(const std::string& address, ConnectReason reason, int attempt,
                                     const BluetoothResult<BluetoothStatus>& result,
                                     std::function<void(bool)> completion) {
  if (!result && result.error() == BluetoothError::unknownDevice) {
    // The stack knows no such device: nothing to retry.
    set(address, Phase::failed("Unknown device"));
    if (completion) completion(false);
    return;
  }
  // A stack that could not be asked is asked again on the normal retry schedule.
  const auto status = result ? *result : statusWhenNotAsked(result.error());
  if (status == BluetoothStatus::success) {
    disconnectNotes_.insert(address);
    set(address, Phase::connected());
    startFastPoll();
    if (onConnected) onConnected(address, reason);
    if (completion) completion(true);
    return;
  }
  if (attempt < maxAttempts(reason)) {
    runtime_.main().after(retryDelay(reason, attempt),
                          lifetime_.guard([this, address, reason, attempt, completion] {
                            connect(address, reason, attempt + 1, completion);
                          }));
    return;
  }
  Log::info("connect failed for " + address + ": " + hexStatus(status));
  set(address, Phase::failed(describe(status)));
  startFastPoll();
  if (completion) completion(false);
}

void BluetoothManager::disconnect(const std::string& rawAddress, std::function<void()> completion) {
  const std::string address = normalizeAddress(rawAddress);
  BluetoothStack& stack = stack_;
  runThenMain<BluetoothStatus>(
      *queue_, runtime_.main(), lifetime_,
      [&stack, address] { return stack.closeConnection(address).valueOr(BluetoothStatus::success); },
      [this, address, completion = std::move(completion)](BluetoothStatus status) {
        if (status != BluetoothStatus::success) {
          Log::info("disconnect failed for " + address + ": " + hexStatus(status));
        }
        settle(address);
        if (completion) completion();
      });
}

void BluetoothManager::settle(const std::string& address, int read) {
  runtime_.main().after(settleDelay, lifetime_.guard([this, address, read] {
    const auto state = stack_.isConnected(address);
    if (!state.answered() && read < settleReads) {
      settle(address, read + 1);
      return;
    }
    if (!state.answered()) Log::error("could not read the state of " + address + " after closing it");
    const bool connected = state.valueOr(false);
    set(address, connected ? Phase::connected() : Phase::disconnected());
    if (!connected && onDisconnected) onDisconnected(address);
    startFastPoll();
  }));
}

void BluetoothManager::startFastPoll() {
  fastPollUntil_ = runtime_.clock().now() + fastPollDuration;
  if (fastPoll_) return;
  fastPoll_ = runtime_.main().every(fastPollInterval, fastPollTolerance, lifetime_.guard([this] {
    refresh();
    if (runtime_.clock().now() > fastPollUntil_) fastPoll_.reset();
  }));
}

void BluetoothManager::refresh() {
  const auto read = stack_.connectionStates();
  // A stack that could not be asked says nothing about the headphones.
  if (!read) return;
  const auto& states = *read;
  for (const auto& device : settings_.devices()) {
    const std::string address = normalizeAddress(device.address);
    const auto state = states.find(address);
    const bool connected = state != states.end() && state->second;
    if (connected) {
      disconnectNotes_.insert(address);
    } else {
      disconnectNotes_.erase(address);
    }
    const auto current = phaseOf(address);
    if (current) {
      const auto kind = current->kind();
      if (kind == Phase::Kind::connecting || kind == Phase::Kind::disconnecting) continue;
      // A failed connect stays on show while the headphones stay disconnected.
      const bool agrees = connected ? kind == Phase::Kind::connected : kind != Phase::Kind::connected;
      if (agrees) continue;
    }
    set(address, connected ? Phase::connected() : Phase::disconnected());
  }
}

void BluetoothManager::deviceConnected(const std::string& rawAddress) {
  const std::string address = normalizeAddress(rawAddress);
  bool known = false;
  for (const auto& device : settings_.devices()) known = known || normalizeAddress(device.address) == address;
  if (!known) return;
  disconnectNotes_.insert(address);
  const auto current = phaseOf(address);
  if (current && current->kind() == Phase::Kind::connected) return;
  set(address, Phase::connected());
  if (onConnected) onConnected(address, ConnectReason::external);
}

void BluetoothManager::deviceDisconnected(const std::string& rawAddress) {
  const std::string address = normalizeAddress(rawAddress);
  // Only headphones registered while connected report their disconnection.
  if (disconnectNotes_.erase(address) == 0) return;
  const auto current = phaseOf(address);
  if (current && (current->kind() == Phase::Kind::connecting || current->kind() == Phase::Kind::disconnected)) {
    return;
  }
  set(address, Phase::disconnected());
  if (onDisconnected) onDisconnected(address);
}

void BluetoothManager::willSleep(std::function<void()> done) {
  wakeWork_.cancel();
  std::vector<std::string> closing;
  for (const auto& device : settings_.devices()) {
    const std::string address = normalizeAddress(device.address);
    const auto current = phaseOf(address);
    if (!device.disconnectOnSleep || !current || current->kind() != Phase::Kind::connected) continue;
    Log::info("disconnecting " + device.name + " for sleep");
    closing.push_back(address);
  }
  // Not behind a connect still on the Bluetooth queue; the machine waits for `done`.
  BluetoothStack& stack = stack_;
  sleepQueue_->async([&stack, closing = std::move(closing), done = std::move(done)] {
    for (const auto& address : closing) stack.closeConnection(address);
    if (done) done();
  });
}

void BluetoothManager::didWake() {
  wakeWork_ = runtime_.main().after(wakeDelay, lifetime_.guard([this] {
    for (const auto& device : settings_.devices()) {
      if (!device.connectOnWake) continue;
      const auto current = phaseOf(device.address);
      // Headphones already connected, or with an operation in flight, are left alone.
      if (current && (current->kind() == Phase::Kind::connected || current->kind() == Phase::Kind::connecting ||
                      current->kind() == Phase::Kind::disconnecting)) {
        continue;
      }
      connect(device.address, ConnectReason::wake, 1);
    }
  }));
}

}  // namespace wh
