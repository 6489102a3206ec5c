#include "platform/linux/mediakeys/MprisNames.h"

#include <algorithm>
#include <cctype>

namespace wh::platform {

namespace {

std::string lowerCased(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
  return text;
}

}  // namespace

std::optional<std::pair<QString, QString>> MprisNames::ownerChange(const QVariantList& arguments) {
  if (arguments.size() != 3) return std::nullopt;
  return std::pair(arguments[0].toString(), arguments[2].toString());
}

bool MprisNames::ownerChanged(const QString& name, const QString& owner) {
  if (!name.startsWith(prefix)) return false;
  if (owner.isEmpty()) {
    names_.erase(name);
    return false;
  }
  names_.emplace(name, QString());
  return true;
}

void MprisNames::desktopEntry(const QString& name, const QVariant& value) {
  if (auto found = names_.find(name); found != names_.end()) found->second = value.toString();
}

std::optional<QString> MprisNames::find(const std::vector<std::string>& ids) const {
  for (const auto& [name, desktopEntry] : names_) {
    const std::string own =
        lowerCased(name.mid(int(std::char_traits<char>::length(prefix))).section('.', 0, 0).toStdString());
    for (const auto& id : ids) {
      if (desktopEntry.toStdString() == id || lowerCased(id) == own) return name;
    }
  }
  return std::nullopt;
}

}  // namespace wh::platform
