#pragma once
// The audio port on the PulseAudio protocol (PulseAudio itself, or PipeWire's pulse server),
// through libpulse's threaded main loop. The mirror (PulseMirror) follows the server's
// subscription events, so reads are synchronous, current and cheap. Writes (a default, a card's
// profile) are sent without waiting, so no caller blocks on the server; the mirror shows them at
// once, and their answers come on the main queue (a refusal after the mirror has read back what
// the server kept). When the server goes away the mirror empties, writes on their way are refused,
// and the adapter keeps trying to connect again; listeners stay registered and report what comes back.

#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>

#include "platform/linux/audio/PulseMirror.h"

namespace wh::platform {

class PulseAudioHardware final : public PulseMirror {
 public:
  struct Options {
    // The server to use ("unix:/path/native"); empty: libpulse's own search (PULSE_SERVER, the
    // user's runtime folder, ...). The server is never started on demand.
    std::string server;
    std::string clientName = "Wrenhaven";
    // The first wait before connecting again; it doubles up to maxReconnectDelay.
    double reconnectDelay = 0.25;
    double maxReconnectDelay = 2.0;
  };

  // Starts connecting at once, on the connection's own thread.
  PulseAudioHardware(MainQueue& main, Options options);
  explicit PulseAudioHardware(MainQueue& main) : PulseAudioHardware(main, Options()) {}
  ~PulseAudioHardware() override;

  // Waits until the mirror holds the server's objects, or the first try to connect has failed, or
  // the time is up. True when the mirror is up to date.
  bool waitUntilReady(double seconds);
  // Connected and up to date.
  bool ready() const;
  // Why the last connection failed or ended ("Connection refused", ...); empty before any failure.
  std::string lastError() const;

  void setDefaultDevice(AudioProperty which, AudioObjectID device, WriteDone done) override;
  void setCardProfile(AudioObjectID card, const std::string& profile, WriteDone done) override;

 private:
  class Connection;
  friend class Connection;

  void setState(bool ready, bool failed, const std::string& error);

  mutable std::mutex stateMutex_;
  std::condition_variable stateChanged_;
  bool ready_ = false;
  bool failedOnce_ = false;
  std::string lastError_;
  std::unique_ptr<Connection> connection_;
};

}  // namespace wh::platform
