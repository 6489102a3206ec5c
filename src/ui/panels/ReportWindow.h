#pragma once
// The problem report drawn with the kit: the form with the note and the e-mail address, and the
// small window that tells how sending went (offering to save the archive when it failed).

#include <QPointer>

#include <filesystem>
#include <functional>
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

  // "Send Report" with the note and the e-mail address.
  std::function<void(const std::string& note, const std::string& email)> send;

  // Opens the form, or raises it when it is open.
  void show();
  void showMessage(const std::string& title, const std::string& text) override;
  void offerSave(const std::string& title, const std::string& text, const std::filesystem::path& zip) override;

  QWidget* form() const { return form_; }
  QWidget* result() const { return result_; }

 private:
  nj::NJWindow* buildForm();
  nj::NJWindow* showResult(const std::string& title, const std::string& text);
  void save(const std::filesystem::path& zip);

  std::string systemName_;
  QPointer<nj::NJWindow> form_;
  QPointer<nj::NJWindow> result_;
};

}  // namespace wh::panels
