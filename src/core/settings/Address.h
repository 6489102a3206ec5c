#pragma once
// Headphones are known by their Bluetooth address in one normal form: lower case, with every ":"
// replaced by "-" (AA:BB:CC:DD:EE:FF becomes aa-bb-cc-dd-ee-ff). Every map keyed by headphones
// uses this form, and every comparison normalises both sides first.

#include <string>
#include <string_view>

namespace wh {

std::string normalizeAddress(std::string_view address);

}  // namespace wh
