#include "settings/OnboardingGuide.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QScrollArea>
#include <QVBoxLayout>

#include "core/texts/PlatformTexts.h"
#include "ui/kit/NJControls.h"

namespace wh::settingsapp {
namespace {

constexpr int guideWidth = 520;
constexpr int guideHeight = 440;

QString accessExplanation(const std::string& access) {
  if (access == "allowed") return "Wrenhaven may use Bluetooth.";
  if (access == "denied") {
    return "Bluetooth access was refused, or Bluetooth is off. Turn Bluetooth on in the system settings, "
           "then ask again.";
  }
  if (access == "undetermined") return "Wrenhaven has not asked for Bluetooth yet.";
  return "Wrenhaven has not said yet whether it may use Bluetooth. Is it running?";
}

constexpr std::array stepNames{"welcome", "bluetooth", "headphones", "musicQuality", "mediaKeys", "login", "done"};

OnboardingGuide::Step savedStep(const Settings& settings) {
  const auto saved = settings.store().object(Keys::onboardingStep);
  const std::string name = saved ? saved->asString().value_or("") : "";
  const auto found = std::ranges::find(stepNames, name);
  return found == stepNames.end() ? OnboardingGuide::Step::welcome
                                  : static_cast<OnboardingGuide::Step>(found - stepNames.begin());
}

QLabel* paragraph(const QString& text) {
  auto* label = new QLabel(text);
  label->setWordWrap(true);
  return label;
}

}  // namespace

OnboardingGuide::OnboardingGuide(Settings& settings, PageActions actions)
    : settings_(settings), actions_(actions), pages_(settings, std::move(actions)), content_(new QScrollArea),
      back_(new nj::NJButton("Back", nj::NJButton::Style::plain)),
      next_(new nj::NJButton("Continue", nj::NJButton::Style::accent)) {
  setWindowTitle("Welcome to Wrenhaven");
  resize(guideWidth, guideHeight);
  content_->setWidgetResizable(true);
  auto* buttons = new QHBoxLayout;
  buttons->addWidget(back_);
  buttons->addStretch();
  buttons->addWidget(next_);
  auto* layout = new QVBoxLayout(this);
  layout->addWidget(content_, 1);
  layout->addLayout(buttons);
  connect(back_, &QAbstractButton::clicked, this, [this] { go(static_cast<Step>(static_cast<int>(step_) - 1)); });
  connect(next_, &QAbstractButton::clicked, this, [this] {
    if (step_ != Step::done) {
      go(static_cast<Step>(static_cast<int>(step_) + 1));
      return;
    }
    settings_.store().set(Keys::onboardingStep, std::nullopt);  // opened again, it starts at the beginning
    setFlag(settings_, Keys::onboardingDone, true);
    Q_EMIT finished();
  });
  // Where the person was when the guide last closed, whether by "Not Now" elsewhere or a quit.
  step_ = savedStep(settings_);
  if (step_ == Step::headphones) actions_.send("onboardingVisible", {{"value", true}});
  refresh();
}

OnboardingGuide::~OnboardingGuide() {
  if (step_ == Step::headphones) actions_.send("onboardingVisible", {{"value", false}});
}

void OnboardingGuide::go(Step step) {
  if (step == step_) return;
  // The agent keeps the paired list fresh only while the headphones step shows.
  if (step_ == Step::headphones) actions_.send("onboardingVisible", {{"value", false}});
  if (step == Step::headphones) actions_.send("onboardingVisible", {{"value", true}});
  step_ = step;
  keep(step);
  refresh();
}

// Kept without announcing a settings change: the agent has nothing to do with it.
void OnboardingGuide::keep(Step step) {
  settings_.store().set(Keys::onboardingStep, StoreValue::string(stepNames.at(static_cast<size_t>(step))));
}

void OnboardingGuide::refresh() {
  if (redrawQueued_) return;
  redrawQueued_ = true;
  QMetaObject::invokeMethod(this, [this] { redraw(); }, Qt::QueuedConnection);
}

void OnboardingGuide::redraw() {
  redrawQueued_ = false;
  const SettingsView view = readView(settings_);
  auto* page = new QWidget;
  auto* layout = new QVBoxLayout(page);
  switch (step_) {
    case Step::welcome:
      layout->addWidget(new nj::NJSectionHeader("Welcome"));
      layout->addWidget(paragraph("Wrenhaven connects your Bluetooth headphones with one click, moves the sound "
                                  "to them and keeps them in music quality. A few steps set it up."));
      break;
    case Step::bluetooth:
      layout->addWidget(new nj::NJSectionHeader("Bluetooth"));
      // Asking for access while Bluetooth itself is stopped could only wait: say what stops it.
      if (view.bluetoothProblem) {
        pages_.addBluetoothProblem(view, *layout);
        break;
      }
      layout->addWidget(paragraph(accessExplanation(view.bluetoothAccess)));
      if (view.bluetoothAccess != "allowed") {
        auto* ask = new nj::NJButton("Allow Bluetooth…", nj::NJButton::Style::accent);
        connect(ask, &QAbstractButton::clicked, this,
                [this] { actions_.send("requestBluetooth", nlohmann::json::object()); });
        layout->addWidget(ask);
      }
      break;
    case Step::headphones:
      layout->addWidget(paragraph("Choose the headphones Wrenhaven should look after. Connect one to try it."));
      pages_.addHeadphonesChoices(view, *layout, true);
      break;
    case Step::musicQuality:
      layout->addWidget(new nj::NJSectionHeader("Music quality"));
      layout->addWidget(paragraph("Headphones drop to call quality when their microphone is used. Wrenhaven can "
                                  "keep the computer's own microphone as the input so that music stays clear."));
      layout->addWidget(pages_.switchRow("Keep music quality", view.pinInput,
                                         [this](bool on) { setFlag(settings_, Keys::pinInput, on); }));
      break;
    case Step::mediaKeys: {
      layout->addWidget(new nj::NJSectionHeader("Media keys"));
      layout->addWidget(paragraph(texts::kMediaKeysOnTheDesktop));
      layout->addWidget(pages_.switchRow("Media keys", view.mediaKeysEnabled,
                                         [this](bool on) { setFlag(settings_, Keys::mediaKeysEnabled, on); },
                                         QString::fromStdString(view.mediaKeysState)));
      auto* access = new nj::NJButton("Check Key Access", nj::NJButton::Style::plain);
      access->setAccessibleName(texts::kKeyAccess);
      connect(access, &QAbstractButton::clicked, this, [this] { checkKeyAccess(actions_); });
      layout->addWidget(access);
      break;
    }
    case Step::login:
      layout->addWidget(new nj::NJSectionHeader("Start at login"));
      layout->addWidget(pages_.switchRow("Start at Login", view.launchAtLogin.value_or(false),
                                         [this](bool on) { actions_.send("setLaunchAtLogin", {{"value", on}}); }));
      break;
    case Step::done:
      layout->addWidget(new nj::NJSectionHeader("Done"));
      // The icon is promised only where a tray shows it.
      if (view.trayProblem.empty()) {
        layout->addWidget(paragraph("Wrenhaven is ready. Its icon in the tray connects your headphones."));
      } else {
        layout->addWidget(paragraph("Wrenhaven is ready, but its icon is not shown:"));
        layout->addWidget(paragraph(QString::fromStdString(view.trayProblem)));
      }
      break;
  }
  layout->addStretch();
  content_->setWidget(page);
  back_->setEnabled(step_ != Step::welcome);
  next_->setText(step_ == Step::done ? "Finish" : "Continue");
}

}  // namespace wh::settingsapp
