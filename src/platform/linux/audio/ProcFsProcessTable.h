#pragma once
// The process table read from /proc: parents from /proc/<pid>/stat, programs from the exe link,
// control groups from /proc/<pid>/cgroup and Flatpak instances from /proc/<pid>/root/.flatpak-info.
// A process that ends while it is being read simply answers nothing.

#include <filesystem>
#include <string_view>

#include "core/audio/AppGrouping.h"

namespace wh::platform {

// The parent pid in the text of /proc/<pid>/stat.
std::optional<std::int32_t> parentPidFromStat(std::string_view stat);
// The control group path in the text of /proc/<pid>/cgroup: the unified hierarchy's ("0::<path>"),
// else the last systemd one ("<n>:name=systemd:<path>").
std::optional<std::string> controlGroupFromText(std::string_view text);

class ProcFsProcessTable final : public ProcessTable {
 public:
  // `root` is /proc; tests may point it at a folder of their own.
  explicit ProcFsProcessTable(std::filesystem::path root = "/proc");

  std::int32_t ownPid() const override;
  std::vector<std::int32_t> pids() override;
  std::optional<std::int32_t> parentPid(std::int32_t pid) override;
  std::optional<std::string> executable(std::int32_t pid) override;
  std::optional<std::string> controlGroup(std::int32_t pid) override;
  std::optional<std::string> flatpakInfo(std::int32_t pid) override;

 private:
  std::filesystem::path entry(std::int32_t pid) const { return root_ / std::to_string(pid); }
  std::filesystem::path root_;
};

}  // namespace wh::platform
