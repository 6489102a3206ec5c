#include "platform/linux/log/JournalLog.h"

#include <syslog.h>
#include <systemd/sd-journal.h>
#include <unistd.h>

namespace wh::platform {

JournalLog::JournalLog(std::string subsystem, std::string category)
    : subsystem_(std::move(subsystem)),
      category_(std::move(category)),
      journal_(::access("/run/systemd/journal/socket", W_OK) == 0) {
  if (!journal_) ::openlog("wrenhaven", LOG_PID, LOG_USER);
}

JournalLog::~JournalLog() {
  if (!journal_) ::closelog();
}

void JournalLog::write(LogLevel level, const std::string& message) {
  const int priority = level == LogLevel::error ? LOG_ERR : LOG_NOTICE;
  if (journal_) {
    // The subsystem and category travel as fields of their own, and the message as one string.
    const int sent = ::sd_journal_send("MESSAGE=%s", message.c_str(), "PRIORITY=%i", priority,
                                       "SYSLOG_IDENTIFIER=wrenhaven", "WRENHAVEN_SUBSYSTEM=%s", subsystem_.c_str(),
                                       "WRENHAVEN_CATEGORY=%s", category_.c_str(), nullptr);
    if (sent == 0) return;
  }
  ::syslog(priority, "[%s:%s] %s", subsystem_.c_str(), category_.c_str(), message.c_str());
}

}  // namespace wh::platform
