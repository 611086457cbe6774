#include <kestrixkit/foundation/KXLog.h>

#include <cstdlib>

#include <QLoggingCategory>

#include <kestrixkit/foundation/KXCheck.h>

using namespace Qt::StringLiterals;

constinit std::atomic<int> KXKestrixKitLogLevel { KXLogLevelError | KXLogLevelWarning };

namespace {

// Categories live for ever: a thread may still log while the process ends.
const QLoggingCategory &logCategory(const char *name)
{
    static std::mutex mutex;
    static auto *const categories = new std::unordered_map<std::string, std::unique_ptr<QLoggingCategory>>;
    const std::lock_guard lock(mutex);
    auto &category = (*categories)[name];
    if (!category)
        category = std::make_unique<QLoggingCategory>(name);
    return *category;
}

}

void KXLogMessage(
    KXLogLevel level, const char *category, const char *file, int line, const char *function, const QString &text)
{
    const QtMsgType type = level == KXLogLevelError ? QtCriticalMsg
        : level == KXLogLevelWarning                ? QtWarningMsg
        : level == KXLogLevelInfo                   ? QtInfoMsg
                                                    : QtDebugMsg;
    const QLoggingCategory &target = logCategory(category);
    if (!target.isEnabled(type))
        return;
    const QMessageLogger logger(file, line, function, target.categoryName());
    const QByteArray utf8 = text.toUtf8();
    switch (type) {
    case QtCriticalMsg:
        logger.critical("%s", utf8.constData());
        break;
    case QtWarningMsg:
        logger.warning("%s", utf8.constData());
        break;
    case QtInfoMsg:
        logger.info("%s", utf8.constData());
        break;
    default:
        logger.debug("%s", utf8.constData());
        break;
    }
}

void KXCheckFailed(const char *condition, const char *file, int line, const char *function, const QString &text)
{
    KXLogMessage(KXLogLevelError, "kestrix.check", file, line, function,
        KXStringWithFormat("Check failed: %@ (%@)", text, condition));
    std::abort();
}
