#include "ui/tray/TrayUserInterface.h"

#include <QApplication>
#include <QCursor>
#include <QEvent>

#include <algorithm>

#include "core/log/Log.h"
#include "ui/kit/NJFonts.h"
#include "ui/kit/NJGlyphs.h"
#include "ui/kit/NJMenu.h"
#include "ui/kit/NJTokens.h"

namespace wh::tray {
namespace {

using Kind = BluetoothManager::Phase::Kind;

const nj::NJColors& themeColors() { return nj::NJTokens::colors(QApplication::palette()); }

nj::NJGlyphState stateOf(Kind phase) {
  switch (phase) {
    case Kind::connected: return nj::NJGlyphState::active;
    case Kind::connecting:
    case Kind::disconnecting: return nj::NJGlyphState::busy;
    case Kind::failed: return nj::NJGlyphState::failed;
    case Kind::disconnected: break;
  }
  return nj::NJGlyphState::idle;
}

}  // namespace

// One headphones' tray item: its icon, tooltip and the menu the tray shows on a right click.
class TrayUserInterface::DeviceTrayItem final : public ui::DeviceItem {
 public:
  DeviceTrayItem(TrayUserInterface& owner, const std::string& address, std::function<void(Click)> clicked)
      : owner_(owner) {
    icon_.setContextMenu(&menu_);
    QObject::connect(&icon_, &QSystemTrayIcon::activated, &icon_, [clicked = std::move(clicked)](auto reason) {
      // Trays without modified clicks: the middle click stands for the menu click.
      if (reason == QSystemTrayIcon::Trigger) clicked(Click::plain);
      if (reason == QSystemTrayIcon::MiddleClick) clicked(Click::menu);
    });
    icon_.setObjectName(QString::fromStdString("Wrenhaven.device." + address));
    owner_.deviceItems_.push_back(this);
  }
  ~DeviceTrayItem() override { std::erase(owner_.deviceItems_, this); }

  void update(const ui::DeviceItemLook& look, ui::Menu menu) override {
    if (!look_ || *look_ != look) {
      look_ = look;
      redraw();
    }
    // An open menu is not rebuilt under the pointer; it is filled again before it next opens.
    if (!menu_.isVisible()) nj::NJMenu::fill(menu_, menu);
    if (!icon_.isVisible()) icon_.show();
  }
  void popUpMenu() override { menu_.popup(QCursor::pos()); }

  void redraw() {
    if (!look_) return;
    const nj::NJColors& c = themeColors();
    icon_.setIcon(nj::NJGlyphs::trayIcon(nj::NJGlyphs::forDevice(look_->icon), stateOf(look_->phase), look_->battery, c.text,
                                         c.positive, c.warning));
    icon_.setToolTip(QString::fromStdString(look_->toolTip));
  }

 private:
  TrayUserInterface& owner_;
  QSystemTrayIcon icon_;
  QMenu menu_;
  std::optional<ui::DeviceItemLook> look_;
};

TrayUserInterface::TrayUserInterface(TraySources sources) : sources_(std::move(sources)) {}

TrayUserInterface::~TrayUserInterface() {
  if (qApp != nullptr) qApp->removeEventFilter(this);
}

void TrayUserInterface::registerFonts() {
  const int loaded = nj::NJFonts::registerFonts();
  if (loaded < nj::NJFonts::faceCount) {
    Log::error("only " + std::to_string(loaded) + " of the " + std::to_string(nj::NJFonts::faceCount) +
               " typefaces could be registered");
  }
}

std::unique_ptr<ui::StatusMenuController> TrayUserInterface::makeStatusMenu() {
  auto controller = std::make_unique<ui::StatusMenuController>(sources_.runtime, sources_.services, sources_.settings,
                                                               sources_.audio, sources_.access,
                                                               static_cast<ui::StatusMenuView&>(*this), sources_.extras);
  controller_ = controller.get();
  // The desktop's theme changing reaches the application object.
  qApp->installEventFilter(this);
  if (!QSystemTrayIcon::isSystemTrayAvailable()) {
    Log::info("no tray: the status items are not shown; the agent keeps working");
  }
  item_ = std::make_unique<QSystemTrayIcon>(mainIcon());
  item_->setToolTip("Wrenhaven");
  connect(item_.get(), &QSystemTrayIcon::activated, this, [this](QSystemTrayIcon::ActivationReason reason) {
    if (controller_ && (reason == QSystemTrayIcon::Trigger || reason == QSystemTrayIcon::Context)) controller_->clicked();
  });
  return controller;
}

std::unique_ptr<ui::DeviceStatusItems> TrayUserInterface::makeDeviceItems() {
  return std::make_unique<ui::DeviceStatusItems>(sources_.runtime, sources_.services, sources_.settings,
                                                 static_cast<ui::DeviceTray&>(*this));
}

std::unique_ptr<ui::DeviceItem> TrayUserInterface::makeItem(const std::string& address,
                                                            std::function<void(Click)> clicked) {
  return std::make_unique<DeviceTrayItem>(*this, address, std::move(clicked));
}

QIcon TrayUserInterface::mainIcon() const {
  const nj::NJColors& c = themeColors();
  return nj::NJGlyphs::trayIcon(nj::NJGlyph::brand, nj::NJGlyphState::plain, std::nullopt, c.text, c.accent, c.warning);
}

void TrayUserInterface::setItemVisible(bool visible) {
  if (item_) item_->setVisible(visible);
}

bool TrayUserInterface::panelVisible() const { return panel_ && panel_->isVisible(); }

void TrayUserInterface::createPanel(ui::PanelModel&) {
  panel_ = new StatusPanel(*controller_, sources_.runtime);
  connect(panel_, &nj::NJPanel::hidden, this, [this] {
    if (controller_) controller_->panelClosed();
  });
}

void TrayUserInterface::showPanel() {
  panel_->rebuild();
  panel_->placeNear(item_ ? item_->geometry() : QRect(), QCursor::pos());
  panel_->show();
  panel_->activateWindow();
  panel_->setFocus();
}

void TrayUserInterface::closePanel() {
  if (panel_) panel_->close();
}

void TrayUserInterface::showAbout() {
  if (!about_) {
    about_ = new nj::NJAboutWindow(QString::fromStdString(sources_.version));
    about_->setAttribute(Qt::WA_DeleteOnClose);
  }
  about_->show();
  about_->raise();
  about_->activateWindow();
}

void TrayUserInterface::quit() { QApplication::quit(); }

void TrayUserInterface::followTheme() {
  if (item_) item_->setIcon(mainIcon());
  for (auto* item : deviceItems_) item->redraw();
  if (panelVisible()) panel_->rebuild();
}

bool TrayUserInterface::eventFilter(QObject* watched, QEvent* event) {
  if (watched == qApp && event->type() == QEvent::ApplicationPaletteChange) followTheme();
  return QObject::eventFilter(watched, event);
}

}  // namespace wh::tray
