#pragma once
// The process table and the desktop entries held in memory, for tests and benchmarks. Reads of
// the process table are counted, so a test can tell that identities are not resolved again.

#include "core/audio/AppGrouping.h"

namespace wh {

class MemoryProcessTable final : public ProcessTable {
 public:
  struct Process {
    std::optional<std::int32_t> parent;
    std::optional<std::string> executable, controlGroup, flatpakInfo;
  };

  std::int32_t own = 1000;
  std::map<std::int32_t, Process> processes;
  std::size_t reads = 0;

  std::int32_t ownPid() const override { return own; }
  std::vector<std::int32_t> pids() override {
    ++reads;
    std::vector<std::int32_t> out;
    for (const auto& entry : processes) out.push_back(entry.first);
    return out;
  }
  std::optional<std::int32_t> parentPid(std::int32_t pid) override { return read(pid, &Process::parent); }
  std::optional<std::string> executable(std::int32_t pid) override { return read(pid, &Process::executable); }
  std::optional<std::string> controlGroup(std::int32_t pid) override { return read(pid, &Process::controlGroup); }
  std::optional<std::string> flatpakInfo(std::int32_t pid) override { return read(pid, &Process::flatpakInfo); }

 private:
  template <class T>
  std::optional<T> read(std::int32_t pid, std::optional<T> Process::*field) {
    ++reads;
    const auto found = processes.find(pid);
    return found == processes.end() ? std::nullopt : found->second.*field;
  }
};

class MemoryDesktopEntries final : public DesktopEntries {
 public:
  void set(std::vector<DesktopEntry> entries) { catalog_ = std::make_shared<const DesktopCatalog>(std::move(entries)); }
  std::shared_ptr<const DesktopCatalog> catalog() override { return catalog_; }

 private:
  std::shared_ptr<const DesktopCatalog> catalog_ = std::make_shared<const DesktopCatalog>();
};

}  // namespace wh
