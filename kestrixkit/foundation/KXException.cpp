#include <kestrixkit/foundation/KXException.h>

using namespace Qt::StringLiterals;

KXException::KXException(QString name, QString reason)
    : m_name(std::move(name))
    , m_reason(std::move(reason))
    , m_what((m_name + ": "_L1 + m_reason).toUtf8())
    , m_callStack(KXCallStack::capture(1))
{
}

KXException::~KXException() = default;
