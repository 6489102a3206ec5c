#pragma once
// The text blocks of the small windows: wrapped labels in the kit's type and colours.

#include <QBoxLayout>
#include <QLabel>
#include <QString>

#include <string>

#include "ui/kit/NJControls.h"
#include "ui/kit/NJPanel.h"

namespace wh::panels {

inline QString qs(const std::string& text) { return QString::fromStdString(text); }

// A wrapped label of `size` points, in the theme's text colour or its secondary one.
QLabel* label(const QString& text, double size, bool secondary, QWidget* parent);

// A kit window `width` wide that deletes itself when closed, headed by its title; `layout` is its
// column, for what follows.
nj::NJWindow* panelWindow(const QString& title, int width, QVBoxLayout*& layout);
// A kit button at the end of `buttons`.
nj::NJButton* addButton(QHBoxLayout& buttons, const QString& title, nj::NJButton::Style style, QWidget* parent);

}  // namespace wh::panels
