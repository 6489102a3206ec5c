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
inline constexpr int playCD = 200;  // play alone: consumer-control devices, headphones over AVRCP
inline constexpr int pauseCD = 201;  // pause alone, from the same devices
inline constexpr int play = 207;
inline constexpr int fastForward = 208;
}  // namespace KeyCode

// The keys that make a device a media key device: the three kinds of play key, next and previous.
inline constexpr int mediaKeyCodes[] = {KeyCode::playPause, KeyCode::playCD, KeyCode::pauseCD, KeyCode::play,
                                        KeyCode::nextSong,  KeyCode::previousSong};

// Whether the bitmap has the key's bit. `bitsPerWord` is the kernel's long (64 on 64-bit systems).
bool reportsKey(std::string_view bitmap, int code, int bitsPerWord = 64);
// Whether the device reports one of `mediaKeyCodes`.
bool reportsMediaKeys(std::string_view bitmap, int bitsPerWord = 64);

}  // namespace wh
