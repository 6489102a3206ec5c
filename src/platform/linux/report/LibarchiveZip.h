#pragma once
// The report archive written in process with libarchive: a zip of a folder whose top entry is the
// folder's own name.

#include "core/report/ReportProblem.h"

namespace wh::platform {

class LibarchiveZip final : public ReportArchiver {
 public:
  std::string zip(const std::filesystem::path& folder, const std::filesystem::path& zip) override;
};

}  // namespace wh::platform
