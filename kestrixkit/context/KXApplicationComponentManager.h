#pragma once

#include <QUrl>

#include <kestrixkit/context/KXManagedObjectContext.h>

/// What a host makes first and hands the address of its store: keeps the address and the context that the host, or a
/// subclass, opens from it. Main thread.
class KX_CORE_EXPORT KXApplicationComponentManager
{
public:
    explicit KXApplicationComponentManager(const QUrl &storeURL);
    virtual ~KXApplicationComponentManager();
    KXApplicationComponentManager(const KXApplicationComponentManager &) = delete;
    KXApplicationComponentManager &operator=(const KXApplicationComponentManager &) = delete;

    [[nodiscard]] const QUrl &storeURL() const { return m_storeURL; }
    /// nullptr until set.
    [[nodiscard]] const KXManagedObjectContext::Ref &context() const { return m_context; }
    void setContext(const KXManagedObjectContext::Ref &context) { m_context = context; }

    /// For subclasses: called by the host once the context is set. The base does nothing.
    virtual void finaliseSetup();

private:
    const QUrl m_storeURL;
    KXManagedObjectContext::Ref m_context;
};
