#include "ui/panels/IdlePlayWindow.h"

#include <QGuiApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QPainter>
#include <QScreen>
#include <QVBoxLayout>

#include "ui/kit/NJControls.h"
#include "ui/kit/NJGlyphs.h"
#include "ui/kit/NJTokens.h"
#include "ui/panels/Labels.h"

namespace wh::panels {
namespace {

using nj::NJTokens;

// Below the top of the screen's free area.
constexpr int topGap = 10;
constexpr int panelWidth = 320;
constexpr int discSize = 28;

class Disc : public QWidget {
 public:
  using QWidget::QWidget;
  QSize sizeHint() const override { return {discSize, discSize}; }

 protected:
  void paintEvent(QPaintEvent*) override {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    nj::NJGlyphs::paint(painter, nj::NJGlyph::disc, QRectF(0, 0, discSize, discSize), NJTokens::colors(palette()).accent);
  }
};

IdlePlayAction actionFor(ScriptablePlayer player) {
  return player == ScriptablePlayer::spotify ? IdlePlayAction::spotify : IdlePlayAction::music;
}

}  // namespace

IdlePlayWindow::~IdlePlayWindow() { delete window_; }

nj::NJWindow* IdlePlayWindow::build(const IdlePlayView& view) {
  auto* window = new nj::NJWindow(IdlePlayView::title);
  window->setObjectName("idlePlayPanel");
  window->setWindowFlags(Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint | Qt::WindowDoesNotAcceptFocus);
  window->setAttribute(Qt::WA_ShowWithoutActivating);
  window->setFixedWidth(panelWidth);
  auto* layout = new QVBoxLayout(window);
  layout->setContentsMargins(NJTokens::space3, NJTokens::space3, NJTokens::space3, NJTokens::space3);
  layout->setSpacing(NJTokens::space2);

  auto* head = new QHBoxLayout;
  head->setSpacing(NJTokens::space2);
  head->addWidget(new Disc(window));
  head->addWidget(label(IdlePlayView::title, NJTokens::titleSize, false, window), 1);
  layout->addLayout(head);
  layout->addWidget(label(qs(view.prompt()), NJTokens::captionSize, true, window));

  auto* buttons = new QHBoxLayout;
  buttons->setSpacing(NJTokens::space2);
  for (const ScriptablePlayer player : view.players) {
    const auto style = player == view.suggested ? nj::NJButton::Style::accent : nj::NJButton::Style::plain;
    auto* button = new nj::NJButton(qs(displayName(player)), style, window);
    QObject::connect(button, &QAbstractButton::clicked, window, [choose = view.choose, player] { choose(actionFor(player)); });
    buttons->addWidget(button);
  }
  buttons->addStretch();
  layout->addLayout(buttons);

  auto* remember = new QHBoxLayout;
  remember->addWidget(label(IdlePlayView::rememberLabel, NJTokens::captionSize, false, window), 1);
  auto* toggle = new nj::NJSwitch(window);
  toggle->setAccessibleName(IdlePlayView::rememberLabel);
  toggle->setChecked(view.choice != nullptr && view.choice->remember);
  QObject::connect(toggle, &QAbstractButton::toggled, window, [choice = view.choice](bool on) {
    if (choice != nullptr) choice->remember = on;
  });
  remember->addWidget(toggle);
  layout->addLayout(remember);
  window->adjustSize();
  return window;
}

void IdlePlayWindow::show(const IdlePlayView& view) {
  close();
  window_ = build(view);
  QScreen* screen = QGuiApplication::primaryScreen();
  if (screen != nullptr) {
    const QRect area = screen->availableGeometry();
    window_->move(area.center().x() - window_->width() / 2, area.top() + topGap);
  }
  window_->show();
}

void IdlePlayWindow::close() {
  // Later: a choice closes the panel from inside one of its own buttons.
  if (window_) window_->deleteLater();
  window_ = nullptr;
}

}  // namespace wh::panels
