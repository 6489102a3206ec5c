#pragma once
// Sends the report archive with Qt Network; the answer comes back on the main thread.

#include <QNetworkAccessManager>

#include "core/report/ReportProblem.h"

namespace wh::platform {

class QtReportUploader final : public ReportUploader {
 public:
  // Make it on the main thread.
  QtReportUploader();
  void post(Request request, std::function<void(Response)> done) override;

 private:
  QNetworkAccessManager network_;
};

}  // namespace wh::platform
