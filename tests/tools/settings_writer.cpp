// Writes settings keys through the real settings file store, so that tests can race separate
// processes on one file:  settings_writer <file> <key prefix> <count> <value size>
// Writes <prefix>0 .. <prefix><count-1>, one write each, every value a string of `value size`
// bytes ending with the key's number. Exits with 0 when every write reached the file, else 1.
#include <string>

#include "platform/linux/settings/JsonFileStore.h"

int main(int argc, char** argv) {
  if (argc != 5) return 2;
  wh::platform::JsonFileStore store(argv[1]);
  const std::size_t size = std::stoul(argv[4]);
  for (long index = 0; index < std::stol(argv[3]); ++index) {
    const std::string number = std::to_string(index);
    const std::string value = std::string(size > number.size() ? size - number.size() : 0, 'v') + number;
    if (!store.write({{argv[2] + number, wh::StoreValue::string(value)}})) return 1;
  }
  return 0;
}
