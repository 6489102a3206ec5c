// "Save Report…" on an X display: the form's button and the failed send's "Save to File…" open Qt's
// save dialog (answered here as a person would), the archive lands where it was told, and its
// folder is handed to the desktop through QDesktopServices.
#include <QDesktopServices>
#include <QFileDialog>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QTest>
#include <QTimer>
#include <QUrl>

#include "core/report/ReportProblem.h"
#include "platform/linux/report/LibarchiveZip.h"
#include "support/CapturedLog.h"
#include "support/RigRequired.h"
#include "support/TempDir.h"
#include "support/WidgetsApplication.h"
#include "ui/panels/ReportWindow.h"

namespace wh::test {

// Takes the desktop's "open this folder" for the test.
class FolderOpener : public QObject {
  Q_OBJECT
 public:
  QList<QUrl> opened;
 public slots:
  void open(const QUrl& url) { opened << url; }
};

namespace {

class NoService final : public ReportUploader {
 public:
  void post(Request, std::function<void(Response)>) override { ADD_FAILURE() << "nothing is sent without a service"; }
};

// Answers the next save dialog with `file` (empty: cancels it); answers what it was offered.
std::shared_ptr<QString> answerSaveDialog(const QString& file) {
  auto offered = std::make_shared<QString>();
  auto* poll = new QTimer;
  QObject::connect(poll, &QTimer::timeout, poll, [poll, file, offered] {
    auto* dialog = qobject_cast<QFileDialog*>(QApplication::activeModalWidget());
    if (dialog == nullptr) return;
    poll->deleteLater();
    *offered = dialog->selectedFiles().value(0);
    if (file.isEmpty()) return dialog->reject();
    auto* name = dialog->findChild<QLineEdit*>("fileNameEdit");
    if (name == nullptr) return ADD_FAILURE() << "Qt's own save dialog has a file name field", dialog->reject();
    name->setText(file);  // typed, as a person would
    QTest::keyClick(name, Qt::Key_Return);
  });
  poll->start(20);
  return offered;
}

TEST(ReportSaveTest, TheFormAndAFailedSendSaveTheArchiveWhereTheDialogSaysAndShowTheFolder) {
  REQUIRE_RIG(widgetsDisplay().available(), widgetsDisplay().whyNot());
  TempDir home("report-save");
  FolderOpener opener;
  QDesktopServices::setUrlHandler("file", &opener, "open");
  const std::unique_ptr<FolderOpener, void (*)(FolderOpener*)> handing(&opener, [](FolderOpener*) {
    QDesktopServices::unsetUrlHandler("file");
  });
  CapturedLog log;
  platform::LibarchiveZip zip;
  NoService uploader;
  panels::ReportWindow window("Debian GNU/Linux 12 (bookworm)");
  ReportProblem report({[] { return std::string("the diagnostics"); }, nullptr, home.path() / "crashes", home.path() / "tmp", "",
                        "help@example.com", "0.1.0", "Debian GNU/Linux 12 (bookworm)",
                        [] { return std::chrono::system_clock::now(); }},
                       zip, uploader, window);
  window.actOn(report);
  const auto fill = [&window](const char* note) {
    window.show();
    window.form()->findChild<QPlainTextEdit*>()->setPlainText(note);
  };

  fill("It hums");
  const auto chosen = home.path() / "out" / "hum.zip";
  std::filesystem::create_directories(chosen.parent_path());
  auto offered = answerSaveDialog(QString::fromStdString(chosen.string()));
  ASSERT_TRUE(press(*window.form(), "Save Report…"));
  EXPECT_TRUE(offered->endsWith(".zip")) << offered->toStdString();
  EXPECT_EQ(readFile(chosen).substr(0, 2), "PK") << "a zip archive";
  EXPECT_EQ(opener.opened, QList<QUrl>{QUrl::fromLocalFile(QString::fromStdString(chosen.parent_path().string()))});
  EXPECT_TRUE(log->has("report saved to " + chosen.string()));

  // Cancelled: nothing saved, nothing said.
  fill("Again");
  answerSaveDialog("");
  ASSERT_TRUE(press(*window.form(), "Save Report…"));
  EXPECT_EQ(opener.opened.size(), 1);
  EXPECT_FALSE(window.result() && window.result()->isVisible());

  // Send has nowhere to go; "Save to File…" offers the same dialog, and a place that cannot be
  // written says why.
  test::writeFile(home.path() / "a-file", "");
  fill("Crackles");
  ASSERT_TRUE(press(*window.form(), "Send Report"));
  ASSERT_TRUE(window.result() && window.result()->windowTitle() == "Could not send the report.");
  EXPECT_EQ(log->lines.back(), "report a problem: this build has no report service to send to");
  answerSaveDialog(QString::fromStdString((home.path() / "a-file" / "r.zip").string()));
  ASSERT_TRUE(press(*window.result(), "Save to File…"));
  ASSERT_TRUE(QTest::qWaitFor([&] { return window.result() && window.result()->isVisible(); }));
  EXPECT_EQ(window.result()->windowTitle(), "Could not save the report: Not a directory");
  EXPECT_EQ(log->lines.back(), "report a problem: could not save the report to " +
                                   (home.path() / "a-file" / "r.zip").string() + ": Not a directory");
}

}  // namespace
}  // namespace wh::test

#include "ReportSaveTests.moc"
