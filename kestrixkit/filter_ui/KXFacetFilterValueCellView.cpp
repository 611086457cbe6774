#include <kestrixkit/filter_ui/KXFacetFilterValueCellView.h>

#include <kestrixkit/foundation/KXStringWithFormat.h>

void KXFacetFilterValueCellView::setFacetFilterValue(const KXRef<KXFacetFilterValue> &value)
{
    m_value = value;
    m_cell.title = titleOfValue(*value);
    m_cell.isEnabled = value->enabled();
    // The identifier is one key, dots included.
    m_cell.count = value->counts() ? value->counts()->value(m_identifier) : 0;
}

QString KXFacetFilterValueCellView::titleOfValue(const KXFacetFilterValue &value)
{
    const QString name = value.name().value_or(value.value().toString());
    return value.operatorType() == KXPredicateOperator::NotEqual ? KXStringWithFormat(KXLocalizedString("NOT %@"), name)
                                                                 : name;
}
