#include "core/settings/Address.h"

namespace wh {

std::string normalizeAddress(std::string_view address) {
  std::string normal;
  normal.reserve(address.size());
  for (char c : address) {
    if (c == ':') {
      normal.push_back('-');
    } else if (c >= 'A' && c <= 'Z') {
      normal.push_back(static_cast<char>(c - 'A' + 'a'));
    } else {
      normal.push_back(c);
    }
  }
  return normal;
}

}  // namespace wh
