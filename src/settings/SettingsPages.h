#pragma once
// The settings window's pages, drawn with the Nightjar kit over the portable SettingsView. Every
// control writes through `Settings` at once; the pages are drawn again whenever the store or the
// agent's status changes.

#include <QPointer>
#include <QWidget>

#include <functional>
#include <string>

#include <nlohmann/json.hpp>

#include "core/hotkeys/HotkeyRecorder.h"
#include "core/settingsapp/SettingsView.h"

class QVBoxLayout;

namespace nj {
class NJAboutWindow;
}

namespace wh::settingsapp {

// What the pages ask of the program around them.
struct PageActions {
  std::function<void(const std::string& command, const nlohmann::json& userInfo)> send;
  std::function<void()> openGuide;
  // Opens the hotkey recorder for the headphones called `name`.
  std::function<void(const std::string& name, HotkeyRecorder::Completion done)> recordHotkey;
  // Names the keys of the hotkeys shown; null: the fixed names and numbers only.
  const KeyboardLayout* keyboard = nullptr;
  std::function<void()> reportProblem;  // opens the report panel
  std::string version;                  // shown in the About window ("0.1.0 (1)")
  std::function<void()> showKeyAccess;  // opens the key access panel (absent: asks the agent to)
};

// "Check Again" and "Check Key Access": the key access panel, or, without one, the agent's.
void checkKeyAccess(const PageActions& actions);

// Fills `layout` with one page's rows for `view`.
class PageBuilder {
 public:
  enum class Page { headphones, musicQuality, mediaKeys, volume, general };

  PageBuilder(Settings& settings, PageActions actions) : settings_(settings), actions_(std::move(actions)) {}

  void build(Page page, const SettingsView& view, QVBoxLayout& layout) const;

  // Rows shared with the first-run guide.
  QWidget* switchRow(const QString& title, bool on, std::function<void(bool)> changed, const QString& detail = {}) const;
  void addHeadphonesChoices(const SettingsView& view, QVBoxLayout& layout, bool offerTry) const;
  // What stops Bluetooth and what fixes it, when something does.
  void addBluetoothProblem(const SettingsView& view, QVBoxLayout& layout) const;

 private:
  void headphones(const SettingsView& view, QVBoxLayout& layout) const;
  QWidget* hotkeyRow(const DeviceSetting& device) const;
  void musicQuality(const SettingsView& view, QVBoxLayout& layout) const;
  void microphones(const SettingsView& view, QVBoxLayout& layout) const;
  void mediaKeys(const SettingsView& view, QVBoxLayout& layout) const;
  void volume(const SettingsView& view, QVBoxLayout& layout) const;
  void general(const SettingsView& view, QVBoxLayout& layout) const;

  void showAbout() const;

  Settings& settings_;
  PageActions actions_;
  mutable QPointer<nj::NJAboutWindow> about_;
};

}  // namespace wh::settingsapp
