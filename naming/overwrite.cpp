#include "overwrite.h"

#include <QFileInfo>

namespace Naming {

QString OverwriteQuestion(const QString &path)
{
    return QStringLiteral("The file ") + path
           + QStringLiteral(" already exists. Do you want to overwrite it?");
}

OverwritePass::OverwritePass(Question ask, Exists exists)
    : m_ask(std::move(ask))
    , m_exists(std::move(exists))
{
    if (!m_exists) {
        m_exists = [](const QString &path) { return QFileInfo::exists(path); };
    }
}

OverwriteDecision OverwritePass::decide(const QString &path)
{
    if (!m_exists(path)) {
        return OverwriteDecision::Write;
    }
    switch (m_remembered) {
    case Remembered::Overwrite:
        return OverwriteDecision::Overwrite;
    case Remembered::Skip:
        return OverwriteDecision::Skip;
    case Remembered::None:
        break;
    }
    switch (m_ask ? m_ask(path) : OverwriteAnswer::NoToAll) {
    case OverwriteAnswer::Yes:
        return OverwriteDecision::Overwrite;
    case OverwriteAnswer::YesToAll:
        m_remembered = Remembered::Overwrite;
        return OverwriteDecision::Overwrite;
    case OverwriteAnswer::No:
        return OverwriteDecision::Skip;
    case OverwriteAnswer::NoToAll:
        break;
    }
    // "No to All", and any other way the question ends.
    m_remembered = Remembered::Skip;
    return OverwriteDecision::Skip;
}

} // namespace Naming
