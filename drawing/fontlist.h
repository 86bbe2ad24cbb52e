#pragma once

#include <QString>
#include <QStringList>

// The fonts of the text watermark: the Watermark window's fixed list of family names, and the
// installed family each name is drawn with. Needs a QGuiApplication (the font database).
namespace FontList {

// The 20 family names of the font list, in the order the window shows them.
const QStringList &names();

// Index of "Arial", the default.
inline constexpr int DefaultIndex = 1;

// The installed family to draw a family name with: the installed family of exactly that name;
// else the family the system's font configuration substitutes for it ("Arial" is drawn with
// Liberation Sans where that is installed), provided it can write Latin text; else the first
// installed family that can. Empty only when no font is installed at all.
QString resolveFamily(const QString &name);

// The family for an index of the font list; an index outside the list names no family and
// resolves to the first installed one.
QString GetTextFontType(int index);

} // namespace FontList
