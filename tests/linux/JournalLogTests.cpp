// The system-log adapter speaks the journal's native protocol, or syslog's, over their
// well-known sockets. Where no journal or syslog daemon runs, the test takes the daemon's place
// on its socket and reads what the adapter sent.
#include <gtest/gtest.h>

#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include "platform/linux/log/JournalLog.h"
#include "support/RigRequired.h"
#include "support/StandInSocket.h"

namespace wh::platform {
namespace {

TEST(JournalLog, SendsJournalFieldsOrWithoutAJournalASyslogLine) {
  std::string skipped;
  for (const bool journal : {true, false}) {
    test::StandInSocket daemon(journal ? "/run/systemd/journal/socket" : "/dev/log", test::StandInSocket::Kind::datagram);
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
  REQUIRE_RIG(skipped.empty(), skipped);
}

}  // namespace
}  // namespace wh::platform
