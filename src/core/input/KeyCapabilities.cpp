#include "core/input/KeyCapabilities.h"

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <vector>

namespace wh {

bool reportsKey(std::string_view bitmap, int code, int bitsPerWord) {
  if (code < 0 || bitsPerWord <= 0 || bitsPerWord > 64) return false;
  std::vector<std::string_view> words;
  for (std::size_t start = 0; start < bitmap.size();) {
    const std::size_t end = std::min(bitmap.find_first_of(" \n", start), bitmap.size());
    if (end > start) words.push_back(bitmap.substr(start, end - start));
    start = end + 1;
  }
  const auto index = static_cast<std::size_t>(code / bitsPerWord);
  if (index >= words.size()) return false;
  // The least significant word comes last.
  const std::string_view word = words[words.size() - 1 - index];
  std::uint64_t value = 0;
  for (char c : word) {
    int digit;
    if (c >= '0' && c <= '9') {
      digit = c - '0';
    } else if (c >= 'a' && c <= 'f') {
      digit = c - 'a' + 10;
    } else if (c >= 'A' && c <= 'F') {
      digit = c - 'A' + 10;
    } else {
      return false;  // not a bitmap
    }
    value = (value << 4) | static_cast<std::uint64_t>(digit);
  }
  return ((value >> (code % bitsPerWord)) & 1U) != 0;
}

bool reportsMediaKeys(std::string_view bitmap, int bitsPerWord) {
  return std::any_of(std::begin(mediaKeyCodes), std::end(mediaKeyCodes),
                     [&](int code) { return reportsKey(bitmap, code, bitsPerWord); });
}

}  // namespace wh
