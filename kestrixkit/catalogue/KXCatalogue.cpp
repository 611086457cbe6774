#include <kestrixkit/catalogue/KXCatalogue.h>

#include <utility>

KXCatalogue::~KXCatalogue() = default;

KXCatalogueTicket::KXCatalogueTicket(std::shared_ptr<bool> isOver, std::function<void()> cancel)
    : m_isOver(std::move(isOver))
    , m_cancel(std::move(cancel))
{
}

KXCatalogueTicket::KXCatalogueTicket(KXCatalogueTicket &&other) noexcept
    : m_isOver(std::move(other.m_isOver))
    , m_cancel(std::move(other.m_cancel))
{
}

KXCatalogueTicket &KXCatalogueTicket::operator=(KXCatalogueTicket &&other) noexcept
{
    if (this != &other) {
        cancel();
        m_isOver = std::move(other.m_isOver);
        m_cancel = std::move(other.m_cancel);
    }
    return *this;
}

KXCatalogueTicket::~KXCatalogueTicket() { cancel(); }

void KXCatalogueTicket::cancel()
{
    const auto isOver = std::exchange(m_isOver, nullptr);
    const auto cancel = std::exchange(m_cancel, nullptr);
    if (isOver && !std::exchange(*isOver, true) && cancel)
        cancel();
}
