#pragma once

#include <functional>
#include <memory>

#include <kestrixkit/catalogue/KXCatalogueDialect.h>
#include <kestrixkit/catalogue/KXCatalogueSchema.h>

/// One request that is under way: who holds it gets the answer.
///
/// Letting it go, or cancel(), means that no answer comes any more, and tells the servers to stop; neither waits for
/// them. Move-only; main thread.
class KX_CATALOGUE_EXPORT KXCatalogueTicket
{
public:
    KXCatalogueTicket() = default;
    /// `cancel` is called once, unless the answer came before: `isOver` says so.
    KXCatalogueTicket(std::shared_ptr<bool> isOver, std::function<void()> cancel);
    KXCatalogueTicket(KXCatalogueTicket &&other) noexcept;
    KXCatalogueTicket &operator=(KXCatalogueTicket &&other) noexcept;
    ~KXCatalogueTicket();

    void cancel();
    [[nodiscard]] bool isPending() const { return m_isOver && !*m_isOver; }

private:
    std::shared_ptr<bool> m_isOver;
    std::function<void()> m_cancel;
};

/// A remote catalogue: tracks on servers, far more than fit in here, which answer rules as objects in memory do.
///
/// Every request returns at once. Its answer comes on the main thread, at most once, never before the request has
/// returned, and within its time limit: a result, a result that names the parts that are missing, or an error that says
/// what to do. The ticket belongs to the caller, who may let it go inside the answer. Main thread.
class KX_CATALOGUE_EXPORT KXCatalogue
{
public:
    using CountsAnswer = std::function<void(const KXCatalogueCounts &)>;
    using ValuesAnswer = std::function<void(const KXCatalogueValues &)>;
    using PageAnswer = std::function<void(const KXCataloguePage &)>;

    virtual ~KXCatalogue();

    [[nodiscard]] virtual const KXCatalogueSchema &schema() const = 0;
    /// What the catalogue makes of rules; asks no server.
    [[nodiscard]] virtual const KXCatalogueDialect &dialect() const = 0;

    /// Counts what fits the rule, and each facet among that.
    [[nodiscard]] virtual KXCatalogueTicket count(const KXCatalogueCountRequest &request, CountsAnswer answer) = 0;
    /// The same from a sample, soon; marked as an estimate. Ask for both, and show the exact numbers when they come.
    [[nodiscard]] virtual KXCatalogueTicket estimate(const KXCatalogueCountRequest &request, CountsAnswer answer) = 0;
    /// The values that a column has among what fits, with counts. An error (code Refused) where there are more than
    /// KXCatalogueValuesRequest::MostValues in some part.
    [[nodiscard]] virtual KXCatalogueTicket values(const KXCatalogueValuesRequest &request, ValuesAnswer answer) = 0;
    /// Tracks in order.
    [[nodiscard]] virtual KXCatalogueTicket page(const KXCataloguePageRequest &request, PageAnswer answer) = 0;
};
