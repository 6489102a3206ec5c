#pragma once
// The problem report drawn with the kit: the form with the note and the e-mail address, and the
// small window that tells how sending went (offering to save the archive when it failed). Saving
// asks with the desktop's file dialog and then shows the folder through QDesktopServices.

#include <QPointer>

#include <filesystem>
#include <functional>
#include <optional>
#include <string>

#include "core/report/ReportProblem.h"
#include "ui/kit/NJPanel.h"

namespace wh::panels {

class ReportWindow final : public ReportView {
 public:
  static constexpr const char* formTitle = "Report a Problem";
  static constexpr const char* emailPlaceholder = "Your email, if you'd like a reply";

  // `systemName` is the one the explanation names ("Debian GNU/Linux").
  explicit ReportWindow(std::string systemName);
  ReportWindow(const ReportWindow&) = delete;
  ReportWindow& operator=(const ReportWindow&) = delete;
  ~ReportWindow() override;

  // "Send Report" and "Save Report…" with the note and the e-mail address.
  std::function<void(const std::string& note, const std::string& email)> send;
  std::function<void(const std::string& note, const std::string& email)> saveReport;
  // "Save to File…" after sending failed, with the archive that was built.
  std::function<void(const std::filesystem::path& zip)> saveArchive;

  // Wires the three actions to `report`, which outlives this window.
  void actOn(ReportProblem& report);

  // Opens the form, or raises it when it is open.
  void show();
  void showMessage(const std::string& title, const std::string& text) override;
  void offerSave(const std::string& title, const std::string& text, const std::filesystem::path& zip) override;
  std::optional<std::filesystem::path> chooseSaveLocation(const std::filesystem::path& zip) override;
  void showSaved(const std::filesystem::path& saved) override;

  QWidget* form() const { return form_; }
  QWidget* result() const { return result_; }

 private:
  nj::NJWindow* buildForm();
  nj::NJWindow* showResult(const std::string& title, const std::string& text);

  std::string systemName_;
  QPointer<nj::NJWindow> form_;
  QPointer<nj::NJWindow> result_;
};

}  // namespace wh::panels
