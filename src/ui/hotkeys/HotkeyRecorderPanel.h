#pragma once
// The hotkey recorder's window: 340 by 110, the message above a hint line in the secondary
// colour, kept above other windows and centred. Keys pressed in it go to the recorder.

#include <QLabel>
#include <QPointer>

#include "core/hotkeys/HotkeyRecorder.h"
#include "ui/kit/NJPanel.h"

namespace wh::hotkeys {

class HotkeyRecorderPanel final : public RecorderPanel {
 public:
  explicit HotkeyRecorderPanel(const KeyboardLayout* layout) : layout_(layout) {}
  ~HotkeyRecorderPanel() override;

  void open(const std::string& title, const std::string& message, Handlers handlers) override;
  void setHint(const std::string& hint) override;
  void close() override;
  // The open window; for tests.
  QWidget* window() const;

 private:
  class Window;
  const KeyboardLayout* layout_;
  QPointer<Window> window_;
};

}  // namespace wh::hotkeys
