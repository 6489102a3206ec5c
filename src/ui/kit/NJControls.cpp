#include "ui/kit/NJControls.h"

#include <QEnterEvent>
#include <QFontMetrics>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>

#include "ui/kit/NJFonts.h"

namespace nj {
namespace {

const NJColors& colorsOf(const QWidget* widget) { return NJTokens::colors(widget->palette()); }

constexpr int glyphColumn = 36;
constexpr int trailingGap = 10;

}  // namespace

NJSwitch::NJSwitch(QWidget* parent) : QAbstractButton(parent) {
  setCheckable(true);
  setCursor(Qt::PointingHandCursor);
  setFocusPolicy(Qt::TabFocus);
}

void NJSwitch::paintEvent(QPaintEvent*) {
  const NJColors& c = colorsOf(this);
  QPainter painter(this);
  painter.setRenderHint(QPainter::Antialiasing);
  const QRectF track = QRectF(rect()).adjusted(1, 2, -1, -2);
  const double radius = track.height() / 2;
  painter.setPen(Qt::NoPen);
  painter.setBrush(isChecked() ? c.accent : c.control);
  if (!isEnabled()) painter.setOpacity(0.5);
  painter.drawRoundedRect(track, radius, radius);
  const double knob = track.height() - 4;
  const double x = isChecked() ? track.right() - knob - 2 : track.left() + 2;
  painter.setBrush(c.knob);
  painter.drawEllipse(QRectF(x, track.top() + 2, knob, knob));
}

NJSlider::NJSlider(QWidget* parent) : QSlider(Qt::Horizontal, parent) {
  setRange(0, 100);
  setCursor(Qt::PointingHandCursor);
}

void NJSlider::paintEvent(QPaintEvent*) {
  const NJColors& c = colorsOf(this);
  QPainter painter(this);
  painter.setRenderHint(QPainter::Antialiasing);
  constexpr double knob = 14.0;
  const double groove = 4.0;
  const double span = width() - knob;
  const double fraction = maximum() > minimum() ? double(value() - minimum()) / (maximum() - minimum()) : 0.0;
  const double centre = height() / 2.0;
  painter.setPen(Qt::NoPen);
  painter.setBrush(c.control);
  painter.drawRoundedRect(QRectF(knob / 2, centre - groove / 2, span, groove), groove / 2, groove / 2);
  painter.setBrush(isEnabled() ? c.accent : c.secondaryText);
  painter.drawRoundedRect(QRectF(knob / 2, centre - groove / 2, span * fraction, groove), groove / 2, groove / 2);
  painter.setBrush(c.knob);
  painter.setPen(QPen(c.border, 1.0));
  painter.drawEllipse(QRectF(span * fraction, centre - knob / 2, knob, knob));
}

NJButton::NJButton(const QString& title, Style style, QWidget* parent) : QAbstractButton(parent), style_(style) {
  setText(title);
  setCursor(Qt::PointingHandCursor);
  setFont(NJFonts::sans(NJTokens::captionSize));
  if (style == Style::icon) setToolTip(title);
}

QSize NJButton::sizeHint() const {
  if (style_ == Style::icon) return {26, 26};
  const int padding = style_ == Style::link ? 0 : 2 * NJTokens::space3;
  return {QFontMetrics(font()).horizontalAdvance(text()) + padding, 24};
}

void NJButton::paintEvent(QPaintEvent*) {
  const NJColors& c = colorsOf(this);
  QPainter painter(this);
  painter.setRenderHint(QPainter::Antialiasing);
  const QRectF box = QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5);
  if (style_ == Style::icon) {
    if (hovered_ || isDown()) {
      painter.setPen(Qt::NoPen);
      painter.setBrush(c.surfaceHover);
      painter.drawRoundedRect(box, NJTokens::radiusSmall, NJTokens::radiusSmall);
    }
    NJGlyphs::paint(painter, glyph_, box.adjusted(4, 4, -4, -4), c.secondaryText);
    return;
  }
  if (style_ == Style::link) {
    painter.setPen(hovered_ ? c.text : c.accent);
    painter.drawText(box, Qt::AlignVCenter | Qt::AlignLeft, text());
    return;
  }
  const bool accent = style_ == Style::accent;
  QColor fill = accent ? c.accent : c.surface;
  if (hovered_) fill = accent ? fill.lighter(110) : c.surfaceHover;
  if (isDown()) fill = fill.darker(108);
  painter.setPen(accent ? Qt::NoPen : QPen(c.border, 1.0));
  painter.setBrush(fill);
  painter.drawRoundedRect(box, NJTokens::radiusSmall, NJTokens::radiusSmall);
  painter.setPen(accent ? c.accentText : c.text);
  painter.drawText(box, Qt::AlignCenter, text());
}

void NJButton::enterEvent(QEnterEvent*) { hovered_ = true, update(); }
void NJButton::leaveEvent(QEvent*) { hovered_ = false, update(); }

NJSectionHeader::NJSectionHeader(const QString& title, QWidget* parent) : QWidget(parent), title_(title.toUpper()) {
  setAccessibleName(title);  // drawn in capitals, read as written
  setFont(NJFonts::mono(NJTokens::headerSize));
  setFixedHeight(sizeHint().height());
}

void NJSectionHeader::paintEvent(QPaintEvent*) {
  QPainter painter(this);
  painter.setPen(colorsOf(this).secondaryText);
  QFont spaced = font();
  spaced.setLetterSpacing(QFont::AbsoluteSpacing, 0.8);
  painter.setFont(spaced);
  painter.drawText(rect().adjusted(NJTokens::space3, 0, -NJTokens::space3, -4), Qt::AlignLeft | Qt::AlignBottom, title_);
}

NJKitRow::NJKitRow(const QString& title, QWidget* parent) : QWidget(parent), title_(title) {
  setFont(NJFonts::sans(NJTokens::bodySize));
  setAccessibleName(title);  // the row is painted: screen readers learn its texts from these
  setAttribute(Qt::WA_Hover);
}

void NJKitRow::setGlyph(NJGlyph glyph, QColor tint) { glyph_ = glyph, glyphTint_ = tint; }
void NJKitRow::setDetail(const QString& detail) { detail_ = detail, updateGeometry(); }
void NJKitRow::setTrailingText(const QString& text, QColor tint) {
  trailingText_ = text, trailingTint_ = tint;
  setAccessibleDescription(text);
}
void NJKitRow::setBattery(int percent) { battery_ = percent; }

void NJKitRow::setTrailing(QWidget* control) {
  trailing_ = control;
  control->setParent(this);
}

void NJKitRow::setAction(std::function<void()> action) {
  action_ = std::move(action);
  setCursor(action_ ? Qt::PointingHandCursor : Qt::ArrowCursor);
}

QSize NJKitRow::sizeHint() const {
  const int lines = detail_.isEmpty() ? 0 : static_cast<int>(detail_.count('\n')) + 1;
  const int height = lines == 0 && !glyph_ ? 30 : NJTokens::rowHeight + std::max(0, lines - 1) * 16;
  return {NJTokens::panelWidth, height};
}

void NJKitRow::paintEvent(QPaintEvent*) {
  const NJColors& c = colorsOf(this);
  QPainter painter(this);
  painter.setRenderHint(QPainter::Antialiasing);
  const QRectF box = QRectF(rect()).adjusted(NJTokens::space1, 1, -NJTokens::space1, -1);
  if (hovered_ && action_) {
    painter.setPen(Qt::NoPen);
    painter.setBrush(c.surfaceHover);
    painter.drawRoundedRect(box, NJTokens::radiusRow, NJTokens::radiusRow);
  }
  double left = box.left() + NJTokens::space2;
  if (glyph_) {
    const double size = NJTokens::glyphSize;
    NJGlyphs::paint(painter, *glyph_, QRectF(left, box.center().y() - size / 2, size, size),
                    glyphTint_.isValid() ? glyphTint_ : c.text);
    left = box.left() + glyphColumn;
  }
  double right = box.right() - NJTokens::space2;
  if (trailing_) right -= trailing_->width() + trailingGap;
  if (battery_) {
    const double size = 22;
    NJGlyphs::paintBattery(painter, QRectF(right - size, box.center().y() - size / 2, size, size), *battery_,
                           c.secondaryText, c.warning);
    right -= size + 4;
    painter.setFont(NJFonts::mono(NJTokens::captionSize));
    painter.setPen(*battery_ <= NJGlyphs::lowBattery ? c.warning : c.secondaryText);
    const QString figure = QString::number(*battery_) + "%";
    const int width = QFontMetrics(painter.font()).horizontalAdvance(figure);
    painter.drawText(QRectF(right - width, box.top(), width, box.height()), Qt::AlignVCenter, figure);
    right -= width + trailingGap;
  }
  if (!trailingText_.isEmpty()) {
    painter.setFont(NJFonts::mono(NJTokens::captionSize));
    painter.setPen(trailingTint_.isValid() ? trailingTint_ : c.secondaryText);
    const int width = QFontMetrics(painter.font()).horizontalAdvance(trailingText_);
    painter.drawText(QRectF(right - width, box.top(), width, box.height()), Qt::AlignVCenter, trailingText_);
    right -= width + trailingGap;
  }
  const double textWidth = std::max(0.0, right - left);
  const QFont titleFont = font();
  const QFontMetrics titleMetrics(titleFont);
  const QString title = titleMetrics.elidedText(title_, Qt::ElideRight, int(textWidth));
  painter.setFont(titleFont);
  painter.setPen(isEnabled() ? c.text : c.secondaryText);
  if (detail_.isEmpty()) {
    painter.drawText(QRectF(left, box.top(), textWidth, box.height()), Qt::AlignVCenter, title);
    return;
  }
  const double top = box.top() + 7;
  painter.drawText(QRectF(left, top, textWidth, titleMetrics.height()), Qt::AlignLeft | Qt::AlignTop, title);
  QFont detailFont = NJFonts::sans(NJTokens::captionSize);
  detailFont.setWeight(QFont::Normal);
  painter.setFont(detailFont);
  painter.setPen(c.secondaryText);
  const QFontMetrics detailMetrics(detailFont);
  double y = top + titleMetrics.height() + 1;
  for (const QString& line : detail_.split('\n')) {
    painter.drawText(QRectF(left, y, textWidth, detailMetrics.height()), Qt::AlignLeft | Qt::AlignTop,
                     detailMetrics.elidedText(line, Qt::ElideRight, int(textWidth)));
    y += 16;
  }
}

void NJKitRow::resizeEvent(QResizeEvent*) {
  if (!trailing_) return;
  const QSize hint = trailing_->sizeHint();
  const int right = width() - NJTokens::space1 - NJTokens::space2;
  trailing_->setGeometry(right - hint.width(), (height() - hint.height()) / 2, hint.width(), hint.height());
}

void NJKitRow::mouseReleaseEvent(QMouseEvent* event) {
  if (action_ && event->button() == Qt::LeftButton && rect().contains(event->position().toPoint())) action_();
}

void NJKitRow::enterEvent(QEnterEvent*) { hovered_ = true, update(); }
void NJKitRow::leaveEvent(QEvent*) { hovered_ = false, update(); }

}  // namespace nj
