#pragma once
// The agent's own crash reports: on a fatal signal a handler writes
// <folder>/Wrenhaven-<unix time>.crash with the signal and a backtrace, then lets the signal end the
// process as it would have. The problem report attaches the recent ones.

#include <filesystem>

namespace wh::platform {

// Installs the handler for SIGSEGV, SIGBUS, SIGILL, SIGFPE and SIGABRT, once per process (a later
// call only changes the folder). Makes the folder.
void installCrashReports(const std::filesystem::path& folder);

}  // namespace wh::platform
