// Writes settings keys through the real settings file store, so that tests can race separate
// processes on one file.
//
//   settings_writer <file> <key prefix> <count> [value size]
//
// Writes the keys <prefix>0 .. <prefix><count-1>, one write each, every value a string of
// `value size` bytes (default 8) that ends with the key's number. Exits with 0 when every write
// reached the file, 1 when one failed, 2 on wrong arguments.
#include <cstdio>
#include <cstdlib>
#include <string>

#include "platform/linux/settings/JsonFileStore.h"

int main(int argc, char** argv) {
  if (argc != 4 && argc != 5) {
    std::fprintf(stderr, "usage: settings_writer <file> <key prefix> <count> [value size]\n");
    return 2;
  }
  const std::string prefix = argv[2];
  const long count = std::strtol(argv[3], nullptr, 10);
  const long size = argc == 5 ? std::strtol(argv[4], nullptr, 10) : 8;
  if (count < 0 || size < 1) return 2;

  wh::platform::JsonFileStore store(argv[1]);
  for (long index = 0; index < count; ++index) {
    const std::string number = std::to_string(index);
    const auto padding = static_cast<std::size_t>(size) > number.size() ? static_cast<std::size_t>(size) - number.size() : 0;
    const std::string value = std::string(padding, 'v') + number;
    if (!store.write({{prefix + number, wh::StoreValue::string(value)}})) {
      std::fprintf(stderr, "write of %s%s failed\n", prefix.c_str(), number.c_str());
      return 1;
    }
  }
  return 0;
}
