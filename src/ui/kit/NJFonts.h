#pragma once
// The kit's typefaces, carried inside the program: Instrument Sans SemiBold for text and Geist Mono
// Medium for figures and key hints. Neither has the symbols the texts use (the media keys' ▶︎ ⏭︎ ⏮︎,
// the modifier keys ⌘ ⌥ ⌃ ⎋), so both fall back to Noto Sans Symbols 2 and Noto Sans Symbols, and
// the text face to Geist Mono (↩ ⇥ and Cyrillic key names), before any font of the system.

#include <QFont>
#include <QStringList>

namespace nj {

class NJFonts {
 public:
  static constexpr const char* sansName = "InstrumentSans-SemiBold";
  static constexpr const char* monoName = "GeistMono-Medium";
  static constexpr int faceCount = 4;

  // Registers the faces with the application; answers how many of them could be loaded.
  static int registerFonts();
  static QFont sans(double pointSize);
  static QFont mono(double pointSize);
  // The resource files of the bundled faces a font of the kit draws with, first choice first.
  static QStringList faceFiles(const QFont& font);
};

}  // namespace nj
