#include "fontlist.h"

#include <QFont>
#include <QFontDatabase>
#include <QFontInfo>

namespace FontList {

namespace {

// Symbol faces (Dingbats, Standard Symbols) claim Latin too: their letters are pictographs.
bool writesLatin(const QString &family)
{
    const auto systems = QFontDatabase::writingSystems(family);
    return systems.contains(QFontDatabase::Latin) && !systems.contains(QFontDatabase::Symbol);
}

QString firstLatinFamily(const QStringList &installed)
{
    for (const QString &family : installed) {
        if (writesLatin(family)) {
            return family;
        }
    }
    return installed.value(0);
}

} // namespace

const QStringList &names()
{
    static const QStringList list{
        QStringLiteral("American Typewriter"),
        QStringLiteral("Arial"),
        QStringLiteral("Chalkduster"),
        QStringLiteral("Comic Sans MS"),
        QStringLiteral("Copperplate"),
        QStringLiteral("Didot"),
        QStringLiteral("Futura"),
        QStringLiteral("Geneva"),
        QStringLiteral("Georgia"),
        QStringLiteral("Gill Sans"),
        QStringLiteral("Helvetica"),
        QStringLiteral("Impact"),
        QStringLiteral("Marker Felt"),
        QStringLiteral("Monaco"),
        QStringLiteral("Optima"),
        QStringLiteral("Papyrus"),
        QStringLiteral("Skia"),
        QStringLiteral("Times New Roman"),
        QStringLiteral("Trebuchet MS"),
        QStringLiteral("Verdana"),
    };
    return list;
}

QString resolveFamily(const QString &name)
{
    const QStringList installed = QFontDatabase::families();
    if (installed.contains(name)) {
        return name;
    }
    if (!name.isEmpty()) {
        // The configuration may substitute a symbol face (Debian maps the "fantasy" faces such
        // as Impact to Dingbats): that would draw the text as pictographs.
        const QString substitute = QFontInfo(QFont(name)).family();
        if (installed.contains(substitute) && writesLatin(substitute)) {
            return substitute;
        }
    }
    return firstLatinFamily(installed);
}

QString GetTextFontType(int index)
{
    return resolveFamily(names().value(index));
}

} // namespace FontList
