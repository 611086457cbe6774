#pragma once

#include <QSharedData>
#include <QString>
#include <QVariantMap>

#include <kestrixkit/foundation/KXCallStack.h>
#include <kestrixkit/foundation/KXGlobal.h>

/// The domain of the framework's own errors.
inline constexpr QLatin1StringView KXKestrixKitErrorDomain { "com.kestrix.KestrixKit" };
/// User-info key of the captured call stack: a list of texts, one a frame, innermost first.
inline constexpr QLatin1StringView KXErrorStackTraceKey { "KXErrorStackTraceKey" };

class KXErrorData;

/// What went wrong, as a value: domain, code, description for people, further information.
///
/// An empty error means that nothing did; it costs a pointer. Copies share their contents, which never
/// change, so an error may be handed to any thread. Functions that can fail take `KXError *error = nullptr`
/// as their last parameter and leave it alone when they succeed.
class KX_CORE_EXPORT KXError
{
public:
    /// No error.
    KXError() noexcept;
    /// An error. Captures the call stack under KXErrorStackTraceKey, unless userInfo brings one.
    KXError(QString domain, int code, QString description, QVariantMap userInfo = {});
    /// The given error with the call stack of this place.
    [[nodiscard]] static KXError errorWithError(const KXError &error);

    KXError(const KXError &other) noexcept;
    KXError(KXError &&other) noexcept;
    KXError &operator=(const KXError &other) noexcept;
    KXError &operator=(KXError &&other) noexcept;
    ~KXError();

    /// True when there is an error.
    explicit operator bool() const noexcept { return bool(m_data); }

    [[nodiscard]] QString domain() const;
    /// 0 for no error.
    [[nodiscard]] int code() const;
    [[nodiscard]] QString localizedDescription() const;

    /// All further information, the call stack included. Its names are looked up here, which is slow.
    [[nodiscard]] QVariantMap userInfo() const;

    /// Where the error was made, innermost frame first; a line each.
    [[nodiscard]] QStringList callStack() const;

private:
    QExplicitlySharedDataPointer<const KXErrorData> m_data;
};

/// "description (domain code)"; nothing for no error.
KX_CORE_EXPORT QString KXDescription(const KXError &error);

/// Fills an error slot, if there is one. Always false, so that a failing function can `return KXSetError(…)`.
KX_CORE_EXPORT bool KXSetError(KXError *slot, KXError error);
