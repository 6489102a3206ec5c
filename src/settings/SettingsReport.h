#pragma once
// "Report a Problem" from the settings program: the report is put together and sent here, with the
// same core and adapters as the agent's own: the agent's log files and crash reports, and the
// diagnostics text read from this machine's sound server, Bluetooth and session.

#include <memory>
#include <string>

#include "core/app/BuildInfo.h"
#include "core/report/ReportProblem.h"
#include "platform/linux/report/LibarchiveZip.h"
#include "platform/linux/report/LocalDiagnostics.h"
#include "platform/linux/report/QtReportUploader.h"
#include "ui/panels/ReportWindow.h"

namespace wh::settingsapp {

class SettingsReport {
 public:
  struct Service {
    std::string address;  // the report service's base address; empty: none
    std::string support;  // named when sending fails
  };

  SettingsReport(Runtime& runtime, Settings& settings, platform::AudioStack& audio, const BuildInfo& build,
                 Service service);

  // Opens the report panel, or raises it.
  void show() { window_.show(); }

 private:
  platform::BluezUPowerBatterySources batteries_;
  InputPinner pinner_;  // never started: it only names the microphone it would pin to
  platform::LibarchiveZip zip_;
  platform::QtReportUploader uploader_;
  panels::ReportWindow window_;
  ReportProblem report_;
};

}  // namespace wh::settingsapp
