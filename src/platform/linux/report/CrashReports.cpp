#include "platform/linux/report/CrashReports.h"

#include <execinfo.h>
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <ctime>

namespace wh::platform {

namespace {

constexpr std::array<int, 5> fatalSignals{SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGABRT};
constexpr int maxFrames = 64;

// A signal handler can only reach what lives outside any object, and may only call functions that
// are safe inside it (open, write, close, time, backtrace_symbols_fd, raise): the folder is kept
// here as plain bytes, written before any handler can run.
char crashFolder[4096];

// Appends the decimal digits of `value` to `out`; answers the new end.
char* appendNumber(char* out, long value) {
  char digits[24];
  int count = 0;
  do {
    digits[count++] = static_cast<char>('0' + value % 10);
    value /= 10;
  } while (value > 0 && count < 24);
  while (count > 0) *out++ = digits[--count];
  return out;
}

void writeText(int fd, const char* text) {
  if (::write(fd, text, std::strlen(text)) < 0) return;
}

void onFatalSignal(int signal) {
  char path[sizeof(crashFolder) + 64];
  char* end = std::strcpy(path, crashFolder) + std::strlen(crashFolder);
  end = std::strcpy(end, "/Wrenhaven-") + std::strlen("/Wrenhaven-");
  end = appendNumber(end, static_cast<long>(std::time(nullptr)));
  std::strcpy(end, ".crash");
  const int fd = ::open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  if (fd >= 0) {
    char line[64] = "Wrenhaven ended by signal ";
    *appendNumber(line + std::strlen(line), signal) = '\0';
    writeText(fd, line);
    writeText(fd, "\nBacktrace:\n");
    void* frames[maxFrames];
    ::backtrace_symbols_fd(frames, ::backtrace(frames, maxFrames), fd);
    ::close(fd);
  }
  ::signal(signal, SIG_DFL);
  ::raise(signal);
}

}  // namespace

void installCrashReports(const std::filesystem::path& folder) {
  std::error_code error;
  std::filesystem::create_directories(folder, error);
  const std::string text = folder.string();
  if (text.size() >= sizeof(crashFolder)) return;
  std::memcpy(crashFolder, text.c_str(), text.size() + 1);

  // backtrace loads its unwinder on first use, which is not safe inside a handler: use it now.
  void* frame[1];
  ::backtrace(frame, 1);
  // A stack that overflowed cannot run the handler: give it a stack of its own.
  static std::array<char, 64 * 1024> alternateStack;
  stack_t stack{};
  stack.ss_sp = alternateStack.data();
  stack.ss_size = alternateStack.size();
  ::sigaltstack(&stack, nullptr);
  struct sigaction action {};
  action.sa_handler = onFatalSignal;
  action.sa_flags = SA_ONSTACK | SA_RESETHAND;
  sigemptyset(&action.sa_mask);
  for (int signal : fatalSignals) ::sigaction(signal, &action, nullptr);
}

}  // namespace wh::platform
