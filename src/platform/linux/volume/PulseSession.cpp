#include "platform/linux/volume/PulseSession.h"

namespace wh::platform {

PulseSession::PulseSession(const std::string& server, const std::string& clientName, const char* threadName,
                           double timeout)
    : loop_(pa_threaded_mainloop_new()), api_(pa_threaded_mainloop_get_api(loop_)), server_(server), timeout_(timeout) {
  pa_threaded_mainloop_set_name(loop_, threadName);
  pa_proplist* properties = pa_proplist_new();
  pa_proplist_sets(properties, PA_PROP_APPLICATION_NAME, clientName.c_str());
  context_ = pa_context_new_with_proplist(api_, clientName.c_str(), properties);
  pa_proplist_free(properties);
  pa_context_set_state_callback(
      context_, [](pa_context*, void* self) { static_cast<PulseSession*>(self)->signal(); }, this);
  pa_threaded_mainloop_start(loop_);
}

PulseSession::~PulseSession() {
  pa_threaded_mainloop_lock(loop_);
  stopDeadline();
  pa_context_set_state_callback(context_, nullptr, nullptr);
  pa_context_disconnect(context_);
  pa_context_unref(context_);
  pa_threaded_mainloop_unlock(loop_);
  pa_threaded_mainloop_stop(loop_);
  pa_threaded_mainloop_free(loop_);
}

int PulseSession::connect() {
  Lock lock(*this);
  const char* server = server_.empty() ? nullptr : server_.c_str();
  if (pa_context_connect(context_, server, PA_CONTEXT_NOAUTOSPAWN, nullptr) < 0) return error();
  awaitUntil([&] {
    const auto state = pa_context_get_state(context_);
    return state == PA_CONTEXT_READY || !PA_CONTEXT_IS_GOOD(state);
  }, true);
  return connected() ? 0 : error();
}

bool PulseSession::connected() const { return pa_context_get_state(context_) == PA_CONTEXT_READY; }

int PulseSession::error() const {
  if (timedOut_ != 0) return timedOut_;
  const int number = pa_context_errno(context_);
  return number != 0 ? number : PA_ERR_CONNECTIONTERMINATED;
}

bool PulseSession::await(pa_operation* operation) {
  if (operation == nullptr) return false;
  const bool done = awaitUntil([&] { return pa_operation_get_state(operation) != PA_OPERATION_RUNNING; });
  if (!done) pa_operation_cancel(operation);
  pa_operation_unref(operation);
  return done;
}

std::uint32_t PulseSession::loadModule(const char* name, const std::string& arguments) {
  struct Answer {
    PulseSession* session;
    std::uint32_t index = PA_INVALID_INDEX;
  } answer{this};
  const bool done = await(pa_context_load_module(
      context_, name, arguments.c_str(),
      [](pa_context*, std::uint32_t index, void* data) {
        auto* to = static_cast<Answer*>(data);
        to->index = index;
        to->session->signal();
      },
      &answer));
  return done ? answer.index : PA_INVALID_INDEX;
}

bool PulseSession::unloadModule(std::uint32_t index) {
  struct Answer {
    PulseSession* session;
    bool success = false;
  } answer{this};
  const bool done = await(pa_context_unload_module(
      context_, index,
      [](pa_context*, int success, void* data) {
        auto* to = static_cast<Answer*>(data);
        to->success = success != 0;
        to->session->signal();
      },
      &answer));
  return done && answer.success;
}

void PulseSession::startDeadline() {
  late_ = false;
  timedOut_ = 0;
  timeval when{};
  pa_gettimeofday(&when);
  pa_timeval_add(&when, static_cast<pa_usec_t>(timeout_ * 1e6));
  deadline_ = api_->time_new(
      api_, &when,
      [](pa_mainloop_api*, pa_time_event*, const timeval*, void* userdata) {
        auto* self = static_cast<PulseSession*>(userdata);
        self->late_ = true;
        self->timedOut_ = PA_ERR_TIMEOUT;
        self->signal();
      },
      this);
}

void PulseSession::stopDeadline() {
  if (deadline_ != nullptr) api_->time_free(deadline_);
  deadline_ = nullptr;
}

}  // namespace wh::platform
