#pragma once

#include <QStringList>

namespace Jobs {

// While alive, the log messages of the calling thread (the engine's reasons for a failure, and
// the like) are held here instead of being printed, so that a run can give each document its
// own messages and print them in document order whatever the number of threads. Debug messages
// pass through.
class DiagnosticsCapture
{
public:
    DiagnosticsCapture();
    ~DiagnosticsCapture();
    DiagnosticsCapture(const DiagnosticsCapture &) = delete;
    DiagnosticsCapture &operator=(const DiagnosticsCapture &) = delete;

    const QStringList &messages() const { return m_messages; }
    QStringList take() { return std::exchange(m_messages, {}); }

private:
    friend struct DiagnosticsHandler;
    QStringList m_messages;
    DiagnosticsCapture *m_outer;
};

// Hands held messages to the log as if they were logged now (at warning level).
void logMessages(const QStringList &messages);

} // namespace Jobs
