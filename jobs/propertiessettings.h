#pragma once

#include <QString>

namespace Jobs {

// The Edit PDF Properties window's four templates: "[Original]" is a document's present value,
// "[FileName]" its file name without extension.
struct PropertiesSettings
{
    static constexpr auto Tool = "properties";

    QString title = QStringLiteral("[FileName]");
    QString author = QStringLiteral("[Original]");
    QString subject = QStringLiteral("[Original]");
    QString keywords = QStringLiteral("[Original]");

    template <typename Visit> void visit(Visit &&field)
    {
        field("title", title);
        field("author", author);
        field("subject", subject);
        field("keywords", keywords);
    }
};

} // namespace Jobs
