#include <gtest/gtest.h>

#include <cstdlib>

#include "core/log/Log.h"
#include "doubles/VirtualRuntime.h"
#include "support/CapturedLog.h"
#include "support/TempDir.h"

namespace wh {
namespace {

using test::readFile;
constexpr const char* stamp = "2026-01-01T00:00:00.000Z";

class FileLogTest : public testing::Test {
 protected:
  std::shared_ptr<FileLog> make(std::function<void(std::FILE*)> sync = {}) {
    return std::make_shared<FileLog>(folder, "Wrenhaven", queue, [this] { return rt.clock().wallNow(); }, sync);
  }
  void write(const std::string& message) {
    log->write(LogLevel::info, message);
    rt.drainSerialQueues();
  }

  VirtualRuntime rt;
  test::TempDir temp{"wrenhaven-filelog"};
  std::filesystem::path folder = temp.path() / "Logs" / "Wrenhaven";
  std::shared_ptr<SerialQueue> queue = rt.makeSerialQueue(FileLog::queueLabel, QueuePriority::utility);
  std::shared_ptr<FileLog> log = make();
};

TEST_F(FileLogTest, LinesAreStampedAtTheCallWrittenOnTheQueueAndTheSystemLogGetsThemToo) {
  auto system = std::make_shared<test::RecordingLog>();
  Log::install(system, log);
  Log::info("media key tap running");
  rt.advance(1.5);  // the time is taken at the call, not when the queue writes
  Log::error("connect failed for aa-bb-cc-dd-ee-ff\nsecond line");
  EXPECT_FALSE(std::filesystem::exists(log->url())) << "nothing is written before the queue runs";
  Log::install(nullptr, nullptr);
  rt.drainSerialQueues();
  EXPECT_EQ(readFile(folder / "Wrenhaven.log"), std::string(stamp) + " INFO media key tap running\n"
                                                "2026-01-01T00:00:01.500Z ERROR connect failed for aa-bb-cc-dd-ee-ff\n"
                                                "second line\n");
  EXPECT_EQ(system->lines.size(), 2u);
  using namespace std::chrono;
  EXPECT_EQ(FileLog::stamp(sys_days{1999y / December / 31} + 23h + 59min + 59s + 999ms + 900us),
            "1999-12-31T23:59:59.999Z");
}

TEST_F(FileLogTest, RotatesWhenALineMakesTheFileReachOneMillionAndOneBytes) {
  test::writeFile(log->previous(), "oldest\n");
  const std::string prefix = std::string(stamp) + " INFO ";
  write(std::string(1'000'000 - prefix.size() - 1, 'a'));
  ASSERT_EQ(std::filesystem::file_size(log->url()), 1'000'000u);
  EXPECT_EQ(readFile(log->previous()), "oldest\n");
  write("");  // one byte more: written in full, then the file moves aside over the older one
  EXPECT_FALSE(std::filesystem::exists(log->url()));
  EXPECT_EQ(readFile(log->previous()).substr(1'000'000), prefix + "\n");
  write("fresh");
  EXPECT_EQ(readFile(log->url()), prefix + "fresh\n");
  EXPECT_EQ(log->files(), (std::vector<std::filesystem::path>{log->previous(), log->url()}));
}

TEST_F(FileLogTest, ALostFolderCostsOneLineAnUnopenableFileDropsLinesAndFlushSyncsAfterTheQueue) {
  write("one");
  std::filesystem::remove_all(folder);
  write("lost");
  EXPECT_FALSE(std::filesystem::exists(folder));
  write("three");
  EXPECT_EQ(readFile(log->url()), std::string(stamp) + " INFO three\n");

  std::filesystem::remove(log->url());
  std::filesystem::create_directories(log->url());  // a folder where the file should be
  write("dropped");
  std::filesystem::remove(log->url());
  int synced = 0;
  log = make([&](std::FILE*) { ++synced; });
  log->write(LogLevel::info, "kept");
  log->flush();  // runs the queued write first, then syncs
  EXPECT_EQ(readFile(log->url()), std::string(stamp) + " INFO kept\n");
  EXPECT_EQ(synced, 1);
}

TEST(FileLogName, FollowsTheTestRunnerVariable) {
  const std::string saved = std::getenv("XCTestConfigurationFilePath");
  EXPECT_EQ(FileLog::sharedName(), "Wrenhaven Tests");
  ::unsetenv("XCTestConfigurationFilePath");
  EXPECT_EQ(FileLog::sharedName(), "Wrenhaven");
  ::setenv("XCTestConfigurationFilePath", saved.c_str(), 1);
}

}  // namespace
}  // namespace wh
