#include "settings/SettingsWindow.h"

#include <QAbstractSlider>
#include <QApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QScrollArea>
#include <QTimer>
#include <QVBoxLayout>

#include <vector>

#include "ui/kit/NJControls.h"
#include "ui/kit/NJFonts.h"
#include "ui/kit/NJTokens.h"

namespace wh::settingsapp {
namespace {

constexpr int navigationWidth = 150;
constexpr int windowWidth = 640;
constexpr int windowHeight = 520;

constexpr std::array pageTitles{"Headphones", "Music quality", "Media keys", "Volume by app", "General"};

}  // namespace

SettingsWindow::SettingsWindow(Settings& settings, PageActions actions, Agent agent)
    : settings_(settings), pages_(settings, std::move(actions)), agent_(std::move(agent)),
      banner_(new QLabel), startAgent_(new nj::NJButton("Start Wrenhaven", nj::NJButton::Style::accent)),
      answerWait_(new QTimer(this)), navigation_(new QListWidget), content_(new QScrollArea) {
  answerWait_->setSingleShot(true);
  answerWait_->setInterval(agent_.answerWaitMs);
  connect(answerWait_, &QTimer::timeout, this, [this] {
    waiting_ = false;
    refresh();
  });
  banner_->setObjectName("statusBanner");
  setWindowTitle("Wrenhaven Settings");
  resize(windowWidth, windowHeight);
  auto* top = new QHBoxLayout;
  top->addWidget(banner_, 1);
  top->addWidget(startAgent_);
  banner_->setWordWrap(true);
  connect(startAgent_, &QAbstractButton::clicked, this, [this] { agent_.start(); });

  for (const char* title : pageTitles) navigation_->addItem(title);
  navigation_->setObjectName("navigation");
  navigation_->setFixedWidth(navigationWidth);
  navigation_->setFrameShape(QFrame::NoFrame);
  navigation_->setFont(nj::NJFonts::sans(nj::NJTokens::bodySize));
  styleNavigation();
  navigation_->setAccessibleName("Pages");
  navigation_->setCurrentRow(0);
  connect(navigation_, &QListWidget::currentRowChanged, this, [this] { refresh(); });
  // A screen reader chooses a page by selecting its entry: the page follows the selection.
  connect(navigation_, &QListWidget::itemSelectionChanged, this, [this] {
    const auto chosen = navigation_->selectedItems();
    if (!chosen.isEmpty() && navigation_->row(chosen.front()) != navigation_->currentRow()) {
      navigation_->setCurrentRow(navigation_->row(chosen.front()));
    }
  });
  content_->setWidgetResizable(true);

  auto* body = new QHBoxLayout;
  body->addWidget(navigation_);
  body->addWidget(content_, 1);
  auto* layout = new QVBoxLayout(this);
  layout->addLayout(top);
  layout->addLayout(body, 1);
  refresh();
}

// The page list in the kit's colours for the theme in use: rows on the window colour, the chosen
// one on the accent with rounded corners.
void SettingsWindow::styleNavigation() {
  const nj::NJColors& c = nj::NJTokens::colors(palette());
  navigation_->setStyleSheet(
      QString("QListWidget { background: %1; color: %2; outline: none; padding: %3px; }"
              "QListWidget::item { padding: %4px %5px; border-radius: %6px; }"
              "QListWidget::item:hover:!selected { background: %7; }"
              "QListWidget::item:selected { background: %8; color: %9; }")
          .arg(c.window.name(), c.text.name())
          .arg(nj::NJTokens::space1)
          .arg(nj::NJTokens::space2)
          .arg(nj::NJTokens::space3)
          .arg(nj::NJTokens::radiusSmall)
          .arg(c.surfaceHover.name(), c.accent.name(), c.accentText.name()));
}

void SettingsWindow::changeEvent(QEvent* event) {
  if (event->type() == QEvent::PaletteChange) styleNavigation();
  QWidget::changeEvent(event);
}

void SettingsWindow::statusAnswered() {
  fresh_ = true;
  waiting_ = false;
  answerWait_->stop();
  refresh();
}

void SettingsWindow::askStatus() {
  if (!agent_.askStatus || !agent_.running()) return;
  fresh_ = false;
  waiting_ = true;
  answerWait_->start();
  agent_.askStatus();
  refresh();
}

void SettingsWindow::showPage(PageBuilder::Page page) { navigation_->setCurrentRow(static_cast<int>(page)); }

void SettingsWindow::setAudioDevices(std::vector<AudioDevice> devices) {
  devices_ = std::move(devices);
  refresh();
}

void SettingsWindow::refresh() {
  if (redrawQueued_) return;
  redrawQueued_ = true;
  QMetaObject::invokeMethod(this, [this] { redraw(); }, Qt::QueuedConnection);
}

void SettingsWindow::redraw() {
  redrawQueued_ = false;
  const bool running = agent_.running();
  if (!running) fresh_ = false;
  banner_->setText(!running             ? "Wrenhaven is not running: the settings are saved, but nothing acts on them."
                   : fresh_ || waiting_ ? QString()
                                        : "Wrenhaven does not answer: what is shown may be out of date.");
  banner_->setVisible(!banner_->text().isEmpty());
  startAgent_->setVisible(!running);
  // A slider being dragged keeps its page until it is let go.
  if (const auto* held = qobject_cast<QAbstractSlider*>(QWidget::mouseGrabber());
      held != nullptr && held->isSliderDown()) {
    return;  // letting go writes the volume, which draws the page again
  }
  rebuildPage();
}

void SettingsWindow::rebuildPage() {
  // Text being typed (not yet written: the field writes when editing ends) survives the page
  // being drawn again, with its cursor and the keyboard focus.
  struct Typed {
    QString name, text;
    int cursor = 0;
    bool focused = false;
  };
  std::vector<Typed> typed;
  if (content_->widget() != nullptr) {
    for (const auto* edit : content_->widget()->findChildren<QLineEdit*>()) {
      if (edit->isModified()) typed.push_back({edit->accessibleName(), edit->text(), edit->cursorPosition(), edit->hasFocus()});
    }
  }
  auto* page = new QWidget;
  auto* layout = new QVBoxLayout(page);
  pages_.build(static_cast<PageBuilder::Page>(std::max(0, navigation_->currentRow())), readView(settings_, devices_), *layout);
  content_->setWidget(page);  // deletes the page drawn before
  for (const Typed& kept : typed) {
    for (auto* edit : page->findChildren<QLineEdit*>()) {
      if (edit->accessibleName() != kept.name) continue;
      edit->setText(kept.text);
      edit->setModified(true);
      edit->setCursorPosition(kept.cursor);
      if (kept.focused) edit->setFocus();
    }
  }
}

}  // namespace wh::settingsapp
