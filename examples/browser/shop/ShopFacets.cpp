#include "shop/ShopFacets.h"

#include <algorithm>

#include <QHeaderView>

#include <kestrixkit/filters/KXFacetFilter.h>
#include <kestrixkit/foundation/KXClock.h>

using namespace Qt::StringLiterals;

namespace {

constexpr qsizetype mostValues = 100; // of one section
constexpr int facetHeight = 22; // in points

/// Two digits say as much as a sample knows.
qint64 roundedEstimate(qint64 count)
{
    qint64 unit = 1;
    while (count / unit >= 100)
        unit *= 10;
    return (count + unit / 2) / unit * unit;
}

QString countText(qint64 count, bool isEstimate)
{
    const QLocale locale = KXClock::locale();
    return isEstimate ? u"≈ "_s + locale.toString(roundedEstimate(count)) : locale.toString(count);
}

} // namespace

ShopFacets::ShopFacets(std::shared_ptr<KXCatalogue> catalogue, KXManagedObjectContext &library, QWidget *parent)
    : QTreeWidget(parent)
    , m_catalogue(std::move(catalogue))
{
    setColumnCount(2);
    setHeaderHidden(true);
    setRootIsDecorated(false);
    setAccessibleName(tr("Genres and keys with counts"));
    header()->setStretchLastSection(false);
    header()->setSectionResizeMode(0, QHeaderView::Stretch);
    header()->setSectionResizeMode(1, QHeaderView::ResizeToContents);
    const auto keys = KXFacetFilter::createTemporaryInstanceInContext(library);
    keys->setLocalValuePredicateKeyPath(u"keyOrder"_s);
    addValues(tr("Key"), u"keyOrder"_s, u"keyOrder"_s, FilterTypes::choicesFor(library, *keys));
    connect(this, &QTreeWidget::itemActivated, this, &ShopFacets::pick);
    connect(this, &QTreeWidget::itemClicked, this, &ShopFacets::pick);
}

void ShopFacets::pick(QTreeWidgetItem *item)
{
    for (const Value &value : std::as_const(m_values)) {
        if (value.item == item) {
            Q_EMIT picked(value.keyPath, item->parent()->text(0), value.choice);
            return;
        }
    }
}

void ShopFacets::addValues(
    const QString &title, const QString &keyPath, const QString &remote, const QList<FilterTypes::Choice> &choices)
{
    auto *const section = new QTreeWidgetItem(QStringList { title });
    insertTopLevelItem(0, section);
    section->setFlags(Qt::ItemIsEnabled);
    section->setFirstColumnSpanned(true);
    QFont bold = font();
    bold.setBold(true);
    section->setFont(0, bold);
    section->setSizeHint(0, { 0, facetHeight });
    for (const FilterTypes::Choice &choice : choices.first(std::min(choices.size(), mostValues))) {
        auto *const item = new QTreeWidgetItem(section, { choice.name });
        item->setTextAlignment(1, Qt::AlignRight | Qt::AlignVCenter);
        item->setSizeHint(0, { 0, facetHeight });
        m_values.append({ keyPath, choice, item });
        m_rules.append(KXPredicate::comparison(remote, KXPredicateOperator::Equal, choice.value));
    }
    section->setExpanded(true);
}

/// Once: which genres a shop has changes less often than what is searched for.
void ShopFacets::loadGenres()
{
    if (m_hasGenres || m_genres.isPending())
        return;
    m_genres = m_catalogue->values({ .keyPath = u"genre"_s }, [this](const KXCatalogueValues &genres) {
        if (!genres.isComplete())
            return; // the next count tries again
        m_hasGenres = true;
        QList<FilterTypes::Choice> choices;
        for (const KXCatalogueValues::Value &genre : genres.values.first(std::min(genres.values.size(), mostValues))) {
            if (genre.value.isValid())
                choices.append({ genre.value.toString(), genre.value });
        }
        addValues(tr("Genre"), u"genres.name"_s, u"genre"_s, choices);
        count();
    });
}

void ShopFacets::setRule(const KXPredicate &rule)
{
    m_rule = rule;
    loadGenres();
    count();
}

void ShopFacets::count()
{
    const KXCatalogueCountRequest request { .rule = m_rule, .facets = m_rules };
    m_isExact = false;
    m_estimate = m_catalogue->estimate(request, [this](const KXCatalogueCounts &counts) {
        if (!m_isExact && !counts.error)
            show(counts);
    });
    m_count = m_catalogue->count(request, [this](const KXCatalogueCounts &counts) {
        m_isExact = true;
        m_estimate.cancel();
        show(counts);
    });
}

void ShopFacets::show(const KXCatalogueCounts &counts)
{
    for (qsizetype i = 0; i < m_values.size(); ++i) {
        const qint64 count = counts.facets.value(i);
        m_values[i].item->setText(1, counts.error ? QString() : countText(count, counts.isEstimate));
        m_values[i].item->setDisabled(!counts.error && !counts.isEstimate && count == 0);
    }
    const QString problem = counts.error ? counts.error.localizedDescription() : counts.missing.join(u'\n');
    const QString number = countText(counts.count, counts.isEstimate);
    Q_EMIT countCame(counts.error                     ? QString()
            : counts.count == 1 && !counts.isEstimate ? tr("1 track")
                                                      : tr("%1 tracks", nullptr, int(counts.count)).arg(number),
        problem);
}
