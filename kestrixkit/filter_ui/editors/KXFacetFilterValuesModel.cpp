#include <kestrixkit/filter_ui/editors/KXFacetFilterValuesModel.h>

#include <algorithm>

#include <QMultiHash>
#include <QSet>

#include <kestrixkit/filter_ui/KXFacetFilterValueCellView.h>
#include <kestrixkit/foundation/KXClock.h>
#include <kestrixkit/foundation/KXStringWithFormat.h>

using namespace Qt::StringLiterals;

namespace {

constexpr QLatin1StringView facetCountsIdentifier { "whatIf" };

/// Finds values among thousands; equal ones have equal texts.
class FacetHeldValues
{
public:
    explicit FacetHeldValues(const KXRef<KXFacetFilter> &filter)
        : m_all(filter && !filter->isDeleted() ? filter->valuesSortedByName() : QList<KXRef<KXFacetFilterValue>>())
    {
        for (const KXRef<KXFacetFilterValue> &value : m_all)
            m_byText.insert(value->value().toString(), value);
    }
    [[nodiscard]] const QList<KXRef<KXFacetFilterValue>> &all() const { return m_all; }
    [[nodiscard]] QList<KXRef<KXFacetFilterValue>> of(const QVariant &value) const
    {
        QList<KXRef<KXFacetFilterValue>> found = m_byText.values(value.toString());
        found.removeIf([&value](const KXRef<KXFacetFilterValue> &held) { return held->value() != value; });
        return found;
    }

private:
    const QList<KXRef<KXFacetFilterValue>> m_all;
    QMultiHash<QString, KXRef<KXFacetFilterValue>> m_byText;
};

KXFacetFilterValuesModel::State facetStateOf(const KXFacetFilterValue &value)
{
    using State = KXFacetFilterValuesModel::State;
    if (!value.enabled())
        return State::NotChosen;
    return value.operatorType() == KXPredicateOperator::NotEqual ? State::Excluded : State::Included;
}

KXPredicateOperator facetInclusionOf(const KXFacetFilterValue &value)
{
    const KXPredicateOperator code = value.operatorType();
    return code == KXPredicateOperator::NotEqual ? KXPredicateOperator::Equal : code;
}

}

KXFacetFilterValuesModel::KXFacetFilterValuesModel(KXRef<KXFacetFilter> filter, QObject *parent)
    : QAbstractListModel(parent)
    , m_filter(std::move(filter))
{
}

KXFacetFilterValuesModel::~KXFacetFilterValuesModel() = default;

QString KXFacetFilterValuesModel::foldedText(const QString &text)
{
    QString folded;
    for (const QChar c : text.normalized(QString::NormalizationForm_KD)) {
        if (!c.isMark())
            folded += c.toCaseFolded();
    }
    return folded;
}

void KXFacetFilterValuesModel::setOffers(const QList<Offer> &offers)
{
    beginResetModel();
    m_offers = offers;
    const FacetHeldValues held(m_filter);
    QSet<const KXFacetFilterValue *> offered;
    for (const Offer &offer : offers) {
        for (const KXRef<KXFacetFilterValue> &value : held.of(offer.value))
            offered.insert(value.get());
    }
    for (const KXRef<KXFacetFilterValue> &value : held.all()) {
        if (!offered.contains(value.get()))
            m_offers.append({ value->name().value_or(value->value().toString()), value->value(),
                value->valueIdentifier(), facetInclusionOf(*value) });
    }
    m_entries.assign(size_t(m_offers.size()), {});
    for (qsizetype i = 0; i < m_offers.size(); ++i)
        m_entries[size_t(i)].folded = foldedText(m_offers[i].name);
    m_rows.clear();
    endResetModel();
    readChoices();
    arrange();
}

QVariantList KXFacetFilterValuesModel::values() const
{
    QVariantList values;
    for (const Offer &offer : m_offers)
        values.append(offer.value);
    return values;
}

void KXFacetFilterValuesModel::setCounts(const QList<KXWhatIfCounts::ValueCounts> &counts)
{
    bool isNews = false;
    for (size_t i = 0; i < m_entries.size(); ++i) {
        const bool isKnown = qsizetype(i) < counts.size() && isComparedByEquality(int(i));
        const auto now = isKnown ? std::optional(counts[qsizetype(i)]) : std::nullopt;
        isNews = isNews || m_entries[i].counts != now;
        m_entries[i].counts = now;
    }
    if (isNews && rowCount() > 0)
        Q_EMIT dataChanged(index(0), index(rowCount() - 1));
}

void KXFacetFilterValuesModel::readChoices()
{
    const FacetHeldValues held(m_filter);
    bool isNews = false;
    for (size_t i = 0; i < m_entries.size(); ++i) {
        State state = State::NotChosen;
        for (const KXRef<KXFacetFilterValue> &value : held.of(m_offers[qsizetype(i)].value))
            state = state == State::NotChosen ? facetStateOf(*value) : state;
        isNews = isNews || m_entries[i].state != state;
        m_entries[i].state = state;
    }
    if (isNews && rowCount() > 0)
        Q_EMIT dataChanged(index(0), index(rowCount() - 1));
}

void KXFacetFilterValuesModel::setSearchText(const QString &text)
{
    m_searchText = text;
    arrange();
}

void KXFacetFilterValuesModel::arrange()
{
    const QString sought = foldedText(m_searchText.trimmed());
    QList<int> rows;
    for (int i = 0; i < int(m_offers.size()); ++i) {
        if (m_entries[size_t(i)].folded.contains(sought))
            rows.append(i);
    }
    std::stable_sort(rows.begin(), rows.end(), [this](int a, int b) {
        const Entry &left = m_entries[size_t(a)], &right = m_entries[size_t(b)];
        const qint64 more = left.counts ? left.counts->added : 0, less = right.counts ? right.counts->added : 0;
        return more != less ? more > less : left.folded < right.folded;
    });
    if (rows == m_rows)
        return;
    beginResetModel();
    m_rows = rows;
    endResetModel();
}

int KXFacetFilterValuesModel::rowOfValue(const QVariant &value) const
{
    for (int row = 0; row < m_rows.size(); ++row) {
        if (offer(row).value == value)
            return row;
    }
    return -1;
}

int KXFacetFilterValuesModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : int(m_rows.size());
}

KXSourceListCell KXFacetFilterValuesModel::cell(int number) const
{
    Entry &entry = m_entries[size_t(number)];
    const Offer &offer = m_offers[number];
    KXManagedObjectContext *const context = m_filter ? m_filter->managedObjectContext() : nullptr;
    KXSourceListCell cell;
    cell.isExpandable = false;
    if (!entry.shown && context)
        entry.shown = KXFacetFilterValue::createTemporaryInstanceInContext(
            *context, offer.name, offer.value, offer.identifier, KXPredicateOperator::Equal);
    if (entry.shown) {
        entry.shown->setOperatorType(entry.state == State::Excluded ? KXPredicateOperator::NotEqual : offer.included);
        entry.shown->setEnabled(true);
        entry.shown->setCount(entry.counts ? entry.counts->added : 0, facetCountsIdentifier);
        KXFacetFilterValueCellView view(cell);
        view.setCountsContextIdentifier(facetCountsIdentifier);
        view.setFacetFilterValue(entry.shown);
    } else {
        cell.title = offer.name;
    }
    cell.isEnabled = entry.state != State::NotChosen || !entry.counts || entry.counts->added > 0;
    cell.toolTip = description(number);
    return cell;
}

/// What assistive technology says, and the tool tip.
QString KXFacetFilterValuesModel::description(int number) const
{
    const Entry &entry = m_entries[size_t(number)];
    QStringList parts { m_offers[number].name };
    if (entry.state != State::NotChosen)
        parts.append(entry.state == State::Included ? KXLocalizedString("included") : KXLocalizedString("excluded"));
    if (entry.counts) {
        const QLocale locale = KXClock::locale();
        parts.append(KXStringWithFormat(
            KXLocalizedString("%@ in the list with it", entry.counts->added), locale.toString(entry.counts->added)));
        parts.append(KXStringWithFormat(
            KXLocalizedString("%@ without it", entry.counts->excluded), locale.toString(entry.counts->excluded)));
    }
    return parts.join(u", "_s);
}

QVariant KXFacetFilterValuesModel::data(const QModelIndex &index, int role) const
{
    if (!checkIndex(index, CheckIndexOption::IndexIsValid))
        return {};
    const int number = m_rows[index.row()];
    const Entry &entry = m_entries[size_t(number)];
    switch (role) {
    case Qt::DisplayRole:
        return m_offers[number].name;
    case Qt::ToolTipRole:
    case Qt::AccessibleTextRole:
        return description(number);
    case Qt::CheckStateRole:
        return {};
    case StateRole:
        return int(entry.state);
    case CellRole:
        return QVariant::fromValue(cell(number));
    case EmptiesRole:
        return entry.counts && entry.counts->added == 0;
    case AddedRole:
        return entry.counts ? QVariant(entry.counts->added) : QVariant();
    case ExcludableRole:
        return isComparedByEquality(number);
    case ExcludedRole:
        return entry.counts ? QVariant(entry.counts->excluded) : QVariant();
    default:
        return {};
    }
}
