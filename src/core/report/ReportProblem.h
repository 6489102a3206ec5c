#pragma once
// The problem report: an archive with the diagnostics text, a note, the log files and recent crash
// reports, sent to the vendor's report service or, when that fails, saved where the user chooses.

#include <chrono>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "core/log/FileLog.h"
#include "core/runtime/Runtime.h"

namespace wh {

// Makes the archive: `folder`, with its own name as the top entry, zipped into `zip`.
class ReportArchiver {
 public:
  virtual ~ReportArchiver() = default;
  virtual std::string zip(const std::filesystem::path& folder, const std::filesystem::path& zip) = 0;  // error or ""
};

// One HTTP request to the report service, answered on the main queue.
class ReportUploader {
 public:
  struct Request {
    std::string url;
    std::vector<std::pair<std::string, std::optional<std::string>>> query;  // nullopt: a name without a value
    std::filesystem::path body;
    std::string contentType;
    double timeout = 0;
  };
  struct Response {
    int status = 0;  // the HTTP status; 0 when there was no answer
    std::string body;
    std::string error;  // why there was no answer
  };
  virtual ~ReportUploader() = default;
  virtual void post(Request request, std::function<void(Response)> done) = 0;
};

// What the report panel shows once the archive was sent or could not be.
class ReportView {
 public:
  virtual ~ReportView() = default;
  virtual void showMessage(const std::string& title, const std::string& text) = 0;
  // Offers "Save to File…" for the archive.
  virtual void offerSave(const std::string& title, const std::string& text, const std::filesystem::path& zip) = 0;
  // Asks where the archive goes (a save dialog); nothing when the person cancels.
  virtual std::optional<std::filesystem::path> chooseSaveLocation(const std::filesystem::path& zip) = 0;
  // Shows the folder that now holds the saved archive.
  virtual void showSaved(const std::filesystem::path& saved) = 0;
};

class ReportProblem {
 public:
  static constexpr double uploadTimeout = 60.0;
  static constexpr auto crashReportAge = std::chrono::seconds(2'592'000);  // 30 days
  static constexpr std::size_t maxCrashReports = 5;

  struct Sources {
    std::function<std::string()> diagnostics;
    std::shared_ptr<FileLog> log;           // flushed, then its files are attached
    std::filesystem::path crashFolder;      // where crash reports are written
    std::filesystem::path temporaryFolder;  // where the report folder is made
    std::string serviceAddress;             // the report service's base address; empty: none
    std::string supportAddress;             // named when sending fails
    std::string version;                    // the short version
    std::string systemVersion;              // the operating system's name and version
    std::function<std::chrono::system_clock::time_point()> now;
  };

  ReportProblem(Sources sources, ReportArchiver& archiver, ReportUploader& uploader, ReportView& view)
      : sources_(std::move(sources)), archiver_(archiver), uploader_(uploader), view_(view) {}

  // "Send Report": builds the archive and sends it.
  void send(const std::string& note, const std::string& email);
  // "Save Report…": builds the archive and saves it where the person chooses.
  void saveReport(const std::string& note, const std::string& email);
  // The archive's location, or nothing: the reason is logged ("report a problem: " + the error) and
  // "Could not put the report together." shown.
  std::optional<std::filesystem::path> buildZip(const std::string& note, const std::string& email);
  // "Save to File…": copies a built archive where the person chooses and shows its folder.
  void save(const std::filesystem::path& zip);
  void upload(const std::filesystem::path& zip, const std::string& note, const std::string& email);
  // The program's crash reports of the last 30 days, newest first, at most five.
  std::vector<std::filesystem::path> recentCrashReports() const;

  // The panel's texts.
  static std::string explanation(const std::string& systemName);

 private:
  Sources sources_;
  ReportArchiver& archiver_;
  ReportUploader& uploader_;
  ReportView& view_;
  Lifetime lifetime_;
};

}  // namespace wh
