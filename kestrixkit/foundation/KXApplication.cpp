#include <kestrixkit/foundation/KXApplication.h>

#include <map>

#include <QCoreApplication>

#include <kestrixkit/foundation/KXLog.h>
#include <kestrixkit/foundation/KXMainQueue.h>

KXScopeToken::KXScopeToken(std::function<void()> end)
    : m_end(std::move(end))
{
}

KXScopeToken::KXScopeToken(KXScopeToken &&other) noexcept
    : m_end(std::exchange(other.m_end, nullptr))
{
}

KXScopeToken &KXScopeToken::operator=(KXScopeToken &&other) noexcept
{
    if (this != &other) {
        reset();
        m_end = std::exchange(other.m_end, nullptr);
    }
    return *this;
}

KXScopeToken::~KXScopeToken() { reset(); }

void KXScopeToken::reset()
{
    if (const auto end = std::exchange(m_end, nullptr))
        end();
}

namespace {

// Functions in order of registration; copied out before they are called, so that they may register others.
template <typename Function> class ApplicationHandlers
{
public:
    KXScopeToken add(Function function)
    {
        const std::lock_guard lock(m_mutex);
        m_functions.emplace(++m_last, std::move(function));
        return KXScopeToken([this, serial = m_last] {
            typename decltype(m_functions)::node_type removed; // destroyed outside the lock
            const std::lock_guard inner(m_mutex);
            removed = m_functions.extract(serial);
        });
    }
    Function newest() const
    {
        const std::lock_guard lock(m_mutex);
        return m_functions.empty() ? Function() : m_functions.rbegin()->second;
    }
    std::vector<std::pair<quint64, Function>> newestFirst() const
    {
        const std::lock_guard lock(m_mutex);
        return { m_functions.rbegin(), m_functions.rend() };
    }
    bool has(quint64 serial) const
    {
        const std::lock_guard lock(m_mutex);
        return m_functions.contains(serial);
    }

private:
    mutable std::mutex m_mutex;
    std::map<quint64, Function> m_functions;
    quint64 m_last = 0;
};

struct ApplicationEditor
{
    const void *subject;
    KXApplication::Editor commit;
};

// Never destroyed: tokens may outlive everything else.
struct ApplicationServices
{
    ApplicationHandlers<KXApplication::PresentErrorHandler> present;
    ApplicationHandlers<KXApplication::TerminateHandler> terminate;
    ApplicationHandlers<ApplicationEditor> editors;
};

ApplicationServices &applicationServices()
{
    static auto *const services = new ApplicationServices;
    return *services;
}

}

void KXApplication::presentError(const KXError &error)
{
    if (!error)
        return;
    if (const auto handler = applicationServices().present.newest())
        handler(error);
    else
        KXLogError(foundation, "%@", error);
}

void KXApplication::terminate()
{
    if (const auto handler = applicationServices().terminate.newest())
        handler();
    else
        KXMainQueue::async([] { QCoreApplication::exit(1); }); // later: the loop may not be running yet
}

KXScopeToken KXApplication::setPresentErrorHandler(PresentErrorHandler handler)
{
    return applicationServices().present.add(std::move(handler));
}

KXScopeToken KXApplication::setTerminateHandler(TerminateHandler handler)
{
    return applicationServices().terminate.add(std::move(handler));
}

KXScopeToken KXApplication::registerEditor(const void *subject, Editor editor)
{
    return applicationServices().editors.add({ subject, std::move(editor) });
}

bool KXApplication::commitEditing(const void *subject)
{
    const auto &editors = applicationServices().editors;
    for (const auto &[serial, editor] : editors.newestFirst()) {
        // An earlier one may have ended others.
        if (editor.subject == subject && editor.commit && editors.has(serial) && !editor.commit())
            return false;
    }
    return true;
}
