// The problem report's platform side: the zip read back with libarchive, the upload against a local
// stand-in of the report service, and a crash report written by a process that really crashes.
#include <gtest/gtest.h>

#include <archive.h>
#include <archive_entry.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <map>

#include "QtLoop.h"
#include "platform/linux/report/CrashReports.h"
#include "platform/linux/report/LibarchiveZip.h"
#include "platform/linux/report/QtReportUploader.h"
#include "support/ChildProcess.h"
#include "support/TempDir.h"

namespace wh::platform {
namespace {

using namespace std::chrono_literals;

std::map<std::string, std::string> readZip(const std::filesystem::path& path) {
  std::map<std::string, std::string> entries;
  archive* zip = archive_read_new();
  archive_read_support_format_zip(zip);
  if (archive_read_open_filename(zip, path.c_str(), 4096) == ARCHIVE_OK) {
    archive_entry* entry = nullptr;
    while (archive_read_next_header(zip, &entry) == ARCHIVE_OK) {
      std::string content(static_cast<std::size_t>(archive_entry_size(entry)), '\0');
      archive_read_data(zip, content.data(), content.size());
      entries[archive_entry_pathname(entry)] = content;
    }
  }
  archive_read_free(zip);
  return entries;
}

TEST(LibarchiveZip, TheArchiveHoldsEveryFileOfTheFolderUnderTheFoldersName) {
  test::TempDir home("zip");
  const auto folder = home.path() / "report-42";
  const std::string note("Email: (none)\n\xff\0 any bytes", 27);
  test::writeFile(folder / "note.txt", note);
  test::writeFile(folder / "empty.log", "");
  LibarchiveZip zipper;
  ASSERT_EQ(zipper.zip(folder, home.path() / "report-42.zip"), "");
  EXPECT_EQ(readZip(home.path() / "report-42.zip"),
            (std::map<std::string, std::string>{{"report-42/empty.log", ""}, {"report-42/note.txt", note}}));
  EXPECT_NE(zipper.zip(home.path() / "missing", home.path() / "x.zip"), "");
}

TEST(QtReportUploader, TheArchiveIsPostedWithItsQueryAndTheAnswerOrItsAbsenceComesBack) {
  test::qtApplication();
  test::ChildProcess service({"/usr/bin/python3", WRENHAVEN_REPORT_SERVICE});
  ASSERT_TRUE(service.waitForOutput("\n", 10s)) << "the stand-in report service did not start";
  const std::string address = "http://127.0.0.1:" + service.output().substr(0, service.output().find('\n'));
  test::TempDir home("upload");
  std::ofstream(home.path() / "r.zip") << "PK-zip-bytes";
  QtReportUploader uploader;
  const auto send = [&](const std::string& note, double timeout) {
    std::optional<ReportUploader::Response> answer;
    uploader.post({address + "/reports", {{"app", "wrenhaven"}, {"email", std::nullopt}, {"note", note}},
                   home.path() / "r.zip", "application/zip", timeout},
                  [&](ReportUploader::Response response) { answer = std::move(response); });
    EXPECT_TRUE(test::spinUntil([&] { return answer.has_value(); }, 15000)) << note;
    return answer.value_or(ReportUploader::Response{-1, "", "no answer"});
  };
  const auto sent = send("no sound & more", 10);
  EXPECT_EQ(sent.status, 200);
  EXPECT_EQ(sent.body, "4711\n");
  EXPECT_TRUE(service.waitForOutput("/reports app=wrenhaven&email&note=no%20sound%20%26%20more application/zip 12\n", 5s))
      << service.output();
  EXPECT_EQ(send("fail", 10).status, 500);
  const auto late = send("slow", 0.5);
  EXPECT_EQ(late.status, 0);
  EXPECT_NE(late.error, "");
}

TEST(CrashReports, AProcessEndedByAFatalSignalLeavesABacktraceAndStillEndsByThatSignal) {
  test::TempDir home("crash");
  const auto folder = home.path() / "crashes";
  const pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    installCrashReports(folder);
    ::raise(SIGSEGV);
    ::_exit(0);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGSEGV) << status;
  std::vector<std::filesystem::path> reports;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) reports.push_back(entry.path());
  ASSERT_EQ(reports.size(), 1u);
  EXPECT_EQ(reports[0].filename().string().rfind("Wrenhaven-", 0), 0u);
  EXPECT_EQ(reports[0].extension(), ".crash");
  const std::string text = test::readFile(reports[0]);
  EXPECT_EQ(text.rfind("Wrenhaven ended by signal 11\nBacktrace:\n", 0), 0u) << text;
  EXPECT_GT(std::count(text.begin(), text.end(), '\n'), 3) << "frames follow";
}

}  // namespace
}  // namespace wh::platform
