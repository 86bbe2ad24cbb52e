#pragma once

#include <QString>

#include <functional>

// The overwrite pass before a run: one decision per planned output, asking about existing files
// with answers that can hold for the rest of the run.
namespace Naming {

enum class OverwriteDecision { Write = 0, Overwrite = 1, Skip = 2 };
enum class OverwriteAnswer { Yes, YesToAll, No, NoToAll };

// "The file <path> already exists. Do you want to overwrite it?"
QString OverwriteQuestion(const QString &path);

class OverwritePass
{
public:
    using Question = std::function<OverwriteAnswer(const QString &path)>;
    using Exists = std::function<bool(const QString &path)>;

    // exists defaults to a test of the file system.
    explicit OverwritePass(Question ask, Exists exists = {});

    // The decision for the next planned output, in run order.
    OverwriteDecision decide(const QString &path);

private:
    enum class Remembered { None, Overwrite, Skip };
    Question m_ask;
    Exists m_exists;
    Remembered m_remembered = Remembered::None;
};

} // namespace Naming
