#include "ui/panels/ReportWindow.h"

#include <QDesktopServices>
#include <QDir>
#include <QFileDialog>
#include <QUrl>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QVBoxLayout>

#include "core/log/Log.h"
#include "ui/kit/NJControls.h"
#include "ui/kit/NJTokens.h"
#include "ui/panels/Labels.h"

namespace wh::panels {
namespace {

using nj::NJTokens;

constexpr int formWidth = 420;
constexpr int resultWidth = 340;
constexpr int noteHeight = 110;

}  // namespace

ReportWindow::ReportWindow(std::string systemName) : systemName_(std::move(systemName)) {}

ReportWindow::~ReportWindow() {
  delete form_;
  delete result_;
}

void ReportWindow::actOn(ReportProblem& report) {
  send = [&report](const std::string& note, const std::string& email) { report.send(note, email); };
  saveReport = [&report](const std::string& note, const std::string& email) { report.saveReport(note, email); };
  saveArchive = [&report](const std::filesystem::path& zip) { report.save(zip); };
}

void ReportWindow::show() {
  if (!form_) form_ = buildForm();
  form_->show();
  form_->raise();
  form_->activateWindow();
}

nj::NJWindow* ReportWindow::buildForm() {
  QVBoxLayout* layout = nullptr;
  nj::NJWindow* form = panelWindow(formTitle, formWidth, layout);
  form->setObjectName("reportPanel");
  layout->addWidget(label(qs(ReportProblem::explanation(systemName_)), NJTokens::captionSize, true, form));
  auto* note = new QPlainTextEdit(form);
  note->setAccessibleName("Note");
  note->setFixedHeight(noteHeight);
  layout->addWidget(note);
  auto* email = new QLineEdit(form);
  email->setPlaceholderText(emailPlaceholder);
  layout->addWidget(email);
  auto* buttons = new QHBoxLayout;
  buttons->addStretch();
  auto* cancel = addButton(*buttons, "Cancel", nj::NJButton::Style::plain, form);
  auto* saveButton = addButton(*buttons, "Save Report…", nj::NJButton::Style::plain, form);
  auto* sendButton = addButton(*buttons, "Send Report", nj::NJButton::Style::accent, form);
  layout->addLayout(buttons);
  QObject::connect(cancel, &QAbstractButton::clicked, form, &QWidget::close);
  const auto submit = [form, note, email](const std::function<void(const std::string&, const std::string&)>& action) {
    const std::string noteText = note->toPlainText().toStdString();
    const std::string address = email->text().trimmed().toStdString();
    form->close();
    if (action) action(noteText, address);
  };
  QObject::connect(sendButton, &QAbstractButton::clicked, form, [this, submit] { submit(send); });
  QObject::connect(saveButton, &QAbstractButton::clicked, form, [this, submit] { submit(saveReport); });
  form->adjustSize();
  return form;
}

nj::NJWindow* ReportWindow::showResult(const std::string& title, const std::string& text) {
  // Later: this may run from a button of the window it replaces.
  if (result_) result_->deleteLater();
  QVBoxLayout* layout = nullptr;
  result_ = panelWindow(qs(title), resultWidth, layout);
  result_->setObjectName("reportResult");
  if (!text.empty()) layout->addWidget(label(qs(text), NJTokens::captionSize, true, result_));
  return result_;
}

void ReportWindow::showMessage(const std::string& title, const std::string& text) {
  nj::NJWindow* shown = showResult(title, text);
  auto* buttons = new QHBoxLayout;
  buttons->addStretch();
  QObject::connect(addButton(*buttons, "OK", nj::NJButton::Style::accent, shown), &QAbstractButton::clicked, shown,
                   &QWidget::close);
  static_cast<QVBoxLayout*>(shown->layout())->addLayout(buttons);
  shown->adjustSize();
  shown->show();
}

void ReportWindow::offerSave(const std::string& title, const std::string& text, const std::filesystem::path& zip) {
  nj::NJWindow* shown = showResult(title, text);
  auto* buttons = new QHBoxLayout;
  buttons->addStretch();
  auto* cancel = addButton(*buttons, "Cancel", nj::NJButton::Style::plain, shown);
  auto* saveButton = addButton(*buttons, "Save to File…", nj::NJButton::Style::accent, shown);
  QObject::connect(cancel, &QAbstractButton::clicked, shown, &QWidget::close);
  QObject::connect(saveButton, &QAbstractButton::clicked, shown, [this, shown, zip] {
    shown->close();
    if (saveArchive) saveArchive(zip);
  });
  static_cast<QVBoxLayout*>(shown->layout())->addLayout(buttons);
  shown->adjustSize();
  shown->show();
}

std::optional<std::filesystem::path> ReportWindow::chooseSaveLocation(const std::filesystem::path& zip) {
  const QString suggested = QDir::home().filePath(qs("Wrenhaven-" + zip.filename().string()));
  const QString where = QFileDialog::getSaveFileName(nullptr, "Save Report", suggested, "Zip archives (*.zip)");
  if (where.isEmpty()) return std::nullopt;
  return std::filesystem::path(where.toStdString());
}

void ReportWindow::showSaved(const std::filesystem::path& saved) {
  const QUrl folder = QUrl::fromLocalFile(qs(saved.parent_path().string()));
  if (!QDesktopServices::openUrl(folder)) {
    Log::info("report a problem: could not show the folder " + saved.parent_path().string());
    showMessage("Report saved", "It is in " + saved.parent_path().string() + ".");
  }
}

}  // namespace wh::panels
