#pragma once
// Which keys an input device reports, from the kernel's key capability bitmap (as sysfs shows it
// in capabilities/key: hexadecimal words separated by spaces, the most significant word first).

#include <string_view>

namespace wh {

namespace KeyCode {
inline constexpr int nextSong = 163;
inline constexpr int playPause = 164;
inline constexpr int previousSong = 165;
inline constexpr int rewind = 168;
inline constexpr int fastForward = 208;
}  // namespace KeyCode

// Whether the bitmap has the key's bit. `bitsPerWord` is the kernel's long (64 on 64-bit systems).
bool reportsKey(std::string_view bitmap, int code, int bitsPerWord = 64);
// Whether the device reports play/pause, next or previous.
bool reportsMediaKeys(std::string_view bitmap, int bitsPerWord = 64);

}  // namespace wh
