#include <kestrixkit/toolkit/KXAnimationGroup.h>

#include <atomic>

#include <QApplication>
#include <QPropertyAnimation>
#include <QStyle>

#include <kestrixkit/foundation/KXLog.h>

namespace {
std::atomic<bool> animationsWanted { true };
}

KXAnimationGroup::KXAnimationGroup(double duration, QObject *parent)
    : QObject(parent)
    , m_milliseconds(int(std::max(0.0, duration) * 1000))
{
    connect(&m_running, &QAbstractAnimation::finished, this, &KXAnimationGroup::complete);
}

KXAnimationGroup::~KXAnimationGroup() { m_running.disconnect(this); }

bool KXAnimationGroup::areAnimationsEnabled()
{
    // A style that animates nothing answers 0 milliseconds.
    return animationsWanted && qApp && QApplication::style()->styleHint(QStyle::SH_Widget_Animation_Duration) > 0;
}

void KXAnimationGroup::setAnimationsEnabled(bool enabled) { animationsWanted = enabled; }

KXAnimationGroup &KXAnimationGroup::add(
    QObject *target, const char *property, const QVariant &value, QEasingCurve curve)
{
    if (!target)
        return *this;
    if (target->metaObject()->indexOfProperty(property) < 0) {
        KXLogWarning(toolkit, "A %s has no property \"%s\" to animate", target->metaObject()->className(), property);
        return *this;
    }
    auto *animation = new QPropertyAnimation(target, property);
    animation->setEndValue(value);
    animation->setDuration(m_milliseconds);
    animation->setEasingCurve(curve);
    m_waiting.addAnimation(animation);
    return *this;
}

void KXAnimationGroup::start(std::function<void()> completion)
{
    while (isRunning()) // what one completion starts is not to be lost
        finish();
    m_completion = std::move(completion);
    while (m_waiting.animationCount() > 0)
        m_running.addAnimation(m_waiting.takeAnimation(0));
    if (m_running.animationCount() == 0) {
        complete();
        return;
    }
    m_running.start();
    if (!isRunning() && m_running.animationCount() > 0)
        complete(); // all targets have gone meanwhile
    else if (!areAnimationsEnabled())
        finish();
}

void KXAnimationGroup::finish()
{
    if (isRunning())
        m_running.setCurrentTime(m_running.totalDuration()); // ends it
}

bool KXAnimationGroup::isRunning() const { return m_running.state() == QAbstractAnimation::Running; }

void KXAnimationGroup::complete()
{
    while (m_running.animationCount() > 0)
        m_running.takeAnimation(0)->deleteLater(); // this may be called by one of them
    // What it does may start the next one, or end this.
    if (const auto completion = std::exchange(m_completion, nullptr))
        completion();
}
