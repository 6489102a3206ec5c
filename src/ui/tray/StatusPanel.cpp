#include "ui/tray/StatusPanel.h"

#include <QAbstractSlider>
#include <QCursor>
#include <QIcon>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QMenu>
#include <QPainter>

#include <algorithm>
#include <cmath>

#include "ui/kit/NJControls.h"
#include "ui/kit/NJFonts.h"
#include "ui/kit/NJMenu.h"
#include "ui/kit/NJTokens.h"

namespace wh::tray {
namespace {

using nj::NJTokens;
using Kind = BluetoothManager::Phase::Kind;

QString qs(const std::string& text) { return QString::fromStdString(text); }

// The brand mark beside the name, as the header's first item.
class BrandTitle : public QWidget {
 public:
  using QWidget::QWidget;
  QSize sizeHint() const override { return {160, 28}; }

 protected:
  void paintEvent(QPaintEvent*) override {
    const nj::NJColors& c = NJTokens::colors(palette());
    QPainter painter(this);
    nj::NJGlyphs::paintBrand(painter, QRectF(0, 3, 22, 22), c.accent, c.accentText);
    painter.setPen(c.text);
    painter.setFont(nj::NJFonts::sans(NJTokens::titleSize));
    painter.drawText(QRectF(30, 0, width() - 30, height()), Qt::AlignVCenter, "Wrenhaven");
  }
};

class Separator : public QWidget {
 public:
  explicit Separator(QWidget* parent) : QWidget(parent) { setFixedHeight(9); }

 protected:
  void paintEvent(QPaintEvent*) override {
    QPainter painter(this);
    painter.setPen(NJTokens::colors(palette()).separator);
    painter.drawLine(NJTokens::space3, height() / 2, width() - NJTokens::space3, height() / 2);
  }
};

QLabel* wrapped(const QString& text, QWidget* parent) {
  auto* label = new QLabel(text, parent);
  QFont font = nj::NJFonts::sans(NJTokens::captionSize);
  font.setWeight(QFont::Normal);
  label->setFont(font);
  label->setWordWrap(true);
  label->setContentsMargins(NJTokens::space3, 0, NJTokens::space3, 0);
  QPalette palette = label->palette();
  palette.setColor(QPalette::WindowText, NJTokens::colors(parent->palette()).secondaryText);
  label->setPalette(palette);
  return label;
}

}  // namespace

StatusPanel::StatusPanel(ui::StatusMenuController& controller, const Runtime& runtime)
    : controller_(controller), runtime_(runtime) {
  setObjectName("statusPanel");
  controller_.model().onGeneration = [this] { rebuild(); };
}

void StatusPanel::rebuild() {
  // An open options menu, or a slider the person is dragging, keeps the rows it belongs to: the
  // panel is drawn again once the menu closes or the slider is let go.
  const auto dragging = [this] {
    if (!content_) return false;
    const auto sliders = content_->findChildren<QAbstractSlider*>();
    return std::any_of(sliders.begin(), sliders.end(), [](const QAbstractSlider* slider) { return slider->isSliderDown(); });
  };
  if (menuOpen_ || dragging()) {
    stale_ = true;
    return;
  }
  stale_ = false;
  delete content_;
  delete layout();
  auto* outer = new QVBoxLayout(this);
  outer->setContentsMargins(NJTokens::space1, NJTokens::space2, NJTokens::space1, NJTokens::space2);
  content_ = new QWidget(this);
  outer->addWidget(content_);
  auto* layout = new QVBoxLayout(content_);
  layout->setContentsMargins(0, 0, 0, 0);
  layout->setSpacing(0);
  addHeader(*layout);
  addDevices(*layout);
  layout->addWidget(new Separator(content_));
  addRow(*layout, ui::musicQualityRow(controller_.model()), nj::NJGlyph::mic);
  addRow(*layout, ui::mediaKeysRow(controller_.model()), nj::NJGlyph::keys);
  addAppVolumes(*layout);
  layout->addWidget(new Separator(content_));
  addFooter(*layout);
  // Shown now, so that the size below counts every row.
  content_->show();
  outer->activate();
  adjustSize();
}

void StatusPanel::addHeader(QVBoxLayout& layout) {
  auto* header = new QWidget(content_);
  auto* row = new QHBoxLayout(header);
  row->setContentsMargins(NJTokens::space3, NJTokens::space1, NJTokens::space2, NJTokens::space1);
  row->addWidget(new BrandTitle(header));
  row->addStretch();
  auto* more = new nj::NJButton("More options", nj::NJButton::Style::icon, header);
  more->setObjectName("moreOptions");
  connect(more, &QAbstractButton::clicked, this, [this] { popUp(controller_.moreOptions(), nullptr); });
  row->addWidget(more);
  layout.addWidget(header);
}

void StatusPanel::addDevices(QVBoxLayout& layout) {
  const ui::DevicesSection section = ui::devicesSection(controller_.model(), runtime_.clock().wallNow());
  layout.addWidget(new nj::NJSectionHeader(section.emptyTitle.empty() ? "Headphones" : qs(section.emptyTitle), content_));
  const nj::NJColors& c = NJTokens::colors(palette());
  for (const auto& device : section.devices) {
    auto* row = new nj::NJKitRow(qs(device.name), content_);
    const bool connected = device.phase == Kind::connected;
    row->setGlyph(nj::NJGlyphs::forDevice(device.icon), connected ? c.accent : c.secondaryText);
    row->setDetail(qs(device.status));
    if (device.battery) row->setBattery(*device.battery);
    row->setAction(device.toggle);
    row->setToolTip(qs(device.name));
    layout.addWidget(row);
  }
  if (!section.notice.empty() || !section.noticeDetail.empty()) {
    if (!section.notice.empty()) {
      auto* title = new nj::NJKitRow(qs(section.notice), content_);
      title->setGlyph(nj::NJGlyph::bluetooth, c.warning);
      layout.addWidget(title);
    }
    layout.addWidget(wrapped(qs(section.noticeDetail), content_));
  }
  auto* buttons = new QHBoxLayout;
  buttons->setContentsMargins(NJTokens::space3, NJTokens::space2, NJTokens::space3, NJTokens::space1);
  if (section.noticeAction) {
    auto* allow = new nj::NJButton(qs(section.noticeAction->title), nj::NJButton::Style::accent, content_);
    connect(allow, &QAbstractButton::clicked, this, [run = section.noticeAction->run] { run(); });
    buttons->addWidget(allow);
  }
  if (section.addTitle) {
    auto* add = new nj::NJButton(qs(*section.addTitle), nj::NJButton::Style::plain, content_);
    connect(add, &QAbstractButton::clicked, this, [this, add, menu = section.addMenu] { popUp(menu, add); });
    buttons->addWidget(add);
  }
  buttons->addStretch();
  layout.addLayout(buttons);
}

void StatusPanel::addRow(QVBoxLayout& layout, ui::PanelRow rowData, nj::NJGlyph glyph) {
  auto* row = new nj::NJKitRow(qs(rowData.title), content_);
  row->setGlyph(glyph);
  row->setDetail(qs(rowData.detail));
  auto* toggle = new nj::NJSwitch(row);
  toggle->setChecked(rowData.switchOn);
  toggle->setAccessibleName(qs(rowData.title));
  connect(toggle, &QAbstractButton::toggled, this, [set = rowData.setSwitch](bool on) { set(on); });
  row->setTrailing(toggle);
  layout.addWidget(row);

  const int indent = 36 + NJTokens::space1;
  if (!rowData.actions.empty()) {
    auto* buttons = new QHBoxLayout;
    buttons->setContentsMargins(indent, 0, NJTokens::space3, NJTokens::space1);
    buttons->setSpacing(NJTokens::space2);
    for (const auto& action : rowData.actions) {
      auto* button = new nj::NJButton(qs(action.title), nj::NJButton::Style::plain, content_);
      connect(button, &QAbstractButton::clicked, this, [run = action.run] { run(); });
      buttons->addWidget(button);
    }
    buttons->addStretch();
    layout.addLayout(buttons);
  }
  auto* options = new nj::NJButton(qs(rowData.optionsLabel) + " ▾", nj::NJButton::Style::link, content_);
  connect(options, &QAbstractButton::clicked, this, [this, options, menu = rowData.options] { popUp(menu, options); });
  auto* line = new QHBoxLayout;
  line->setContentsMargins(indent, 0, NJTokens::space3, NJTokens::space1);
  line->addWidget(options);
  line->addStretch();
  layout.addLayout(line);
}

void StatusPanel::addAppVolumes(QVBoxLayout& layout) {
  const auto section = ui::appVolumeSection(controller_.model().s.volume);
  layout.addWidget(new Separator(content_));
  layout.addWidget(new nj::NJSectionHeader("Volume by App", content_));
  if (!section.emptyText.empty()) layout.addWidget(wrapped(qs(section.emptyText), content_));
  for (const auto& app : section.apps) addAppVolume(layout, app);
  if (section.problemTitle.empty()) return;
  auto* title = new nj::NJKitRow(qs(section.problemTitle), content_);
  title->setGlyph(nj::NJGlyph::speaker, NJTokens::colors(palette()).warning);
  layout.addWidget(title);
  layout.addWidget(wrapped(qs(section.problemDetail), content_));
  if (!section.problemAction) return;
  auto* buttons = new QHBoxLayout;
  buttons->setContentsMargins(NJTokens::space3, NJTokens::space2, NJTokens::space3, NJTokens::space1);
  auto* action = new nj::NJButton(qs(section.problemAction->title), nj::NJButton::Style::plain, content_);
  connect(action, &QAbstractButton::clicked, this, [run = section.problemAction->run] { run(); });
  buttons->addWidget(action);
  buttons->addStretch();
  layout.addLayout(buttons);
}

void StatusPanel::addAppVolume(QVBoxLayout& layout, const ui::AppVolumeRow& app) {
  constexpr int iconSize = 16;
  constexpr int sliderSteps = 100;
  auto* row = new QWidget(content_);
  row->setObjectName("appVolume");
  auto* line = new QHBoxLayout(row);
  line->setContentsMargins(NJTokens::space3, NJTokens::space1, NJTokens::space3, NJTokens::space1);
  line->setSpacing(NJTokens::space2);
  auto* icon = new QLabel(row);
  const QIcon themed = QIcon::fromTheme(qs(app.iconName));
  icon->setFixedSize(iconSize, iconSize);
  if (!themed.isNull()) icon->setPixmap(themed.pixmap(iconSize, iconSize));
  line->addWidget(icon);
  auto* name = new QLabel(qs(app.name), row);
  name->setFont(nj::NJFonts::sans(NJTokens::captionSize));
  // The theme's own text colour, so that the name follows a change of theme.
  name->setMinimumWidth(0);
  line->addWidget(name, 1);
  auto* slider = new nj::NJSlider(row);
  slider->setValue(static_cast<int>(std::lround(app.gain * sliderSteps)));
  slider->setAccessibleName(qs(app.name));
  // A drag writes once, at its end: every write rebuilds the panel, and the slider with it.
  auto write = [slider, set = app.setGain] { set(static_cast<float>(slider->value()) / sliderSteps); };
  connect(slider, &QSlider::sliderReleased, this, write);
  // What changed during the drag is drawn once it ends (after this slider's own signals).
  connect(slider, &QSlider::sliderReleased, this, [this] {
    if (stale_) QMetaObject::invokeMethod(this, [this] { if (stale_) rebuild(); }, Qt::QueuedConnection);
  });
  connect(slider, &QSlider::valueChanged, this, [slider, write] {
    if (!slider->isSliderDown()) write();
  });
  line->addWidget(slider);
  auto* mute = new nj::NJButton(app.muted ? "Unmute" : "Mute", nj::NJButton::Style::plain, row);
  mute->setAccessibleName((app.muted ? "Unmute " : "Mute ") + qs(app.name));
  connect(mute, &QAbstractButton::clicked, this, [toggle = app.toggleMute] { toggle(); });
  line->addWidget(mute);
  layout.addWidget(row);
}

void StatusPanel::addFooter(QVBoxLayout& layout) {
  for (const auto& action : controller_.footer()) {
    auto* row = new nj::NJKitRow(qs(action.title), content_);
    if (!action.keyHint.empty()) row->setTrailingText(qs(action.keyHint));
    row->setAction([this, run = action.run] {
      close();
      run();
    });
    layout.addWidget(row);
  }
}

void StatusPanel::popUp(const ui::Menu& entries, QWidget* below) {
  QMenu menu(this);
  nj::NJMenu::fill(menu, entries);
  menuOpen_ = true;
  menu.exec(below != nullptr ? below->mapToGlobal(QPoint(0, below->height())) : QCursor::pos());
  menuOpen_ = false;
  if (stale_) rebuild();
}

void StatusPanel::keyPressEvent(QKeyEvent* event) {
  const bool controlOnly = event->modifiers() == Qt::ControlModifier;
  // With Control held the event's text is a control character; the key tells which it was.
  char key = 0;
  if (event->key() == Qt::Key_Comma) key = ',';
  if (event->key() >= Qt::Key_A && event->key() <= Qt::Key_Z) key = static_cast<char>('a' + (event->key() - Qt::Key_A));
  if (key != 0 && controller_.keyPressed(key, controlOnly)) return;
  nj::NJPanel::keyPressEvent(event);
}

}  // namespace wh::tray
