// A sound server client that tests can steer: it opens one playback stream (silence) or one
// capture stream, and corks or uncorks it on a signal, which pacat and parecord cannot do.
//
//   pulse_client [--record] [--peak] [--corked] [--device NAME]
//
// Connects where PULSE_SERVER points (PULSE_PROP sets its application properties). Prints
// "ready" once the stream runs (or is corked), then "corked" after SIGUSR1 and "uncorked" after
// SIGUSR2 once the server has done it. --peak opens the capture the way level meters do (peak
// detection). Ends on SIGTERM or SIGINT with 0; 1 when the server cannot be reached.
#include <pulse/pulseaudio.h>

#include <csignal>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace {

struct Client {
  pa_mainloop* loop = nullptr;
  pa_context* context = nullptr;
  pa_stream* stream = nullptr;
  bool record = false;
  bool peak = false;
  bool corked = false;
  std::string device;
};

void say(const char* line) {
  std::printf("%s\n", line);
  std::fflush(stdout);
}

void onCorked(pa_stream*, int success, void* userdata) {
  auto* client = static_cast<Client*>(userdata);
  if (success) say(client->corked ? "corked" : "uncorked");
}

void onCorkSignal(pa_mainloop_api*, pa_signal_event*, int signal, void* userdata) {
  auto* client = static_cast<Client*>(userdata);
  if (client->stream == nullptr) return;
  client->corked = signal == SIGUSR1;
  if (pa_operation* op = pa_stream_cork(client->stream, client->corked ? 1 : 0, &onCorked, client)) {
    pa_operation_unref(op);
  }
}

void onEnd(pa_mainloop_api* api, pa_signal_event*, int, void*) { api->quit(api, 0); }

void onWritable(pa_stream* stream, size_t bytes, void*) {
  std::vector<char> silence(bytes, 0);
  pa_stream_write(stream, silence.data(), bytes, nullptr, 0, PA_SEEK_RELATIVE);
}

void onReadable(pa_stream* stream, size_t, void*) {
  const void* data = nullptr;
  size_t bytes = 0;
  while (pa_stream_readable_size(stream) > 0 && pa_stream_peek(stream, &data, &bytes) == 0) {
    if (bytes == 0) break;
    pa_stream_drop(stream);
  }
}

void onStreamState(pa_stream* stream, void* userdata) {
  auto* client = static_cast<Client*>(userdata);
  if (pa_stream_get_state(stream) == PA_STREAM_READY) say("ready");
  if (pa_stream_get_state(stream) == PA_STREAM_FAILED) {
    pa_mainloop_quit(client->loop, 1);
  }
}

void openStream(Client& client) {
  const pa_sample_spec format{client.peak ? PA_SAMPLE_FLOAT32LE : PA_SAMPLE_S16LE, client.peak ? 25u : 44100u,
                            client.peak ? uint8_t{1} : uint8_t{2}};
  client.stream = pa_stream_new(client.context, client.record ? "capture" : "playback", &format, nullptr);
  pa_stream_set_state_callback(client.stream, &onStreamState, &client);
  auto flags = client.corked ? PA_STREAM_START_CORKED : PA_STREAM_NOFLAGS;
  const char* device = client.device.empty() ? nullptr : client.device.c_str();
  if (client.record) {
    if (client.peak) flags = static_cast<pa_stream_flags_t>(flags | PA_STREAM_PEAK_DETECT | PA_STREAM_ADJUST_LATENCY);
    pa_stream_set_read_callback(client.stream, &onReadable, &client);
    pa_stream_connect_record(client.stream, device, nullptr, flags);
  } else {
    pa_stream_set_write_callback(client.stream, &onWritable, &client);
    pa_stream_connect_playback(client.stream, device, nullptr, flags, nullptr, nullptr);
  }
}

void onContextState(pa_context* context, void* userdata) {
  auto* client = static_cast<Client*>(userdata);
  switch (pa_context_get_state(context)) {
    case PA_CONTEXT_READY:
      openStream(*client);
      break;
    case PA_CONTEXT_FAILED:
    case PA_CONTEXT_TERMINATED:
      pa_mainloop_quit(client->loop, 1);
      break;
    default:
      break;
  }
}

}  // namespace

int main(int argc, char** argv) {
  Client client;
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    if (arg == "--record") {
      client.record = true;
    } else if (arg == "--peak") {
      client.record = true;
      client.peak = true;
    } else if (arg == "--corked") {
      client.corked = true;
    } else if (arg == "--device" && i + 1 < argc) {
      client.device = argv[++i];
    } else {
      std::fprintf(stderr, "usage: pulse_client [--record] [--peak] [--corked] [--device NAME]\n");
      return 2;
    }
  }
  client.loop = pa_mainloop_new();
  pa_mainloop_api* api = pa_mainloop_get_api(client.loop);
  pa_signal_init(api);
  pa_signal_new(SIGUSR1, &onCorkSignal, &client);
  pa_signal_new(SIGUSR2, &onCorkSignal, &client);
  pa_signal_new(SIGTERM, &onEnd, nullptr);
  pa_signal_new(SIGINT, &onEnd, nullptr);
  client.context = pa_context_new(api, "pulse_client");
  pa_context_set_state_callback(client.context, &onContextState, &client);
  if (pa_context_connect(client.context, nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr) < 0) return 1;
  int status = 0;
  pa_mainloop_run(client.loop, &status);
  if (client.stream != nullptr) pa_stream_unref(client.stream);
  pa_context_disconnect(client.context);
  pa_context_unref(client.context);
  pa_signal_done();
  pa_mainloop_free(client.loop);
  return status;
}
