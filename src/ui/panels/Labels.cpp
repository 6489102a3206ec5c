#include "ui/panels/Labels.h"

#include <QEvent>

#include "ui/kit/NJFonts.h"
#include "ui/kit/NJTokens.h"

namespace wh::panels {
namespace {

// Takes the theme's colour again whenever the palette changes.
class ThemedLabel final : public QLabel {
 public:
  ThemedLabel(const QString& text, bool secondary, QWidget* parent) : QLabel(text, parent), secondary_(secondary) {
    recolour();
  }

 protected:
  void changeEvent(QEvent* event) override {
    QLabel::changeEvent(event);
    if (event->type() == QEvent::PaletteChange && !recolouring_) recolour();
  }

 private:
  void recolour() {
    recolouring_ = true;
    QPalette colours = palette();
    const nj::NJColors& c = nj::NJTokens::colors(colours);
    colours.setColor(QPalette::WindowText, secondary_ ? c.secondaryText : c.text);
    setPalette(colours);
    recolouring_ = false;
  }

  bool secondary_;
  bool recolouring_ = false;
};

}  // namespace

QLabel* label(const QString& text, double size, bool secondary, QWidget* parent) {
  auto* out = new ThemedLabel(text, secondary, parent);
  out->setFont(nj::NJFonts::sans(size));
  out->setWordWrap(true);
  return out;
}

nj::NJWindow* panelWindow(const QString& title, int width, QVBoxLayout*& layout) {
  auto* out = new nj::NJWindow(title);
  out->setAttribute(Qt::WA_DeleteOnClose);
  out->setFixedWidth(width);
  layout = new QVBoxLayout(out);
  const int margin = nj::NJTokens::space3 * 2;
  layout->setContentsMargins(margin, margin, margin, margin);
  layout->setSpacing(nj::NJTokens::space2);
  layout->addWidget(label(title, nj::NJTokens::titleSize, false, out));
  return out;
}

nj::NJButton* addButton(QHBoxLayout& buttons, const QString& title, nj::NJButton::Style style, QWidget* parent) {
  auto* button = new nj::NJButton(title, style, parent);
  buttons.addWidget(button);
  return button;
}

}  // namespace wh::panels
