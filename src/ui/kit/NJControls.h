#pragma once
// The kit's custom-drawn controls: switch, slider, button, section header and row. Each paints
// itself from the tokens of the current theme.

#include <QAbstractButton>
#include <QSlider>
#include <QWidget>

#include <functional>

#include "ui/kit/NJGlyphs.h"
#include "ui/kit/NJTokens.h"

class QLabel;

namespace nj {

class NJSwitch : public QAbstractButton {
  Q_OBJECT
 public:
  explicit NJSwitch(QWidget* parent = nullptr);
  QSize sizeHint() const override { return {34, 20}; }

 protected:
  void paintEvent(QPaintEvent* event) override;
};

class NJSlider : public QSlider {
  Q_OBJECT
 public:
  explicit NJSlider(QWidget* parent = nullptr);
  QSize sizeHint() const override { return {140, 20}; }

 protected:
  void paintEvent(QPaintEvent* event) override;
};

class NJButton : public QAbstractButton {
  Q_OBJECT
 public:
  enum class Style { plain, accent, icon, link };
  NJButton(const QString& title, Style style, QWidget* parent = nullptr);
  void setGlyph(NJGlyph glyph) { glyph_ = glyph; }
  QSize sizeHint() const override;

 protected:
  void paintEvent(QPaintEvent* event) override;
  void enterEvent(QEnterEvent* event) override;
  void leaveEvent(QEvent* event) override;

 private:
  Style style_;
  NJGlyph glyph_ = NJGlyph::more;
  bool hovered_ = false;
};

// A small upper-case title above a group of rows.
class NJSectionHeader : public QWidget {
  Q_OBJECT
 public:
  explicit NJSectionHeader(const QString& title, QWidget* parent = nullptr);
  QSize sizeHint() const override { return {NJTokens::panelWidth, 26}; }

 protected:
  void paintEvent(QPaintEvent* event) override;

 private:
  QString title_;
};

// One line of the panel: a glyph, a title with an optional detail below it, a trailing figure
// (battery, key hint) and an optional trailing control. It highlights under the pointer and
// reports clicks when it has an action.
class NJKitRow : public QWidget {
  Q_OBJECT
 public:
  explicit NJKitRow(const QString& title, QWidget* parent = nullptr);

  void setGlyph(NJGlyph glyph, QColor tint = {});
  void setDetail(const QString& detail);
  void setTrailingText(const QString& text, QColor tint = {});
  void setBattery(int percent);
  void setTrailing(QWidget* control);
  void setAction(std::function<void()> action);
  QSize sizeHint() const override;
  QSize minimumSizeHint() const override { return {0, sizeHint().height()}; }

 protected:
  void paintEvent(QPaintEvent* event) override;
  void resizeEvent(QResizeEvent* event) override;
  void mouseReleaseEvent(QMouseEvent* event) override;
  void enterEvent(QEnterEvent* event) override;
  void leaveEvent(QEvent* event) override;

 private:
  QString title_;
  QString detail_;
  QString trailingText_;
  QColor trailingTint_;
  std::optional<NJGlyph> glyph_;
  QColor glyphTint_;
  std::optional<int> battery_;
  QWidget* trailing_ = nullptr;
  std::function<void()> action_;
  bool hovered_ = false;
};

}  // namespace nj
