#include "shop/ShopTableModel.h"

#include <QDateTime>

#include <kestrixkit/foundation/KXClock.h>
#include <kestrixkit/foundation/KXDecimal.h>

#include "filters/FilterTypes.h"
#include "window/BrowserStyle.h"

using namespace Qt::StringLiterals;

namespace {

struct ShopColumn
{
    const char *title;
    const char16_t *keyPath; ///< null for what the catalogue does not know
    bool isText = false; ///< sorted without regard to case and diacritics
};

const ShopColumn shopColumns[] = {
    { QT_TRANSLATE_NOOP("ShopTableModel", "Title"), u"title", true },
    { QT_TRANSLATE_NOOP("ShopTableModel", "Artist"), u"artistText", true },
    { QT_TRANSLATE_NOOP("ShopTableModel", "Genre"), u"genre" },
    { QT_TRANSLATE_NOOP("ShopTableModel", "BPM"), u"bpm" },
    { QT_TRANSLATE_NOOP("ShopTableModel", "Key"), u"keyOrder" },
    { QT_TRANSLATE_NOOP("ShopTableModel", "Length"), u"duration" },
    { QT_TRANSLATE_NOOP("ShopTableModel", "Label"), u"label" },
    { QT_TRANSLATE_NOOP("ShopTableModel", "Released"), u"released" },
    { QT_TRANSLATE_NOOP("ShopTableModel", "Price"), u"price" },
    { QT_TRANSLATE_NOOP("ShopTableModel", "In My Library"), nullptr },
};

QStringList shopKeyPaths()
{
    QStringList keyPaths;
    for (const ShopColumn &column : shopColumns) {
        if (column.keyPath)
            keyPaths.append(QString::fromUtf16(column.keyPath));
    }
    return keyPaths << u"preview"_s; // behind the columns
}

} // namespace

ShopTableModel::ShopTableModel(std::shared_ptr<KXCatalogue> catalogue, QObject *parent)
    : QAbstractTableModel(parent)
    , m_catalogue(std::move(catalogue))
    , m_order({ { .key = u"released"_s, .ascending = false } })
{
}

void ShopTableModel::setRule(const KXPredicate &rule)
{
    m_rule = rule;
    ask(true);
}

void ShopTableModel::sort(int column, Qt::SortOrder order)
{
    if (column < 0 || column >= ColumnCount || !shopColumns[column].keyPath)
        return;
    const ShopColumn &by = shopColumns[column];
    m_order = { { .key = QString::fromUtf16(by.keyPath),
        .ascending = order == Qt::AscendingOrder,
        .options = by.isText ? KXCaseInsensitive | KXDiacriticInsensitive : 0,
        .absentLast = true } };
    ask(true);
}

void ShopTableModel::ask(bool isFirst)
{
    KXCataloguePageRequest request {
        .rule = m_rule, .sortDescriptors = m_order, .keyPaths = shopKeyPaths(), .limit = PageRows
    };
    if (!isFirst && !m_rows.isEmpty())
        request.after = m_rows.last().key;
    m_hasFailed = false;
    m_ticket = m_catalogue->page(request, [this, isFirst](const KXCataloguePage &page) { take(page, isFirst); });
}

void ShopTableModel::take(const KXCataloguePage &page, bool isFirst)
{
    if (page.error) {
        m_hasFailed = true; // the view asks again when somebody wants that
        Q_EMIT failed(page.error.localizedDescription());
        return;
    }
    const int first = isFirst ? 0 : int(m_rows.size());
    if (isFirst) {
        beginResetModel();
        m_rows = page.rows;
        m_isLast = page.isLast;
        endResetModel();
    } else if (!page.rows.isEmpty()) {
        beginInsertRows({}, first, first + int(page.rows.size()) - 1);
        m_rows += page.rows;
        m_isLast = page.isLast;
        endInsertRows();
    } else {
        m_isLast = true;
    }
    if (!page.missing.isEmpty())
        Q_EMIT failed(page.missing.join(u'\n'));
    Q_EMIT pageCame(first);
}

bool ShopTableModel::canFetchMore(const QModelIndex &parent) const
{
    return !parent.isValid() && !m_isLast && !m_hasFailed && !m_ticket.isPending() && m_rows.size() < MostRows;
}

void ShopTableModel::fetchMore(const QModelIndex &parent)
{
    if (canFetchMore(parent))
        ask(false);
}

ShopTableModel::Name ShopTableModel::nameOfRow(int row) const
{
    const QVariantList values = m_rows.value(row).values;
    return { values.value(Title).toString(), values.value(Artist).toString() };
}

QUrl ShopTableModel::previewOfRow(int row) const
{
    return QUrl(m_rows.value(row).values.value(Owned).toString(), QUrl::StrictMode);
}

int ShopTableModel::rowOfPreview(const QUrl &address) const
{
    int row = address.isEmpty() ? -1 : int(m_rows.size()) - 1;
    while (row >= 0 && previewOfRow(row) != address)
        --row;
    return row;
}

void ShopTableModel::markOwned(const QSet<Name> &owned)
{
    m_owned += owned;
    if (!m_rows.isEmpty() && !owned.isEmpty())
        Q_EMIT dataChanged(index(0, Owned), index(int(m_rows.size()) - 1, Owned));
}

int ShopTableModel::rowCount(const QModelIndex &parent) const { return parent.isValid() ? 0 : int(m_rows.size()); }

int ShopTableModel::columnCount(const QModelIndex &parent) const { return parent.isValid() ? 0 : ColumnCount; }

QVariant ShopTableModel::data(const QModelIndex &index, int role) const
{
    if (!index.isValid() || index.row() >= m_rows.size())
        return {};
    const int column = index.column();
    if (role == Qt::TextAlignmentRole)
        return column == Bpm || column == Length || column == Price ? QVariant(Qt::AlignRight | Qt::AlignVCenter)
                                                                    : QVariant();
    if (column == Owned && (role == Qt::ToolTipRole || role == Qt::AccessibleTextRole))
        return m_owned.contains(nameOfRow(index.row())) ? tr("In my library") : QString();
    if (role != Qt::DisplayRole)
        return {};
    if (column == Owned)
        return m_owned.contains(nameOfRow(index.row())) ? tr("✓") : QString();
    const QVariant value = m_rows[index.row()].values.value(column);
    if (!value.isValid())
        return {};
    switch (column) {
    case Bpm:
        return KXClock::locale().toString(value.toDouble(), 'f', 1);
    case Key:
        return FilterTypes::keyCode(value.toInt());
    case Length:
        return BrowserStyle::timeText(value.toDouble());
    case Released:
        return KXClock::locale().toString(
            value.toDateTime().toTimeZone(KXClock::timeZone()).date(), QLocale::ShortFormat);
    case Price:
        return value.value<KXDecimal>().toString();
    default:
        return value.toString();
    }
}

QVariant ShopTableModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation == Qt::Vertical || role != Qt::DisplayRole || section < 0 || section >= ColumnCount)
        return {};
    return tr(shopColumns[section].title);
}
