#pragma once
// The kit's two typefaces, carried inside the program: Instrument Sans SemiBold for text and
// Geist Mono Medium for figures and key hints.

#include <QFont>

namespace nj {

class NJFonts {
 public:
  static constexpr const char* sansName = "InstrumentSans-SemiBold";
  static constexpr const char* monoName = "GeistMono-Medium";

  // Registers both faces with the application; answers how many of the two could be loaded.
  static int registerFonts();
  static QFont sans(double pointSize);
  static QFont mono(double pointSize);
};

}  // namespace nj
