#include "core/report/ReportProblem.h"

#include <gtest/gtest.h>

#include "support/CapturedLog.h"
#include "support/TempDir.h"

namespace wh {
namespace {

using namespace std::chrono_literals;

class ReportProblemTest : public testing::Test, public ReportArchiver, public ReportUploader, public ReportView {
 protected:
  std::string zip(const std::filesystem::path& folder, const std::filesystem::path& zipPath) override {
    zipped = folder;
    std::ofstream(zipPath) << "zip";
    return zipFailure;
  }
  void post(Request request, std::function<void(Response)> done) override {
    sent = std::move(request);
    answer = std::move(done);
  }
  void showMessage(const std::string& title, const std::string& text) override { shown = title + "|" + text; }
  void offerSave(const std::string& title, const std::string& text, const std::filesystem::path&) override {
    shown = "save|" + title + "|" + text;
  }
  // Saving is tested with the real dialog (ReportSaveTest).
  std::optional<std::filesystem::path> chooseSaveLocation(const std::filesystem::path&) override {
    ADD_FAILURE() << "no archive, no dialog";
    return std::nullopt;
  }
  void showSaved(const std::filesystem::path&) override {}
  ReportProblem::Sources sources(std::string address = "https://reports.example") {
    return {[] { return std::string("the diagnostics"); }, nullptr, home.path() / "crashes", home.path() / "tmp",
            std::move(address), "support@example.com", "0.1.0", "Debian GNU/Linux 12 (bookworm)",
            [] { return std::chrono::system_clock::time_point(1700000000s); }};
  }

  test::TempDir home{"report"};
  std::filesystem::path zipped;
  std::string zipFailure, shown;
  std::optional<ReportUploader::Request> sent;
  std::function<void(ReportUploader::Response)> answer;
  test::CapturedLog log;
};

TEST_F(ReportProblemTest, TheArchiveHoldsTheDiagnosticsTheNoteAndTheFiveNewestCrashReportsOfTheLastMonth) {
  const auto now = std::filesystem::file_time_type::clock::now();
  for (int day = 1; day <= 7; ++day) {
    const auto file = home.path() / "crashes" / ("Wrenhaven-" + std::to_string(day) + ".crash");
    test::writeFile(file, std::to_string(day));
    std::filesystem::last_write_time(file, now - std::chrono::hours(24 * day));
  }
  std::ofstream(home.path() / "crashes" / "Other-0.crash") << "not ours";
  std::filesystem::create_directories(home.path() / "crashes" / "Wrenhaven-folder.crash");  // newest, not a file
  std::ofstream(home.path() / "crashes" / "Wrenhaven-old.crash") << "old";
  std::filesystem::last_write_time(home.path() / "crashes" / "Wrenhaven-old.crash", now - std::chrono::hours(24 * 31));

  ReportProblem report(sources(), *this, *this, *this);
  const auto archive = report.buildZip("It crackles.", "");
  ASSERT_TRUE(archive);
  EXPECT_EQ(*archive, home.path() / "tmp" / "report-1700000000.zip");
  EXPECT_EQ(test::readFile(zipped / "note.txt"), "Email: (none)\nIt crackles.");
  EXPECT_EQ(test::readFile(zipped / "diagnostics.txt"), "the diagnostics");
  std::vector<std::string> crashes;
  for (const auto& path : report.recentCrashReports()) crashes.push_back(path.filename().string());
  EXPECT_EQ(crashes, (std::vector<std::string>{"Wrenhaven-1.crash", "Wrenhaven-2.crash", "Wrenhaven-3.crash",
                                               "Wrenhaven-4.crash", "Wrenhaven-5.crash"}));
  for (const auto& name : crashes) EXPECT_TRUE(std::filesystem::exists(zipped / name)) << name;
  EXPECT_FALSE(std::filesystem::exists(zipped / "Wrenhaven-6.crash"));

  zipFailure = "disk full";
  report.send("again", "ada@example.com");
  EXPECT_EQ(log->lines.back(), "report a problem: disk full");
  EXPECT_EQ(shown, "Could not put the report together.|");
  EXPECT_FALSE(sent) << "nothing is sent";
  shown.clear();
  report.saveReport("again", "");
  EXPECT_EQ(shown, "Could not put the report together.|");
}

TEST_F(ReportProblemTest, TheUploadCarriesTheQueryItemsAndItsOutcomeIsShown) {
  struct Case {
    std::string email;
    ReportUploader::Response response;
    std::string shown, logged;
  };
  for (const auto& c : std::vector<Case>{
           {"", {200, " 4711\n", ""}, "Report sent|Thank you. Your report number is 4711. If you write to support, mention it.", ""},
           {"ada@example.com", {200, "12", ""},
            "Report sent|Thank you. Your report number is 12. We'll reply to ada@example.com. If you write to support, "
            "mention it.", ""},
           {"", {500, "oops", ""}, "save|The report could not be sent|Save it instead and email it to support@example.com.",
            "report upload failed: 500"},
           {"", {0, "", "Connection refused"}, "save|The report could not be sent|Save it instead and email it to "
                                              "support@example.com.", "report upload failed: Connection refused"}}) {
    sent.reset();
    ReportProblem report(sources(), *this, *this, *this);
    report.send("No sound", c.email);
    ASSERT_TRUE(sent && answer);
    EXPECT_EQ(sent->url, "https://reports.example/reports");
    EXPECT_EQ(sent->query[3], (std::pair<std::string, std::optional<std::string>>{
                                  "email", c.email.empty() ? std::nullopt : std::optional(c.email)}));
    EXPECT_EQ(sent->query[4].second, "No sound");
    EXPECT_EQ(sent->timeout, 60.0);
    answer(c.response);
    EXPECT_EQ(shown, c.shown);
    if (!c.logged.empty()) {
      EXPECT_EQ(log->lines.back(), c.logged);
    }
  }
  ReportProblem unconfigured(sources(""), *this, *this, *this);
  sent.reset();
  unconfigured.send("x", "");
  EXPECT_FALSE(sent);
}

}  // namespace
}  // namespace wh
