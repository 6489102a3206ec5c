#include "app/DesktopInstaller.h"

#include <QApplication>
#include <QFile>
#include <QMessageBox>
#include <QProcess>
#include <QPushButton>

#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "platform/linux/settings/XdgPaths.h"

namespace wh::app {

namespace {

// Without a display nobody can answer: the offer waits for a session with one.
bool canAsk() { return QGuiApplication::platformName() != QLatin1String("offscreen"); }

}  // namespace

std::string DesktopInstaller::programPath() const {
  if (const char* image = std::getenv("APPIMAGE"); image != nullptr && *image != '\0') return image;
  return QCoreApplication::applicationDirPath().toStdString();
}

bool DesktopInstaller::isAppImage() const {
  const char* image = std::getenv("APPIMAGE");
  return image != nullptr && *image != '\0';
}

bool DesktopInstaller::inBuildTree() const {
  std::error_code error;
  for (std::filesystem::path folder = QCoreApplication::applicationDirPath().toStdString(); !folder.empty();
       folder = folder.parent_path()) {
    if (std::filesystem::exists(folder / "CMakeCache.txt", error)) return true;
    if (folder == folder.root_path()) break;
  }
  return false;
}

std::string DesktopInstaller::applicationsFolder() const { return (platform::homeFolder() / "Applications").string(); }

bool DesktopInstaller::exists(const std::string& path) const {
  std::error_code error;
  return std::filesystem::exists(path, error);
}

std::string DesktopInstaller::moveToTrash(const std::string& path) {
  QFile file(QString::fromStdString(path));
  return file.moveToTrash() ? "" : "could not move " + path + " to the trash";
}

std::string DesktopInstaller::copy(const std::string& from, const std::string& to) {
  std::error_code error;
  std::filesystem::create_directories(std::filesystem::path(to).parent_path(), error);
  if (!error) std::filesystem::copy(from, to, std::filesystem::copy_options::recursive, error);
  return error ? error.message() : "";
}

std::string DesktopInstaller::launchLater(const std::string& path) {
  const std::string program = isAppImage() ? path : (std::filesystem::path(path) / programName).string();
  QProcess process;
  process.setProgram(QStringLiteral("/bin/sh"));
  process.setArguments({QStringLiteral("-c"), QStringLiteral("sleep 1; exec \"$0\""), QString::fromStdString(program)});
  return process.startDetached() ? "" : process.errorString().toStdString();
}

void DesktopInstaller::ask(const std::string& title, const std::string& text, const std::string& detail,
                           const std::string& accept, const std::string& decline, std::function<void(Choice)> answered) {
  if (!canAsk()) {
    answered(Choice::notNow);
    return;
  }
  // Not modal: the agent's services run while the question waits.
  auto* box = new QMessageBox(QMessageBox::Question, QString::fromStdString(title), QString::fromStdString(text));
  box->setInformativeText(QString::fromStdString(detail));
  box->setAttribute(Qt::WA_DeleteOnClose);
  box->setWindowModality(Qt::NonModal);
  QPushButton* move = box->addButton(QString::fromStdString(accept), QMessageBox::AcceptRole);
  box->addButton(QString::fromStdString(decline), QMessageBox::RejectRole);
  box->setDefaultButton(move);
  QObject::connect(box, &QMessageBox::finished, box, [box, move, answered = std::move(answered)](int) {
    answered(box->clickedButton() == move ? Choice::move : Choice::notNow);
  });
  box->show();
  box->raise();
  box->activateWindow();
}

void DesktopInstaller::alert(const std::string& title, const std::string& text) {
  if (!canAsk()) return;
  QMessageBox::warning(nullptr, QString::fromStdString(title), QString::fromStdString(text));
}

void DesktopInstaller::quit() { QMetaObject::invokeMethod(qApp, &QCoreApplication::quit, Qt::QueuedConnection); }

}  // namespace wh::app
