#include "ui/tray/TrayUserInterface.h"

#include <QApplication>
#include <QGuiApplication>
#include <QCursor>
#include <QEvent>

#include <algorithm>

#include "core/log/Log.h"
#include "core/texts/PlatformTexts.h"
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

TrayItem::TrayItem(QString id, QString category, std::function<void(Click, QPoint)> clicked)
    : clicked_(std::move(clicked)), item_(std::move(id), std::move(category)) {
  connect(&item_, &StatusNotifierItem::activated, this, [this](QPoint at) { clicked_(Click::plain, at); });
  connect(&item_, &StatusNotifierItem::secondaryActivated, this, [this](QPoint at) { clicked_(Click::middle, at); });
  connect(&item_, &StatusNotifierItem::menuRequested, this, [this](QPoint at) { clicked_(Click::menu, at); });
  connect(&item_, &StatusNotifierItem::registeredChanged, this, [this] { followWatcher(); });
  connect(&item_, &StatusNotifierItem::watcherChanged, this, [this] {
    if (trayChanged) trayChanged();
  });
  // XEmbed only where it is the only tray from the start: Qt picks the tray protocol once per
  // program, so an icon made while a watcher is there would speak StatusNotifierItem.
  if (!item_.watcherSeen() && QGuiApplication::platformName() == QLatin1String("xcb") &&
      QSystemTrayIcon::isSystemTrayAvailable()) {
    xembed_ = std::make_unique<QSystemTrayIcon>();
    xembed_->setContextMenu(&menu_);
    connect(xembed_.get(), &QSystemTrayIcon::activated, this, [this](QSystemTrayIcon::ActivationReason reason) {
      if (reason == QSystemTrayIcon::Trigger) clicked_(Click::plain, {});
      if (reason == QSystemTrayIcon::MiddleClick) clicked_(Click::middle, {});
    });
  }
}

void TrayItem::setLook(const StatusNotifierItem::Look& look) {
  item_.setLook(look);
  if (xembed_) {
    xembed_->setIcon(look.pixmaps);
    xembed_->setToolTip(look.toolTip);
  }
}

void TrayItem::setMenu(const ui::Menu& menu) {
  item_.setMenu(menu);
  // An open menu is not rebuilt under the pointer; it is filled again before it next opens.
  if (!menu_.isVisible()) nj::NJMenu::fill(menu_, menu);
}

void TrayItem::setVisible(bool visible) {
  visible_ = visible;
  item_.setVisible(visible);
  followWatcher();
}

void TrayItem::followWatcher() {
  if (xembed_) xembed_->setVisible(visible_ && !item_.isRegistered());
}

void TrayItem::popUpMenu() { menu_.popup(QCursor::pos()); }

bool TrayItem::trayThere() const { return item_.watcherSeen() || (xembed_ && QSystemTrayIcon::isSystemTrayAvailable()); }

QRect TrayItem::geometry() const { return xembed_ && xembed_->isVisible() ? xembed_->geometry() : QRect(); }

// One headphones' tray item: its icon, tooltip and the menu the tray shows on a right click.
class TrayUserInterface::DeviceTrayItem final : public ui::DeviceItem {
 public:
  DeviceTrayItem(TrayUserInterface& owner, const std::string& address, std::function<void(Click)> clicked)
      : owner_(owner),
        // The address names the item from one session to the next.
        id_(QString::fromStdString("wrenhaven-" + address)),
        item_(id_, QStringLiteral("Hardware"),
              [clicked = std::move(clicked)](TrayItem::Click click, QPoint) {
                // Trays without modified clicks: the middle click stands for the menu click.
                if (click == TrayItem::Click::plain) clicked(Click::plain);
                if (click == TrayItem::Click::middle) clicked(Click::menu);
              }) {
    item_.setObjectName(QString::fromStdString("Wrenhaven.device." + address));
    owner_.deviceItems_.push_back(this);
  }
  ~DeviceTrayItem() override { std::erase(owner_.deviceItems_, this); }

  void update(const ui::DeviceItemLook& look, ui::Menu menu) override {
    if (!look_ || *look_ != look) {
      look_ = look;
      redraw();
    }
    item_.setMenu(menu);
    item_.setVisible(true);
  }
  void popUpMenu() override { item_.popUpMenu(); }

  void redraw() {
    if (!look_) return;
    item_.setLook(owner_.look(id_, nj::NJGlyphs::forDevice(look_->icon), stateOf(look_->phase), look_->battery,
                              QString::fromStdString(look_->toolTip)));
  }

 private:
  TrayUserInterface& owner_;
  QString id_;
  TrayItem item_;
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
  if (!StatusNotifierItem::watcherPresent() && !QSystemTrayIcon::isSystemTrayAvailable()) {
    Log::info("no tray: the status items are not shown until a tray appears; the agent keeps working");
  }
  item_ = std::make_unique<TrayItem>(QStringLiteral("wrenhaven"), QStringLiteral("ApplicationStatus"),
                                     [this](TrayItem::Click click, QPoint at) {
                                       if (!controller_ || click == TrayItem::Click::middle) return;
                                       clickedAt_ = at;
                                       controller_->clicked();
                                     });
  item_->setLook(mainLook());
  item_->trayChanged = [this] {
    if (trayChanged_) trayChanged_();
  };
  controller_->refresh();
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

StatusNotifierItem::Look TrayUserInterface::mainLook() {
  return look(QStringLiteral("wrenhaven"), nj::NJGlyph::brand, nj::NJGlyphState::plain, std::nullopt,
              QStringLiteral("Wrenhaven"));
}

StatusNotifierItem::Look TrayUserInterface::look(const QString& item, nj::NJGlyph glyph, nj::NJGlyphState state,
                                                 std::optional<int> battery, QString toolTip) {
  const nj::NJColors& c = themeColors();
  const auto name = icons_.put(item, SymbolicTrayIcons::svg(glyph, state, battery));
  return {name.value_or(QString()), name ? icons_.folder() : QString(),
          nj::NJGlyphs::trayIcon(glyph, state, battery, c.text, c.positive, c.warning), QStringLiteral("Wrenhaven"),
          std::move(toolTip)};
}

void TrayUserInterface::setItemVisible(bool visible) {
  itemWanted_ = visible;
  if (item_) item_->setVisible(visible);
  if (trayChanged_) trayChanged_();
}

std::string TrayUserInterface::trayProblem() const {
  if (!item_ || !itemWanted_ || item_->trayThere()) return {};
  return texts::trayMissing(SymbolicTrayIcons::shellRecolours());
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
  // The host's coordinates of the click where it gave them, else the pointer.
  const QRect icon = item_ ? item_->geometry() : QRect();
  panel_->placeNear(icon, clickedAt_.isNull() ? QCursor::pos() : clickedAt_);
  clickedAt_ = {};
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

// Where a window cannot place itself at the icon, the shell draws the item's menu there instead.
bool TrayUserInterface::wantsItemMenu() const { return !nj::NJPanel::windowsPlaceThemselves(); }

void TrayUserInterface::setItemMenu(const ui::Menu& menu) {
  if (!item_) return;
  item_->setMenu(menu);
  item_->setOnlyMenu(true);
}

void TrayUserInterface::followTheme() {
  if (item_) item_->setLook(mainLook());
  for (auto* item : deviceItems_) item->redraw();
  if (panelVisible()) panel_->rebuild();
}

bool TrayUserInterface::eventFilter(QObject* watched, QEvent* event) {
  if (watched == qApp && event->type() == QEvent::ApplicationPaletteChange) followTheme();
  return QObject::eventFilter(watched, event);
}

}  // namespace wh::tray
