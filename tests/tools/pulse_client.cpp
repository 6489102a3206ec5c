// A sound server client that tests can steer: one playback stream of silence, or one capture
// stream, corked on SIGUSR1 and uncorked on SIGUSR2 (which pacat and parecord cannot do).
//
//   pulse_client [--record] [--peak] [--corked] [--for SECONDS]
//
// Connects where PULSE_SERVER points (PULSE_PROP sets its properties) and prints "ready" once the
// stream is set up. --peak records the way level meters do (peak detection); --for ends it after
// SECONDS. Exits 0 on SIGTERM, 1 on failure.
#include <pulse/pulseaudio.h>

#include <csignal>
#include <cstdio>
#include <string>
#include <vector>

namespace {

struct Client {
  pa_mainloop* loop = nullptr;
  pa_stream* stream = nullptr;
  bool record = false, peak = false, corked = false;
  double seconds = 0;
};

void onSignal(pa_mainloop_api* api, pa_signal_event*, int signal, void* userdata) {
  auto* client = static_cast<Client*>(userdata);
  if (signal != SIGUSR1 && signal != SIGUSR2) return api->quit(api, 0);
  if (client->stream == nullptr) return;
  if (pa_operation* op = pa_stream_cork(client->stream, signal == SIGUSR1, nullptr, nullptr)) pa_operation_unref(op);
}

void onStreamState(pa_stream* stream, void* userdata) {
  auto* client = static_cast<Client*>(userdata);
  if (pa_stream_get_state(stream) == PA_STREAM_FAILED) pa_mainloop_quit(client->loop, 1);
  if (pa_stream_get_state(stream) != PA_STREAM_READY) return;
  std::printf("ready\n");
  std::fflush(stdout);
  if (client->seconds <= 0) return;
  pa_mainloop_api* api = pa_mainloop_get_api(client->loop);
  timeval end{};
  pa_timeval_add(pa_gettimeofday(&end), static_cast<pa_usec_t>(client->seconds * 1e6));
  api->time_new(api, &end, [](pa_mainloop_api* a, pa_time_event*, const timeval*, void*) { a->quit(a, 0); }, nullptr);
}

void openStream(pa_context* context, Client& client) {
  const pa_sample_spec format{client.peak ? PA_SAMPLE_FLOAT32LE : PA_SAMPLE_S16LE, client.peak ? 25u : 44100u,
                              client.peak ? uint8_t{1} : uint8_t{2}};
  client.stream = pa_stream_new(context, client.record ? "capture" : "playback", &format, nullptr);
  pa_stream_set_state_callback(client.stream, &onStreamState, &client);
  auto flags = client.corked ? PA_STREAM_START_CORKED : PA_STREAM_NOFLAGS;
  if (!client.record) {
    pa_stream_set_write_callback(client.stream, [](pa_stream* stream, size_t bytes, void*) {
      const std::vector<char> silence(bytes, 0);
      pa_stream_write(stream, silence.data(), bytes, nullptr, 0, PA_SEEK_RELATIVE);
    }, nullptr);
    pa_stream_connect_playback(client.stream, nullptr, nullptr, flags, nullptr, nullptr);
    return;
  }
  if (client.peak) flags = static_cast<pa_stream_flags_t>(flags | PA_STREAM_PEAK_DETECT | PA_STREAM_ADJUST_LATENCY);
  pa_stream_set_read_callback(client.stream, [](pa_stream* stream, size_t, void*) {
    const void* data = nullptr;
    size_t bytes = 0;
    while (pa_stream_peek(stream, &data, &bytes) == 0 && bytes > 0) pa_stream_drop(stream);
  }, nullptr);
  pa_stream_connect_record(client.stream, nullptr, nullptr, flags);
}

}  // namespace

int main(int argc, char** argv) {
  Client client;
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    client.record = client.record || arg == "--record" || arg == "--peak";
    client.peak = client.peak || arg == "--peak";
    client.corked = client.corked || arg == "--corked";
    if (arg == "--for" && i + 1 < argc) client.seconds = std::stod(argv[++i]);
  }
  client.loop = pa_mainloop_new();
  pa_mainloop_api* api = pa_mainloop_get_api(client.loop);
  pa_signal_init(api);
  for (int signal : {SIGUSR1, SIGUSR2, SIGTERM, SIGINT}) pa_signal_new(signal, &onSignal, &client);
  pa_context* context = pa_context_new(api, "pulse_client");
  pa_context_set_state_callback(context, [](pa_context* c, void* userdata) {
    auto* self = static_cast<Client*>(userdata);
    const auto state = pa_context_get_state(c);
    if (state == PA_CONTEXT_READY) openStream(c, *self);
    if (state == PA_CONTEXT_FAILED || state == PA_CONTEXT_TERMINATED) pa_mainloop_quit(self->loop, 1);
  }, &client);
  if (pa_context_connect(context, nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr) < 0) return 1;
  int status = 0;
  pa_mainloop_run(client.loop, &status);
  pa_mainloop_free(client.loop);  // the process ends here: the rest goes with it
  return status;
}
