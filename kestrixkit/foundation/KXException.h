#pragma once

#include <exception>

#include <QByteArray>
#include <QString>

#include <kestrixkit/foundation/KXCallStack.h>
#include <kestrixkit/foundation/KXGlobal.h>

/// Thrown for mistakes of the programmer only: an unknown entity, template or key, an object of another
/// context. Whatever can go wrong at run time is a KXError value instead. A value; any thread.
class KX_CORE_EXPORT KXException : public std::exception
{
public:
    KXException(QString name, QString reason);
    ~KXException() override;

    [[nodiscard]] const QString &name() const { return m_name; }
    [[nodiscard]] const QString &reason() const { return m_reason; }

    /// Where it was made, innermost frame first.
    [[nodiscard]] const KXCallStack &callStack() const { return m_callStack; }

    /// "name: reason" in UTF-8.
    [[nodiscard]] const char *what() const noexcept override { return m_what.constData(); }

private:
    QString m_name;
    QString m_reason;
    QByteArray m_what;
    KXCallStack m_callStack;
};

/// An argument that the function cannot work with.
inline constexpr QLatin1StringView KXInvalidArgumentException { "KXInvalidArgumentException" };
/// A state that should have been impossible.
inline constexpr QLatin1StringView KXInternalInconsistencyException { "KXInternalInconsistencyException" };
/// A model has no entity of that name.
inline constexpr QLatin1StringView KXUnknownEntityException { "KXUnknownEntityException" };
/// An entity has no property of that name.
inline constexpr QLatin1StringView KXUnknownKeyException { "KXUnknownKeyException" };
/// Descriptions of entities that make no model.
inline constexpr QLatin1StringView KXInvalidModelException { "KXInvalidModelException" };
/// A stored class that was not registered, or whose accessors do not fit the model.
inline constexpr QLatin1StringView KXInvalidClassException { "KXInvalidClassException" };
