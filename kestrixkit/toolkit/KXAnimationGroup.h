#pragma once

#include <functional>

#include <QEasingCurve>
#include <QParallelAnimationGroup>
#include <QVariant>

#include <kestrixkit/foundation/KXGlobal.h>

/// Changes of properties that run together, or take place at once where animations are off. Main thread.
class KX_UI_EXPORT KXAnimationGroup : public QObject
{
    Q_OBJECT
public:
    /// `duration` in seconds, from 0.
    explicit KXAnimationGroup(double duration = 0.25, QObject *parent = nullptr);
    ~KXAnimationGroup() override;

    /// Off where the desktop wants no motion, and where a host or a test says so.
    [[nodiscard]] static bool areAnimationsEnabled();
    static void setAnimationsEnabled(bool enabled);

    /// Takes the property from what it is at the start to the value. A target that goes meanwhile is left out; a
    /// property that it does not have is logged and left out.
    KXAnimationGroup &add(
        QObject *target, const char *property, const QVariant &value, QEasingCurve curve = QEasingCurve::InOutQuad);

    /// Runs what was added, or sets it before this returns; afterwards `completion` is called, once, and the group is
    /// empty. What an earlier start() left running is brought to its end first.
    void start(std::function<void()> completion = {});
    /// Sets everything to its end at once. Harmless when nothing runs.
    void finish();
    [[nodiscard]] bool isRunning() const;

private:
    void complete();

    int m_milliseconds;
    QParallelAnimationGroup m_waiting;
    QParallelAnimationGroup m_running;
    std::function<void()> m_completion;
};
