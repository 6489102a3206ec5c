#pragma once
// The text blocks of the small windows: wrapped labels in the kit's type and colours.

#include <QLabel>
#include <QString>

#include <string>

namespace wh::panels {

inline QString qs(const std::string& text) { return QString::fromStdString(text); }

// A wrapped label of `size` points, in the theme's text colour or its secondary one.
QLabel* label(const QString& text, double size, bool secondary, QWidget* parent);

}  // namespace wh::panels
