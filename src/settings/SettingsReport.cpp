#include "settings/SettingsReport.h"

#include "platform/linux/app/SystemInfo.h"
#include "platform/linux/settings/XdgPaths.h"

namespace wh::settingsapp {
namespace {

ReportProblem::Sources reportSources(Runtime& runtime, Diagnose::Sources diagnose, const BuildInfo& build,
                                     SettingsReport::Service service) {
  // The agent's log, read where the agent writes it; nothing is written to it from here.
  const std::string logName = FileLog::sharedName();
  const std::filesystem::path logFolder = platform::stateHome() / logName;
  auto agentLog = std::make_shared<FileLog>(logFolder, logName,
                                            runtime.makeSerialQueue(FileLog::queueLabel, QueuePriority::utility));
  return {[diagnose = std::move(diagnose)] { return Diagnose(diagnose).text(); },
          std::move(agentLog),
          logFolder / "crashes",
          std::filesystem::temp_directory_path(),
          std::move(service.address),
          std::move(service.support),
          build.shortVersion,
          platform::systemVersion(),
          [] { return std::chrono::system_clock::now(); }};
}

}  // namespace

SettingsReport::SettingsReport(Runtime& runtime, Settings& settings, platform::AudioStack& audio,
                               const BuildInfo& build, Service service)
    : pinner_(runtime, settings, audio.hardware, audio.processes), window_(platform::systemVersion()),
      report_(
          [&] {
            Diagnose::Sources diagnose = platform::diagnoseSources(build, settings, pinner_, batteries_);
            diagnose.audio = &audio.hardware;
            diagnose.processes = &audio.processes;
            return reportSources(runtime, std::move(diagnose), build, std::move(service));
          }(),
          zip_, uploader_, window_) {
  window_.actOn(report_);
}

}  // namespace wh::settingsapp
