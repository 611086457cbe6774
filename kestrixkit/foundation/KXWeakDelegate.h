#pragma once

#include <QPointer>

#include <kestrixkit/foundation/KXGlobal.h>

/// A delegate as its sender keeps it: borrowed. One that is a QObject may go at any time and is absent from then on;
/// any other one is taken back, by setting nullptr, before it goes. Belongs to the delegate's thread.
template <typename Delegate> class KXWeakDelegate
{
public:
    void set(Delegate *delegate)
    {
        m_delegate = delegate;
        m_object = dynamic_cast<QObject *>(delegate);
        m_isObject = !m_object.isNull();
    }
    [[nodiscard]] Delegate *get() const { return m_isObject && !m_object ? nullptr : m_delegate; }
    Delegate *operator->() const { return get(); }
    explicit operator bool() const { return get() != nullptr; }

private:
    Delegate *m_delegate = nullptr;
    QPointer<QObject> m_object;
    bool m_isObject = false;
};
