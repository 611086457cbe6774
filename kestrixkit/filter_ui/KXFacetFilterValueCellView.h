#pragma once

#include <kestrixkit/filters/KXFacetFilterValue.h>
#include <kestrixkit/source_list/KXSourceListCell.h>

/// One row of a value of a facet filter while it is set up: writes what the value shows into the outline's cell. What
/// the preset leaves out is paler. Main thread.
class KX_UI_EXPORT KXFacetFilterValueCellView
{
public:
    /// The cell is borrowed.
    explicit KXFacetFilterValueCellView(KXSourceListCell &cell)
        : m_cell(cell)
    {
    }

    [[nodiscard]] KXSourceListCell &cell() const { return m_cell; }
    /// Of the place whose counts are shown; null: none.
    [[nodiscard]] const QString &countsContextIdentifier() const { return m_identifier; }
    void setCountsContextIdentifier(const QString &identifier) { m_identifier = identifier; }
    [[nodiscard]] const KXRef<KXFacetFilterValue> &facetFilterValue() const { return m_value; }
    /// Takes title and count from the value; the identifier is set before.
    void setFacetFilterValue(const KXRef<KXFacetFilterValue> &value);
    /// The name, as "NOT %@" where the value is excluded.
    [[nodiscard]] static QString titleOfValue(const KXFacetFilterValue &value);

private:
    KXSourceListCell &m_cell;
    QString m_identifier;
    KXRef<KXFacetFilterValue> m_value;
};
