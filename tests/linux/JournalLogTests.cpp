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

TEST(JournalLog, SendsJournalFieldsOrWithoutAJournalASyslogLine) {
  std::string skipped;
  for (const bool journal : {true, false}) {
    StandInDaemon daemon(journal ? "/run/systemd/journal/socket" : "/dev/log");
    if (!daemon.whyNot().empty() || (!journal && std::filesystem::exists("/run/systemd/journal/socket"))) {
      skipped += daemon.whyNot().empty() ? "a journal runs here; " : daemon.whyNot() + "; ";
      continue;
    }
    {
      JournalLog log("com.quintelbarrows.wrenhaven", "core");
      EXPECT_EQ(log.usesJournal(), journal);
      log.write(LogLevel::info, "log test: pinned input to Built-in Microphone");
      log.write(LogLevel::error, "log test: gave up on aa-bb-cc-dd-ee-ff");
    }
    const auto lines = daemon.receive("log test", 2);
    ASSERT_EQ(lines.size(), 2u) << journal;
    if (journal) {
      EXPECT_NE(lines[0].find("MESSAGE=log test: pinned input to Built-in Microphone\nPRIORITY=5\n"),
                std::string::npos) << lines[0];
      EXPECT_NE(lines[1].find("PRIORITY=3\nSYSLOG_IDENTIFIER=wrenhaven\nWRENHAVEN_SUBSYSTEM="
                              "com.quintelbarrows.wrenhaven\nWRENHAVEN_CATEGORY=core\n"), std::string::npos) << lines[1];
    } else {
      EXPECT_EQ(lines[1].rfind("<11>", 0), 0u) << "user facility (8) + error (3): " << lines[1];
      EXPECT_NE(lines[1].find("wrenhaven[" + std::to_string(::getpid()) + "]: "
                              "[com.quintelbarrows.wrenhaven:core] log test: gave up on aa-bb-cc-dd-ee-ff"),
                std::string::npos) << lines[1];
    }
  }
  if (!skipped.empty()) GTEST_SKIP() << skipped;
}

}  // namespace
}  // namespace wh::platform
