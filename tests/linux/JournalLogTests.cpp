// The system-log adapter speaks the journal's native protocol, or syslog's, over their
// well-known sockets. Where no journal or syslog daemon runs, the test takes the daemon's place
// on its socket and reads what the adapter sent.
#include <gtest/gtest.h>

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include "platform/linux/log/JournalLog.h"

namespace wh::platform {
namespace {

// A datagram socket bound at a path, removed again (with the folders made for it) afterwards.
class StandInDaemon {
 public:
  explicit StandInDaemon(const std::filesystem::path& path) : path_(path) {
    std::error_code error;
    if (std::filesystem::exists(path, error)) {
      whyNot_ = "a real daemon listens on " + path.string() + "; not writing test lines into it";
      return;
    }
    for (auto folder = path.parent_path(); !std::filesystem::exists(folder, error); folder = folder.parent_path()) {
      madeFolders_.push_back(folder);
    }
    std::filesystem::create_directories(path.parent_path(), error);
    fd_ = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.string().copy(address.sun_path, sizeof address.sun_path - 1);
    if (error || fd_ < 0 || ::bind(fd_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
      whyNot_ = "cannot listen on " + path.string() + " (needs to run as root)";
    }
  }
  ~StandInDaemon() {
    if (fd_ >= 0) ::close(fd_);
    std::error_code ignored;
    if (whyNot_.empty() || fd_ >= 0) std::filesystem::remove(path_, ignored);
    for (const auto& folder : madeFolders_) std::filesystem::remove(folder, ignored);
  }
  const std::string& whyNot() const { return whyNot_; }

  // The datagrams received within the time that contain `marker`.
  std::vector<std::string> receive(const std::string& marker, std::size_t wanted) {
    std::vector<std::string> found;
    for (int waits = 0; found.size() < wanted && waits < 50; ++waits) {
      pollfd ready{fd_, POLLIN, 0};
      if (::poll(&ready, 1, 100) <= 0) continue;
      char buffer[8192];
      const ssize_t got = ::recv(fd_, buffer, sizeof buffer, 0);
      if (got <= 0) continue;
      std::string datagram(buffer, static_cast<std::size_t>(got));
      if (datagram.find(marker) != std::string::npos) found.push_back(datagram);
    }
    return found;
  }

 private:
  std::filesystem::path path_;
  std::vector<std::filesystem::path> madeFolders_;
  std::string whyNot_;
  int fd_ = -1;
};

TEST(JournalLog, SendsTheMessageWithItsLevelSubsystemAndCategoryAsJournalFields) {
  StandInDaemon journal("/run/systemd/journal/socket");
  if (!journal.whyNot().empty()) GTEST_SKIP() << journal.whyNot();
  JournalLog log("com.quintelbarrows.wrenhaven", "core");
  ASSERT_TRUE(log.usesJournal());
  log.write(LogLevel::info, "journal test: pinned input to Built-in Microphone");
  log.write(LogLevel::error, "journal test: connect failed for aa-bb-cc-dd-ee-ff");

  const auto datagrams = journal.receive("journal test", 2);
  ASSERT_EQ(datagrams.size(), 2u);
  EXPECT_NE(datagrams[0].find("MESSAGE=journal test: pinned input to Built-in Microphone\n"), std::string::npos);
  EXPECT_NE(datagrams[0].find("PRIORITY=5\n"), std::string::npos);
  EXPECT_NE(datagrams[1].find("PRIORITY=3\n"), std::string::npos);
  for (const auto& datagram : datagrams) {
    EXPECT_NE(datagram.find("SYSLOG_IDENTIFIER=wrenhaven\n"), std::string::npos) << datagram;
    EXPECT_NE(datagram.find("WRENHAVEN_SUBSYSTEM=com.quintelbarrows.wrenhaven\n"), std::string::npos) << datagram;
    EXPECT_NE(datagram.find("WRENHAVEN_CATEGORY=core\n"), std::string::npos) << datagram;
  }
}

TEST(JournalLog, FallsBackToSyslogWhenNoJournalRuns) {
  if (std::filesystem::exists("/run/systemd/journal/socket")) GTEST_SKIP() << "a journal runs here";
  StandInDaemon syslog("/dev/log");
  if (!syslog.whyNot().empty()) GTEST_SKIP() << syslog.whyNot();
  {
    JournalLog log("com.quintelbarrows.wrenhaven", "core");
    ASSERT_FALSE(log.usesJournal());
    log.write(LogLevel::error, "syslog test: gave up on aa-bb-cc-dd-ee-ff");
  }
  const auto datagrams = syslog.receive("syslog test", 1);
  ASSERT_EQ(datagrams.size(), 1u);
  // User facility (8) + error (3).
  EXPECT_EQ(datagrams[0].rfind("<11>", 0), 0u) << datagrams[0];
  EXPECT_NE(datagrams[0].find("wrenhaven[" + std::to_string(::getpid()) + "]: "
                              "[com.quintelbarrows.wrenhaven:core] syslog test: gave up on aa-bb-cc-dd-ee-ff"),
            std::string::npos)
      << datagrams[0];
}

}  // namespace
}  // namespace wh::platform
