#include <kestrixkit/foundation/KXError.h>

#include <kestrixkit/foundation/KXStringWithFormat.h>

using namespace Qt::StringLiterals;

class KXErrorData : public QSharedData
{
public:
    QString domain;
    int code = 0;
    QString description;
    QVariantMap userInfo;
    KXCallStack callStack; // empty when userInfo brought its own
};

KXError::KXError() noexcept = default;
KXError::KXError(const KXError &other) noexcept = default;
KXError::KXError(KXError &&other) noexcept = default;
KXError &KXError::operator=(const KXError &other) noexcept = default;
KXError &KXError::operator=(KXError &&other) noexcept = default;
KXError::~KXError() = default;

KXError::KXError(QString domain, int code, QString description, QVariantMap userInfo)
{
    auto data = std::make_unique<KXErrorData>();
    data->domain = std::move(domain);
    data->code = code;
    data->description = std::move(description);
    data->userInfo = std::move(userInfo);
    if (!data->userInfo.contains(KXErrorStackTraceKey))
        data->callStack = KXCallStack::capture(1);
    m_data = QExplicitlySharedDataPointer<const KXErrorData>(data.release());
}

KXError KXError::errorWithError(const KXError &error)
{
    if (!error)
        return {};
    QVariantMap userInfo = error.m_data->userInfo;
    userInfo.remove(KXErrorStackTraceKey);
    return KXError(error.m_data->domain, error.m_data->code, error.m_data->description, std::move(userInfo));
}

QString KXError::domain() const { return m_data ? m_data->domain : QString(); }
int KXError::code() const { return m_data ? m_data->code : 0; }
QString KXError::localizedDescription() const { return m_data ? m_data->description : QString(); }

QVariantMap KXError::userInfo() const
{
    if (!m_data)
        return {};
    QVariantMap userInfo = m_data->userInfo;
    if (!userInfo.contains(KXErrorStackTraceKey)) // also where no frame could be had
        userInfo.insert(KXErrorStackTraceKey, m_data->callStack.symbols());
    return userInfo;
}

QStringList KXError::callStack() const
{
    if (!m_data)
        return {};
    return m_data->callStack.isEmpty() ? m_data->userInfo.value(KXErrorStackTraceKey).toStringList()
                                       : m_data->callStack.symbols();
}

QString KXDescription(const KXError &error)
{
    if (!error)
        return {};
    return u"%1 (%2 %3)"_s.arg(error.localizedDescription(), error.domain()).arg(error.code());
}

bool KXSetError(KXError *slot, KXError error)
{
    if (slot)
        *slot = std::move(error);
    return false;
}
