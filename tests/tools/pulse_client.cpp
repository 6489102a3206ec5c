// A sound server client that tests can steer: one playback stream of silence, corked on SIGUSR1
// and uncorked on SIGUSR2 (which pacat cannot do), or with --peak one capture stream recording the
// way level meters do (peak detection). Connects where PULSE_SERVER points (PULSE_PROP sets its
// properties), prints "ready" once the stream is set up, exits 0 on SIGTERM and 1 on failure.
// With --tone it plays a 1 kHz sine at half of full scale instead, and SIGHUP opens one more such stream;
// each time a tone stream runs dry it prints "underflow" and the monotonic clock's seconds. With
// --dont-move after --tone its streams may not be moved to another sink.
#include <pulse/pulseaudio.h>

#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <vector>

namespace {

struct Client {
  pa_mainloop* loop = pa_mainloop_new();
  pa_stream* stream = nullptr;
  bool peak = false;
  bool tone = false;
  bool dontMove = false;
  pa_context* context = nullptr;
  long phases[8] = {};  // one per tone stream
  int streams = 0;
};

void openStream(pa_context* context, Client& client);

void writeTone(pa_stream* stream, size_t bytes, void* phase) {
  std::vector<float> samples(bytes / sizeof(float));
  auto& at = *static_cast<long*>(phase);
  for (size_t i = 0; i + 1 < samples.size(); i += 2, ++at) samples[i] = samples[i + 1] = 0.5F * std::sin(2 * M_PI * 1000 * at / 48000);
  pa_stream_write(stream, samples.data(), bytes, nullptr, 0, PA_SEEK_RELATIVE);
}

void onSignal(pa_mainloop_api* api, pa_signal_event*, int signal, void* userdata) {
  auto* stream = static_cast<Client*>(userdata)->stream;
  if (signal == SIGTERM) return api->quit(api, 0);
  if (signal == SIGHUP) return openStream(static_cast<Client*>(userdata)->context, *static_cast<Client*>(userdata));
  if (pa_operation* op = stream ? pa_stream_cork(stream, signal == SIGUSR1, nullptr, nullptr) : nullptr) {
    pa_operation_unref(op);
  }
}

void onStreamState(pa_stream* stream, void* userdata) {
  if (pa_stream_get_state(stream) == PA_STREAM_FAILED) pa_mainloop_quit(static_cast<Client*>(userdata)->loop, 1);
  if (pa_stream_get_state(stream) == PA_STREAM_READY) {
    std::puts("ready");
    std::fflush(stdout);
  }
}

void openStream(pa_context* context, Client& client) {
  const pa_sample_spec format = client.peak   ? pa_sample_spec{PA_SAMPLE_FLOAT32LE, 25, 1}
                               : client.tone ? pa_sample_spec{PA_SAMPLE_FLOAT32LE, 48000, 2}
                                             : pa_sample_spec{PA_SAMPLE_S16LE, 44100, 2};
  client.stream = pa_stream_new(context, client.peak ? "capture" : "playback", &format, nullptr);
  pa_stream_set_state_callback(client.stream, &onStreamState, &client);
  if (client.tone) {
    pa_stream_set_write_callback(client.stream, &writeTone, &client.phases[client.streams++ % 8]);
    pa_stream_set_underflow_callback(client.stream, [](pa_stream*, void*) {
      timespec now{};
      clock_gettime(CLOCK_MONOTONIC, &now);
      std::printf("underflow %.3f\n", double(now.tv_sec) + double(now.tv_nsec) / 1e9);
      std::fflush(stdout);
    }, nullptr);
  }
  if (!client.peak) {
    if (!client.tone) pa_stream_set_write_callback(client.stream, [](pa_stream* stream, size_t bytes, void*) {
      const std::vector<char> silence(bytes, 0);
      pa_stream_write(stream, silence.data(), bytes, nullptr, 0, PA_SEEK_RELATIVE);
    }, nullptr);
    const pa_buffer_attr low{~0U, 48000 * 8 / 50, ~0U, ~0U, ~0U};  // a tone plays with 20 ms of buffer
    const int flags = (client.tone ? PA_STREAM_ADJUST_LATENCY : 0) | (client.dontMove ? PA_STREAM_DONT_MOVE : 0);
    pa_stream_connect_playback(client.stream, nullptr, client.tone ? &low : nullptr,
                               static_cast<pa_stream_flags_t>(flags), nullptr, nullptr);
    return;
  }
  pa_stream_set_read_callback(client.stream, [](pa_stream* stream, size_t, void*) {
    const void* data = nullptr;
    size_t bytes = 0;
    while (pa_stream_peek(stream, &data, &bytes) == 0 && bytes > 0) pa_stream_drop(stream);
  }, nullptr);
  pa_stream_connect_record(client.stream, nullptr, nullptr,
                           static_cast<pa_stream_flags_t>(PA_STREAM_PEAK_DETECT | PA_STREAM_ADJUST_LATENCY));
}

}  // namespace

int main(int argc, char** argv) {
  Client client;
  client.peak = argc > 1 && std::strcmp(argv[1], "--peak") == 0;
  client.tone = argc > 1 && std::strcmp(argv[1], "--tone") == 0;
  client.dontMove = client.tone && argc > 2 && std::strcmp(argv[2], "--dont-move") == 0;
  pa_mainloop_api* api = pa_mainloop_get_api(client.loop);
  pa_signal_init(api);
  for (int signal : {SIGUSR1, SIGUSR2, SIGTERM, SIGHUP}) pa_signal_new(signal, &onSignal, &client);
  pa_context* context = client.context = pa_context_new(api, "pulse_client");
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
