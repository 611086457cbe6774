#pragma once

#include <mutex>

#include <QStringList>
#include <QtGlobal>

/// Collects what is logged while it lives ("category: text"), instead of printing it. One at a time.
class KXTestLog
{
public:
    KXTestLog()
    {
        {
            const std::lock_guard lock(s_mutex());
            s_lines().clear();
        }
        m_former = qInstallMessageHandler([](QtMsgType, const QMessageLogContext &context, const QString &text) {
            const std::lock_guard lock(s_mutex());
            s_lines().append(QString::fromLatin1(context.category) + QLatin1StringView(": ") + text);
        });
    }
    ~KXTestLog() { qInstallMessageHandler(m_former); }
    Q_DISABLE_COPY_MOVE(KXTestLog)

    [[nodiscard]] QStringList lines() const
    {
        const std::lock_guard lock(s_mutex());
        return s_lines();
    }
    [[nodiscard]] bool contains(const QString &part) const { return !lines().filter(part).isEmpty(); }

private:
    static std::mutex &s_mutex()
    {
        static std::mutex mutex;
        return mutex;
    }
    static QStringList &s_lines()
    {
        static QStringList lines;
        return lines;
    }
    QtMessageHandler m_former;
};
