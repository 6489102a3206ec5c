#pragma once
// The owned MPRIS names, each with the DesktopEntry its player reported, kept from what the bus
// tells: NameOwnerChanged (and ListNames) for the names, the DesktopEntry property for each. A
// name belongs to a player when its DesktopEntry or its own last part (before any ".instance…")
// is one of the player's ids. Not thread-safe: its owner guards it.

#include <QString>
#include <QVariant>
#include <QVariantList>

#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace wh::platform {

class MprisNames {
 public:
  static constexpr const char* prefix = "org.mpris.MediaPlayer2.";

  // The name and its new owner from NameOwnerChanged's arguments (name, old owner, new owner);
  // nothing for arguments of another shape.
  static std::optional<std::pair<QString, QString>> ownerChange(const QVariantList& arguments);

  // A name has a new owner, or none (an empty owner). True when it is an MPRIS name that is owned
  // now, whose DesktopEntry is worth asking for.
  bool ownerChanged(const QString& name, const QString& owner);
  // The value of a name's DesktopEntry property as the reply carried it.
  void desktopEntry(const QString& name, const QVariant& value);
  // The first owned name that belongs to a player with one of these ids.
  std::optional<QString> find(const std::vector<std::string>& ids) const;

 private:
  std::map<QString, QString> names_;  // owned MPRIS name -> its DesktopEntry ("" until known)
};

}  // namespace wh::platform
