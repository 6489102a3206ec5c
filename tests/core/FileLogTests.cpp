#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <sstream>

#include "core/log/Log.h"
#include "doubles/VirtualRuntime.h"
#include "support/TempDir.h"

namespace wh {
namespace {

std::string readFile(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

class FileLogTest : public testing::Test {
 protected:
  VirtualRuntime rt;
  test::TempDir temp{"wrenhaven-filelog"};
  std::filesystem::path folder = temp.path() / "Logs" / "Wrenhaven";
  std::shared_ptr<SerialQueue> queue = rt.makeSerialQueue(FileLog::queueLabel, QueuePriority::utility);
  FileLog log{folder, "Wrenhaven", queue, [this] { return rt.clock().wallNow(); }};
};

TEST_F(FileLogTest, FirstLineCreatesFolderAndFileWithStampedLinesInCallOrder) {
  ASSERT_FALSE(std::filesystem::exists(folder));
  log.write(LogLevel::info, "media key tap running");
  rt.advance(1.5);  // the time is taken at the call, not when the queue writes
  log.write(LogLevel::error, "connect failed for aa-bb-cc-dd-ee-ff");
  EXPECT_FALSE(std::filesystem::exists(log.url())) << "nothing is written before the queue runs";
  rt.drainSerialQueues();

  EXPECT_EQ(readFile(folder / "Wrenhaven.log"),
            "2026-01-01T00:00:00.000Z INFO media key tap running\n"
            "2026-01-01T00:00:01.500Z ERROR connect failed for aa-bb-cc-dd-ee-ff\n");
  EXPECT_EQ(log.files(), std::vector<std::filesystem::path>{log.url()});
}

TEST_F(FileLogTest, AppendsToAnExistingFileAndKeepsMultiLineMessagesAsTheyAre) {
  std::filesystem::create_directories(folder);
  std::ofstream(log.url()) << "earlier\n";
  log.write(LogLevel::info, "two\nlines");
  rt.drainSerialQueues();
  EXPECT_EQ(readFile(log.url()), "earlier\n2026-01-01T00:00:00.000Z INFO two\nlines\n");
}

TEST_F(FileLogTest, RotatesWhenALineMakesTheFileReachOneMillionAndOneBytes) {
  std::filesystem::create_directories(folder);
  std::ofstream(log.previous()) << "oldest\n";
  const std::string prefix = "2026-01-01T00:00:00.000Z INFO ";
  // Exactly 1,000,000 bytes after the first line: no rotation yet.
  const std::size_t firstLength = 1'000'000;
  log.write(LogLevel::info, std::string(firstLength - prefix.size() - 1, 'a'));
  rt.drainSerialQueues();
  ASSERT_EQ(std::filesystem::file_size(log.url()), 1'000'000u);
  EXPECT_EQ(readFile(log.previous()), "oldest\n");

  // One more byte: written in full, then the file moves aside and the older one is gone.
  log.write(LogLevel::info, "");
  rt.drainSerialQueues();
  EXPECT_FALSE(std::filesystem::exists(log.url()));
  EXPECT_EQ(std::filesystem::file_size(log.previous()), 1'000'000u + prefix.size() + 1);
  EXPECT_EQ(readFile(log.previous()).substr(1'000'000), prefix + "\n");

  log.write(LogLevel::info, "fresh");
  rt.drainSerialQueues();
  EXPECT_EQ(readFile(log.url()), prefix + "fresh\n");
  EXPECT_EQ(log.files(), (std::vector<std::filesystem::path>{log.previous(), log.url()}));
}

TEST_F(FileLogTest, DeletedFolderLosesOneLineThenTheNextRecreatesIt) {
  log.write(LogLevel::info, "one");
  rt.drainSerialQueues();
  std::filesystem::remove_all(folder);

  log.write(LogLevel::info, "lost");
  rt.drainSerialQueues();
  EXPECT_FALSE(std::filesystem::exists(folder));

  log.write(LogLevel::info, "three");
  rt.drainSerialQueues();
  EXPECT_EQ(readFile(log.url()), "2026-01-01T00:00:00.000Z INFO three\n");
}

TEST_F(FileLogTest, UnopenableFileDropsLinesWithoutFailingAndFlushWaitsForTheQueue) {
  std::filesystem::create_directories(log.url());  // a folder where the file should be
  log.write(LogLevel::info, "dropped");
  log.flush();
  std::filesystem::remove(log.url());

  int synced = 0;
  FileLog synced_log(folder, "Wrenhaven", queue, [this] { return rt.clock().wallNow(); },
                     [&](std::FILE*) { ++synced; });
  synced_log.write(LogLevel::info, "kept");
  synced_log.flush();  // runs the queued write first, then syncs
  EXPECT_EQ(readFile(log.url()), "2026-01-01T00:00:00.000Z INFO kept\n");
  EXPECT_EQ(synced, 1);
}

TEST(FileLogStamp, FormatsUtcWithMilliseconds) {
  using namespace std::chrono;
  const auto time = sys_days{2026y / November / 15} + 20h + 12min + 5s + 123ms + 900us;
  EXPECT_EQ(FileLog::stamp(time), "2026-11-15T20:12:05.123Z");
  EXPECT_EQ(FileLog::stamp(sys_days{1999y / December / 31} + 23h + 59min + 59s + 999ms),
            "1999-12-31T23:59:59.999Z");
}

TEST(FileLogName, FollowsTheTestRunnerVariable) {
  ASSERT_NE(std::getenv("XCTestConfigurationFilePath"), nullptr);
  EXPECT_EQ(FileLog::sharedName(), "Wrenhaven Tests");
  const std::string saved = std::getenv("XCTestConfigurationFilePath");
  ::unsetenv("XCTestConfigurationFilePath");
  EXPECT_EQ(FileLog::sharedName(), "Wrenhaven");
  ::setenv("XCTestConfigurationFilePath", saved.c_str(), 1);
}

class RecordingSystemLog : public SystemLog {
 public:
  void write(LogLevel level, const std::string& message) override {
    lines.push_back((level == LogLevel::error ? "E " : "I ") + message);
  }
  std::vector<std::string> lines;
};

TEST_F(FileLogTest, LogSendsEachMessageToTheSystemLogAndTheFile) {
  auto system = std::make_shared<RecordingSystemLog>();
  auto file = std::make_shared<FileLog>(folder, "Wrenhaven", queue, [this] { return rt.clock().wallNow(); });
  Log::install(system, file);
  Log::info("pinned input to MacBook Pro Microphone");
  Log::error("connect failed for aa-bb-cc-dd-ee-ff");
  Log::install(nullptr, nullptr);
  Log::info("goes nowhere");
  rt.drainSerialQueues();
  EXPECT_EQ(system->lines, (std::vector<std::string>{"I pinned input to MacBook Pro Microphone",
                                                     "E connect failed for aa-bb-cc-dd-ee-ff"}));
  EXPECT_EQ(readFile(file->url()),
            "2026-01-01T00:00:00.000Z INFO pinned input to MacBook Pro Microphone\n"
            "2026-01-01T00:00:00.000Z ERROR connect failed for aa-bb-cc-dd-ee-ff\n");
}

}  // namespace
}  // namespace wh
