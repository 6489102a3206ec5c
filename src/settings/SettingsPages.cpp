#include "settings/SettingsPages.h"

#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QVBoxLayout>

#include <cmath>

#include "core/settings/Records.h"
#include "core/texts/PlatformTexts.h"
#include "core/ui/DeviceMenu.h"
#include "core/ui/PanelRows.h"
#include "ui/kit/NJAboutWindow.h"
#include "ui/kit/NJControls.h"

namespace wh::settingsapp {
namespace {

// The volume slider's steps: whole percent.
constexpr int sliderSteps = 100;

QString qt(const std::string& text) { return QString::fromStdString(text); }

nj::NJKitRow* textRow(const QString& title, const std::string& value) {
  auto* row = new nj::NJKitRow(title);
  row->setTrailingText(qt(value));
  return row;
}

QLabel* paragraph(const QString& text) {
  auto* label = new QLabel(text);
  label->setWordWrap(true);
  return label;
}

nj::NJKitRow* buttonRow(const QString& title, const QString& button, std::function<void()> action) {
  auto* row = new nj::NJKitRow(title);
  auto* control = new nj::NJButton(button, nj::NJButton::Style::plain);
  // Read out alone, "Open" says nothing: the row's title goes with it.
  control->setAccessibleName(title + ": " + button);
  QObject::connect(control, &QAbstractButton::clicked, control, [action = std::move(action)] { action(); });
  row->setTrailing(control);
  return row;
}

// A drop-down of choices under the labels the tray's menus give them; `chosen` gets the one picked.
template <typename Option, size_t count>
nj::NJKitRow* choiceRow(const QString& title, const std::array<Option, count>& options, Option current,
                        std::string (*label)(Option), std::function<void(Option)> chosen) {
  auto* row = new nj::NJKitRow(title);
  auto* box = new QComboBox;
  box->setAccessibleName(title);
  for (const auto option : options) box->addItem(qt(label(option)));
  box->setCurrentIndex(static_cast<int>(std::ranges::find(options, current) - options.begin()));
  QObject::connect(box, &QComboBox::activated, box,
                   [options, chosen = std::move(chosen)](int index) { chosen(options.at(static_cast<size_t>(index))); });
  row->setTrailing(box);
  return row;
}

// What a click on the headphones does now, as their menu says it.
QString connectTitle(const HeadphonesRow& row) {
  return row.status.starts_with("Connected") ? "Disconnect" : "Connect";
}

}  // namespace

void PageBuilder::build(Page page, const SettingsView& view, QVBoxLayout& layout) const {
  switch (page) {
    case Page::headphones:
      headphones(view, layout);
      break;
    case Page::musicQuality:
      musicQuality(view, layout);
      break;
    case Page::mediaKeys:
      mediaKeys(view, layout);
      break;
    case Page::volume:
      volume(view, layout);
      break;
    case Page::general:
      general(view, layout);
      break;
  }
  layout.addStretch();
}

QWidget* PageBuilder::switchRow(const QString& title, bool on, std::function<void(bool)> changed,
                                const QString& detail) const {
  auto* row = new nj::NJKitRow(title);
  if (!detail.isEmpty()) row->setDetail(detail);
  auto* control = new nj::NJSwitch;
  control->setCheckable(true);
  control->setChecked(on);
  control->setAccessibleName(title);
  control->setObjectName(title);
  QObject::connect(control, &QAbstractButton::toggled, control, [changed = std::move(changed)](bool value) { changed(value); });
  row->setTrailing(control);
  return row;
}

void PageBuilder::addHeadphonesChoices(const SettingsView& view, QVBoxLayout& layout, bool offerTry) const {
  layout.addWidget(new nj::NJSectionHeader("Add headphones"));
  if (!view.addable) {
    layout.addWidget(textRow("Paired headphones", unknownText));
    return;
  }
  if (view.addable->empty()) layout.addWidget(paragraph("No other paired headphones or speakers"));
  for (const auto& choice : *view.addable) {
    layout.addWidget(buttonRow(qt(choice.name.empty() ? choice.address : choice.name), "Add",
                               [this, choice] { settings_.addDevice(choice.address, choice.name); }));
  }
  if (!offerTry) return;
  for (const auto& row : view.headphones) {
    layout.addWidget(buttonRow(qt(row.setting.name) + ": " + qt(row.status), connectTitle(row),
                               [this, address = row.setting.address] { actions_.send("toggle", {{"address", address}}); }));
  }
}

void PageBuilder::headphones(const SettingsView& view, QVBoxLayout& layout) const {
  addBluetoothProblem(view, layout);
  for (const auto& row : view.headphones) {
    const std::string address = row.setting.address;
    layout.addWidget(new nj::NJSectionHeader(qt(row.setting.name)));
    layout.addWidget(textRow("Status", row.status));
    layout.addWidget(textRow("Battery", row.battery));
    for (const ui::DeviceMenu::Flag& flag : ui::DeviceMenu::flags()) {
      auto* control = switchRow(flag.title, row.setting.*flag.member, [this, address, member = flag.member](bool on) {
        editDevice(settings_, address, [&](DeviceSetting& device) { device.*member = on; });
      });
      if (flag.member == &DeviceSetting::connectOnly) {
        control->setToolTip(qt(ui::DeviceMenu::connectOnlyToolTip(ui::DeviceMenu::displayName(row.setting))));
      }
      layout.addWidget(control);
    }
    layout.addWidget(choiceRow<DeviceIcon>("Icon", allDeviceIcons, savedDeviceIcon(row.setting.icon),
                                           &ui::DeviceMenu::iconLabel, [this, address](DeviceIcon icon) {
                                             editDevice(settings_, address, [icon](DeviceSetting& device) {
                                               device.icon = std::string(rawValue(icon));
                                             });
                                           }));
    layout.addWidget(hotkeyRow(row.setting));
    layout.addWidget(buttonRow("Connection", connectTitle(row),
                               [this, address] { actions_.send("toggle", {{"address", address}}); }));
    layout.addWidget(buttonRow("Forget these headphones", "Remove " + qt(ui::DeviceMenu::displayName(row.setting)),
                               [this, address] { settings_.removeDevice(address); }));
  }
  if (view.headphones.empty()) layout.addWidget(paragraph("Add your headphones"));
  addHeadphonesChoices(view, layout, false);
}

// The headphones' hotkey with "Record" (the recorder panel) and "Clear"; the new combination is
// saved in the headphones' record, which tells the agent to register it.
QWidget* PageBuilder::hotkeyRow(const DeviceSetting& device) const {
  auto* row = new nj::NJKitRow("Hotkey");
  const QString shown = device.hotkey ? qt(hotkeyText(*device.hotkey, actions_.keyboard)) : QString("None");
  row->setDetail(shown);
  row->setAccessibleDescription(shown);
  const auto save = [this, address = device.address](std::optional<HotkeyCombo> combo) {
    editDevice(settings_, address, [&combo](DeviceSetting& edited) { edited.hotkey = combo; });
  };
  auto* buttons = new QWidget;
  auto* line = new QHBoxLayout(buttons);
  line->setContentsMargins(0, 0, 0, 0);
  auto* record = new nj::NJButton("Record", nj::NJButton::Style::plain);
  record->setObjectName("hotkeyRecord");
  record->setEnabled(static_cast<bool>(actions_.recordHotkey));
  QObject::connect(record, &QAbstractButton::clicked, record, [this, name = device.name, save] {
    actions_.recordHotkey(name, [save](std::optional<HotkeyCombo> combo) {
      if (combo) save(combo);
    });
  });
  auto* clear = new nj::NJButton("Clear", nj::NJButton::Style::plain);
  clear->setObjectName("hotkeyClear");
  clear->setEnabled(device.hotkey.has_value());
  QObject::connect(clear, &QAbstractButton::clicked, clear, [save] { save(std::nullopt); });
  line->addWidget(record);
  line->addWidget(clear);
  row->setTrailing(buttons);
  return row;
}

void PageBuilder::musicQuality(const SettingsView& view, QVBoxLayout& layout) const {
  layout.addWidget(new nj::NJSectionHeader("Music quality"));
  layout.addWidget(switchRow("Keep music quality", view.pinInput,
                             [this](bool on) { setFlag(settings_, Keys::pinInput, on); }, qt(view.pinStatus)));
  if (!view.outputQuality.empty()) layout.addWidget(textRow("Output", view.outputQuality));
  layout.addWidget(choiceRow<CallModeOption>("During Calls", allCallModeOptions, view.callMode, &ui::callModeLabel,
                                             [this](CallModeOption option) { settings_.setCallMode(option); }));
  microphones(view, layout);
  layout.addWidget(new nj::NJSectionHeader("Meeting apps"));
  auto* apps = new QLineEdit;
  apps->setPlaceholderText("The built-in list");
  apps->setAccessibleName("Meeting apps");
  QStringList names;
  for (const auto& name : view.meetingApps) names.push_back(qt(name));
  apps->setText(names.join(", "));
  QObject::connect(apps, &QLineEdit::editingFinished, apps, [this, apps] {
    std::vector<std::string> list;
    for (const auto& part : apps->text().split(',', Qt::SkipEmptyParts)) {
      if (!part.trimmed().isEmpty()) list.push_back(part.trimmed().toStdString());
    }
    settings_.store().set(Keys::meetingApps, list.empty() ? std::nullopt : std::optional(StoreValue::stringArray(list)));
    settings_.changed(Keys::meetingApps);
  });
  layout.addWidget(apps);
  layout.addWidget(buttonRow("Use the built-in list", "Reset", [this] {
    settings_.store().set(Keys::meetingApps, std::nullopt);
    settings_.changed(Keys::meetingApps);
  }));
}

// The microphone to keep the default input on: the chosen one is ticked; one chosen earlier and
// unplugged since stays ticked, marked as not connected, until another is chosen.
void PageBuilder::microphones(const SettingsView& view, QVBoxLayout& layout) const {
  layout.addWidget(new nj::NJSectionHeader("Microphone"));
  if (!view.microphones) {
    layout.addWidget(textRow("Microphones", "Looking for microphones…"));
    return;
  }
  for (const auto& choice : *view.microphones) {
    auto* row = new nj::NJKitRow(qt(choice.title));
    row->setObjectName("microphoneChoice");
    row->setGlyph(nj::NJGlyph::mic);
    row->setAccessibleName(qt(choice.title));
    if (choice.chosen) {
      row->setTrailingText("✓");
      row->setAccessibleDescription("Chosen");
    }
    if (choice.present && !choice.chosen) {
      row->setAction([this, uid = choice.uid] { setPreferredInput(settings_, uid); });
    }
    layout.addWidget(row);
  }
}

void PageBuilder::addBluetoothProblem(const SettingsView& view, QVBoxLayout& layout) const {
  if (!view.bluetoothProblem) return;
  layout.addWidget(new nj::NJSectionHeader(qt(view.bluetoothProblem->title)));
  layout.addWidget(paragraph(qt(view.bluetoothProblem->fix)));
}

void checkKeyAccess(const PageActions& actions) {
  if (actions.showKeyAccess) return actions.showKeyAccess();
  actions.send("requestAccessibility", nlohmann::json::object());
}

void PageBuilder::mediaKeys(const SettingsView& view, QVBoxLayout& layout) const {
  layout.addWidget(new nj::NJSectionHeader("Media keys"));
  layout.addWidget(paragraph(texts::kMediaKeysOnTheDesktop));
  layout.addWidget(switchRow("Media keys", view.mediaKeysEnabled,
                             [this](bool on) { setFlag(settings_, Keys::mediaKeysEnabled, on); }, qt(view.mediaKeysState)));
  layout.addWidget(switchRow("Pause Media Keys", view.mediaKeysPaused,
                             [this](bool on) { setFlag(settings_, Keys::mediaKeysPaused, on); }));
  layout.addWidget(choiceRow<IdlePlayAction>("When Nothing Is Playing", allIdlePlayActions, view.idlePlay, &ui::idlePlayLabel,
                                             [this](IdlePlayAction action) { settings_.setIdlePlay(action); }));
  layout.addWidget(buttonRow(texts::kKeyAccess, "Check Again", [this] { checkKeyAccess(actions_); }));
}

void PageBuilder::volume(const SettingsView& view, QVBoxLayout& layout) const {
  layout.addWidget(new nj::NJSectionHeader("Volume by app"));
  if (!view.volumeApps || view.volumeApps->empty()) layout.addWidget(paragraph("Apps appear here when they play sound."));
  for (const auto& app : view.volumeApps.value_or(std::vector<VolumeRow>{})) {
    auto* row = new nj::NJKitRow(qt(app.name));
    row->setDetail(app.muted ? "Muted" : QString::number(std::lround(app.gain * sliderSteps)) + "%");
    auto* controls = new QWidget;
    auto* line = new QHBoxLayout(controls);
    line->setContentsMargins(0, 0, 0, 0);
    auto* slider = new nj::NJSlider;
    slider->setRange(0, sliderSteps);
    slider->setValue(static_cast<int>(std::lround(app.gain * sliderSteps)));
    slider->setAccessibleName(qt(app.name));
    // The panel's words: the button says what a click does.
    auto* mute = new nj::NJButton(app.muted ? "Unmute" : "Mute", nj::NJButton::Style::plain);
    mute->setAccessibleName((app.muted ? "Unmute " : "Mute ") + qt(app.name));
    const auto write = [this, id = app.appID, slider](bool muted) {
      setAppVolume(settings_, id, {static_cast<float>(slider->value()) / sliderSteps, muted});
    };
    QObject::connect(slider, &QSlider::sliderReleased, slider, [write, muted = app.muted] { write(muted); });
    QObject::connect(slider, &QSlider::valueChanged, slider, [slider, write, muted = app.muted] {
      if (!slider->isSliderDown()) write(muted);
    });
    QObject::connect(mute, &QAbstractButton::clicked, mute, [write, muted = app.muted] { write(!muted); });
    line->addWidget(slider);
    line->addWidget(mute);
    row->setTrailing(controls);
    layout.addWidget(row);
  }
  // A problem stays in sight whether or not an app is listed.
  if (!view.volumeProblem.empty()) {
    auto* problem = new nj::NJKitRow(qt(view.volumeProblemTitle));
    problem->setGlyph(nj::NJGlyph::speaker);
    layout.addWidget(problem);
    layout.addWidget(paragraph(qt(view.volumeProblem)));
    layout.addWidget(buttonRow("Try volume by app again", "Try Again",
                               [this] { actions_.send("reload", nlohmann::json::object()); }));
  }
}

void PageBuilder::general(const SettingsView& view, QVBoxLayout& layout) const {
  if (!view.trayProblem.empty()) {
    layout.addWidget(new nj::NJSectionHeader(texts::kTrayMissingTitle));
    layout.addWidget(paragraph(qt(view.trayProblem)));
  }
  layout.addWidget(new nj::NJSectionHeader("General"));
  if (view.launchAtLogin) {
    layout.addWidget(switchRow("Start at Login", *view.launchAtLogin,
                               [this](bool on) { actions_.send("setLaunchAtLogin", {{"value", on}}); }));
  } else {
    layout.addWidget(textRow("Start at Login", unknownText));
  }
  layout.addWidget(switchRow(texts::kShowTrayIcon, view.showTrayIcon,
                             [this](bool on) { setFlag(settings_, Keys::hideMenuIcon, !on); }));
  layout.addWidget(buttonRow("Welcome Guide", "Open", [this] {
    if (actions_.openGuide) actions_.openGuide();
  }));
  const auto add = [&layout](nj::NJKitRow* row, const char* buttonName) {
    row->findChild<nj::NJButton*>()->setObjectName(buttonName);
    layout.addWidget(row);
  };
  add(buttonRow("Something not working?", "Report a Problem",
                [this] {
                  if (actions_.reportProblem) actions_.reportProblem();
                }),
      "reportProblem");
  add(buttonRow("About Wrenhaven", "About", [this] { showAbout(); }), "about");
}

// The kit's About window, one at a time.
void PageBuilder::showAbout() const {
  if (!about_) {
    about_ = new nj::NJAboutWindow(qt(actions_.version));
    about_->setAttribute(Qt::WA_DeleteOnClose);
  }
  about_->show();
  about_->raise();
  about_->activateWindow();
}

}  // namespace wh::settingsapp
