#include "core/diagnostics/Diagnose.h"

#include <vector>

namespace wh {

namespace {

std::string orQuestionMark(const std::string& text) { return text.empty() ? "?" : text; }

std::string join(const std::vector<std::string>& lines) {
  std::string out;
  for (std::size_t i = 0; i < lines.size(); ++i) {
    if (i > 0) out += '\n';
    out += lines[i];
  }
  return out;
}

}  // namespace

std::string Diagnose::text() const {
  std::vector<std::string> lines;
  lines.push_back("Wrenhaven " + orQuestionMark(sources_.build.shortVersion) + " (" +
                  orQuestionMark(sources_.build.buildNumber) + ") on " + sources_.systemVersion);
  return join(lines);
}

}  // namespace wh
