#include "ui/hotkeys/HotkeyRecorderPanel.h"

#include <QGuiApplication>
#include <QKeyEvent>
#include <QKeySequence>
#include <QScreen>

#include "ui/kit/NJFonts.h"
#include "ui/kit/NJTokens.h"

namespace wh::hotkeys {
namespace {

constexpr int panelWidth = 340;
constexpr int panelHeight = 110;
// The labels' frames, measured from the panel's top.
const QRect messageFrame(20, panelHeight - 46 - 44, 300, 44);
const QRect hintFrame(20, panelHeight - 16 - 20, 300, 20);

// The stored modifier bits of the keys held with a key: Super is command, Alt option.
std::uint32_t storedModifiers(Qt::KeyboardModifiers modifiers) {
  std::uint32_t bits = 0;
  if (modifiers & Qt::MetaModifier) bits |= HotkeyModifier::command;
  if (modifiers & Qt::AltModifier) bits |= HotkeyModifier::option;
  if (modifiers & Qt::ControlModifier) bits |= HotkeyModifier::control;
  if (modifiers & Qt::ShiftModifier) bits |= HotkeyModifier::shift;
  return bits;
}

bool isModifierKey(int key) {
  return key == Qt::Key_Shift || key == Qt::Key_Control || key == Qt::Key_Alt || key == Qt::Key_Meta ||
         key == Qt::Key_Super_L || key == Qt::Key_Super_R || key == Qt::Key_AltGr || key == Qt::Key_CapsLock ||
         key == Qt::Key_NumLock;
}

}  // namespace

class HotkeyRecorderPanel::Window final : public nj::NJWindow {
 public:
  Window(const QString& title, const QString& message, const KeyboardLayout* layout, Handlers handlers)
      : NJWindow(title), layout_(layout), handlers_(std::move(handlers)) {
    setWindowFlag(Qt::WindowStaysOnTopHint);
    setAttribute(Qt::WA_DeleteOnClose);
    setFixedSize(panelWidth, panelHeight);
    const nj::NJColors& c = nj::NJTokens::colors(palette());
    message_.setText(message);
    message_.setWordWrap(true);
    message_.setGeometry(messageFrame);
    message_.setFont(nj::NJFonts::sans(nj::NJTokens::bodySize));
    message_.setStyleSheet("color: " + c.text.name());
    hint_.setGeometry(hintFrame);
    hint_.setFont(nj::NJFonts::sans(nj::NJTokens::captionSize));
    hint_.setStyleSheet("color: " + c.secondaryText.name());
  }
  void setHint(const QString& hint) { hint_.setText(hint); }
  // Closed by the recorder: no report back.
  void dismiss() {
    handlers_ = {};
    close();
  }

 protected:
  void keyPressEvent(QKeyEvent* event) override {
    if (isModifierKey(event->key()) || !handlers_.keyDown) return;
    const auto code = layout_ ? layout_->keyCode(event->nativeScanCode()) : std::nullopt;
    if (!code) {
      if (event->key() == Qt::Key_Escape) {
        handlers_.keyDown({escapeKeyCode, 0});
      } else if (handlers_.unknownKey) {
        // The desktop's name of the key: "Ö", "Ф", "Print".
        handlers_.unknownKey(QKeySequence(event->key()).toString(QKeySequence::NativeText).toStdString());
      }
      return;
    }
    const auto keyDown = handlers_.keyDown;  // may close this window
    keyDown({*code, storedModifiers(event->modifiers())});
  }
  void closeEvent(QCloseEvent* event) override {
    if (const auto closed = std::exchange(handlers_.closed, nullptr)) closed();
    handlers_ = {};
    NJWindow::closeEvent(event);
  }

 private:
  const KeyboardLayout* layout_;
  Handlers handlers_;
  QLabel message_{this};
  QLabel hint_{this};
};

HotkeyRecorderPanel::~HotkeyRecorderPanel() { close(); }

QWidget* HotkeyRecorderPanel::window() const { return window_.data(); }

void HotkeyRecorderPanel::open(const std::string& title, const std::string& message, Handlers handlers) {
  close();
  window_ = new Window(QString::fromStdString(title), QString::fromStdString(message), layout_, std::move(handlers));
  if (QScreen* screen = QGuiApplication::primaryScreen()) {
    window_->move(screen->availableGeometry().center() - window_->rect().center());
  }
  window_->show();
  window_->raise();
  window_->activateWindow();
}

void HotkeyRecorderPanel::setHint(const std::string& hint) {
  if (window_) window_->setHint(QString::fromStdString(hint));
}

void HotkeyRecorderPanel::close() {
  if (window_) window_->dismiss();
}

}  // namespace wh::hotkeys
