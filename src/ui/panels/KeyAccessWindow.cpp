#include "ui/panels/KeyAccessWindow.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QProcess>
#include <QStandardPaths>
#include <QTime>
#include <QVBoxLayout>

#include <algorithm>

#include "core/log/Log.h"
#include "ui/kit/NJControls.h"
#include "ui/kit/NJFonts.h"
#include "ui/kit/NJTokens.h"
#include "ui/panels/Labels.h"

namespace wh::panels {
namespace {

using nj::NJTokens;

constexpr int width = 480;

}  // namespace

KeyAccessWindow::KeyAccessWindow(std::vector<texts::KeyAccessStep> steps, std::function<texts::InputAccess()> check)
    : steps_(std::move(steps)), check_(std::move(check)) {}

KeyAccessWindow::~KeyAccessWindow() { delete window_; }

void KeyAccessWindow::show() {
  if (!window_) window_ = build();
  window_->show();
  window_->raise();
  window_->activateWindow();
  check();
}

nj::NJWindow* KeyAccessWindow::build() {
  QVBoxLayout* layout = nullptr;
  nj::NJWindow* out = panelWindow(texts::kKeyAccessTitle, width, layout);
  out->setObjectName("keyAccessPanel");
  layout->addWidget(label(texts::kKeyAccessIntro, NJTokens::captionSize, true, out));
  for (const auto& step : steps_) {
    layout->addWidget(label(qs(step.text), NJTokens::captionSize, false, out));
    if (step.command.empty()) continue;
    auto* line = new QHBoxLayout;
    QLabel* command = label(qs(step.command), NJTokens::captionSize, false, out);
    command->setFont(nj::NJFonts::mono(NJTokens::captionSize));
    command->setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
    command->setAccessibleName("Command");
    line->addWidget(command, 1);
    auto* copy = addButton(*line, "Copy", nj::NJButton::Style::plain, out);
    copy->setAccessibleName("Copy: " + qs(step.command));
    QObject::connect(copy, &QAbstractButton::clicked, out,
                     [text = qs(step.command)] { QGuiApplication::clipboard()->setText(text); });
    layout->addLayout(line);
  }
  addAdministratorOffer(*layout, out);
  finding_ = label("", NJTokens::captionSize, false, out);
  finding_->setObjectName("keyAccessFinding");
  finding_->setAccessibleName("What the check found");
  layout->addWidget(finding_);
  auto* buttons = new QHBoxLayout;
  buttons->addStretch();
  auto* close = addButton(*buttons, "Close", nj::NJButton::Style::plain, out);
  auto* again = addButton(*buttons, "Check Again", nj::NJButton::Style::accent, out);
  QObject::connect(close, &QAbstractButton::clicked, out, &QWidget::close);
  QObject::connect(again, &QAbstractButton::clicked, out, [this] { check(); });
  layout->addLayout(buttons);
  out->adjustSize();
  return out;
}

void KeyAccessWindow::addAdministratorOffer(QVBoxLayout& layout, QWidget* out) {
  // Only where the system has the dialog, and never without the person's click and password.
  const QString pkexec = QStandardPaths::findExecutable(QStringLiteral("pkexec"));
  const auto step = std::find_if(steps_.begin(), steps_.end(), [](const auto& s) { return !s.privileged.empty(); });
  if (pkexec.isEmpty() || step == steps_.end()) return;
  layout.addWidget(label(texts::kKeyAccessAdminGrant, NJTokens::captionSize, false, out));
  auto* line = new QHBoxLayout;
  line->addStretch();
  auto* allow = addButton(*line, texts::kKeyAccessAdminButton, nj::NJButton::Style::plain, out);
  layout.addLayout(line);
  QObject::connect(allow, &QAbstractButton::clicked, out, [this, pkexec, command = qs(step->privileged), allow] {
    allow->setEnabled(false);
    auto* run = new QProcess(window_);
    QObject::connect(run, &QProcess::finished, window_, [this, run, allow](int status, QProcess::ExitStatus) {
      run->deleteLater();
      allow->setEnabled(true);
      // 126: the person closed the dialog; 127: not authorised.
      if (status != 0) Log::info("key access: the administrator's dialog ended with status " + std::to_string(status));
      check();
    });
    run->start(pkexec, {QStringLiteral("/bin/sh"), QStringLiteral("-c"), command});
  });
}

void KeyAccessWindow::check() {
  const texts::InputAccess access = check_ ? check_() : texts::InputAccess{};
  // The time tells a check that found the same from none at all.
  const QString when = QTime::currentTime().toString("HH:mm:ss");
  if (finding_) finding_->setText("Checked at " + when + ". " + qs(texts::keyAccessFinding(access)));
  if (window_) window_->adjustSize();
  if (checked) checked(access);
}

}  // namespace wh::panels
