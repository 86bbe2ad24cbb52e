#include "diagnostics.h"

#include <QLoggingCategory>

#include <mutex>

namespace Jobs {

namespace {

thread_local DiagnosticsCapture *current = nullptr;
QtMessageHandler previous = nullptr;
std::once_flag installed;

} // namespace

struct DiagnosticsHandler
{
    static void handle(QtMsgType type, const QMessageLogContext &context, const QString &message)
    {
        if (current && type != QtDebugMsg && type != QtFatalMsg) {
            current->m_messages << message;
            return;
        }
        if (previous) {
            previous(type, context, message);
        }
    }
};

DiagnosticsCapture::DiagnosticsCapture()
    : m_outer(current)
{
    std::call_once(installed,
                   [] { previous = qInstallMessageHandler(DiagnosticsHandler::handle); });
    current = this;
}

DiagnosticsCapture::~DiagnosticsCapture()
{
    current = m_outer;
    if (m_outer) {
        m_outer->m_messages << m_messages;
    }
}

void logMessages(const QStringList &messages)
{
    for (const QString &message : messages) {
        qWarning().noquote() << message;
    }
}

} // namespace Jobs
