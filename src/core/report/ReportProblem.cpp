#include "core/report/ReportProblem.h"

#include <algorithm>
#include <fstream>
#include <system_error>

#include "core/log/Log.h"

namespace wh {

namespace {

std::string timeStamp(std::chrono::system_clock::time_point time) {
  return std::to_string(std::chrono::duration_cast<std::chrono::seconds>(time.time_since_epoch()).count());
}

bool writeFile(const std::filesystem::path& path, const std::string& text) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << text;
  return static_cast<bool>(out.flush());
}

}  // namespace

std::string ReportProblem::explanation(const std::string& systemName) {
  return "Describe what happened. The report includes Wrenhaven's log, your " + systemName +
         " version, audio and Bluetooth devices and permission state, and recent crash reports of Wrenhaven. It "
         "does not include recordings or your files, though it lists your audio devices and the apps using audio.";
}

void ReportProblem::send(const std::string& note, const std::string& email) {
  if (const auto zip = buildZip(note, email)) upload(*zip, note, email);
}

void ReportProblem::saveReport(const std::string& note, const std::string& email) {
  if (const auto zip = buildZip(note, email)) save(*zip);
}

void ReportProblem::save(const std::filesystem::path& zip) {
  const auto where = view_.chooseSaveLocation(zip);
  if (!where) return;
  std::error_code error;
  std::filesystem::copy_file(zip, *where, std::filesystem::copy_options::overwrite_existing, error);
  if (error) {
    Log::info("report a problem: could not save the report to " + where->string() + ": " + error.message());
    view_.showMessage("Could not save the report: " + error.message(), "");
    return;
  }
  Log::info("report saved to " + where->string());
  view_.showSaved(*where);
}

std::optional<std::filesystem::path> ReportProblem::buildZip(const std::string& note, const std::string& email) {
  const auto folder = sources_.temporaryFolder / ("report-" + timeStamp(sources_.now()));
  std::error_code error;
  std::filesystem::create_directories(folder, error);
  const auto fail = [this](const std::string& reason) {
    Log::info("report a problem: " + reason);
    view_.showMessage("Could not put the report together.", "");
    return std::nullopt;
  };
  if (error) return fail("could not make " + folder.string() + ": " + error.message());
  if (!writeFile(folder / "diagnostics.txt", sources_.diagnostics()) ||
      !writeFile(folder / "note.txt", "Email: " + (email.empty() ? std::string("(none)") : email) + "\n" + note)) {
    return fail("could not write into " + folder.string());
  }
  std::vector<std::filesystem::path> attached;
  if (sources_.log) {
    sources_.log->flush();
    attached = sources_.log->files();
  }
  for (const auto& crash : recentCrashReports()) attached.push_back(crash);
  // A file that cannot be read leaves the report without it, not without the rest.
  for (const auto& file : attached) {
    std::filesystem::copy_file(file, folder / file.filename(), std::filesystem::copy_options::overwrite_existing, error);
    if (error) Log::info("report a problem: left out " + file.string() + ": " + error.message());
  }
  auto zip = folder;
  zip += ".zip";
  if (auto reason = archiver_.zip(folder, zip); !reason.empty()) {
    Log::error("report: " + reason);
    return fail(reason);
  }
  return zip;
}

std::vector<std::filesystem::path> ReportProblem::recentCrashReports() const {
  std::vector<std::pair<std::filesystem::file_time_type, std::filesystem::path>> found;
  std::error_code error;
  const auto oldest = std::filesystem::file_time_type::clock::now() - crashReportAge;
  for (const auto& entry : std::filesystem::directory_iterator(sources_.crashFolder, error)) {
    const auto name = entry.path().filename().string();
    const auto modified = entry.last_write_time(error);
    if (!error && entry.is_regular_file(error) && name.rfind("Wrenhaven", 0) == 0 && modified > oldest) {
      found.emplace_back(modified, entry.path());
    }
  }
  std::sort(found.begin(), found.end(), [](const auto& a, const auto& b) { return a.first > b.first; });
  std::vector<std::filesystem::path> newest;
  for (std::size_t i = 0; i < found.size() && i < maxCrashReports; ++i) newest.push_back(found[i].second);
  return newest;
}

void ReportProblem::upload(const std::filesystem::path& zip, const std::string& note, const std::string& email) {
  // A build without a support address names no one to write to.
  const std::string saveInstead = sources_.supportAddress.empty()
                                      ? std::string("Save it instead.")
                                      : "Save it instead and email it to " + sources_.supportAddress + ".";
  if (sources_.serviceAddress.empty()) {
    Log::info("report a problem: this build has no report service to send to");
    view_.offerSave("Could not send the report.", saveInstead, zip);
    return;
  }
  ReportUploader::Request request{sources_.serviceAddress + "/reports",
                                  {{"app", "wrenhaven"},
                                   {"version", sources_.version},
                                   {"os", sources_.systemVersion},
                                   {"email", email.empty() ? std::nullopt : std::optional(email)},
                                   {"note", note}},
                                  zip,
                                  "application/zip",
                                  uploadTimeout};
  uploader_.post(std::move(request), lifetime_.guard([this, zip, email, saveInstead](ReportUploader::Response response) {
    if (response.status == 200) {
      // The service answers with the report number as plain text.
      std::string number = response.body;
      number.erase(0, number.find_first_not_of(" \r\n\t"));
      number.erase(number.find_last_not_of(" \r\n\t") + 1);
      std::string text = "Thank you. Your report number is " + number + ".";
      if (!email.empty()) text += " We'll reply to " + email + ".";
      view_.showMessage("Report sent", text + " If you write to support, mention it.");
      return;
    }
    Log::info("report upload failed: " +
              (response.status != 0 ? std::to_string(response.status) : response.error));
    view_.offerSave("The report could not be sent", saveInstead, zip);
  }));
}

}  // namespace wh
