#pragma once

#include <kestrixkit/filters/KXFilter.h>
#include <kestrixkit/foundation/KXWeakRef.h>

/// Stands for a filter's current setting as a row below it, where details of a preset are shown: what values are to a
/// facet filter. Does not keep the filter alive. Belongs to the thread of the filter's context.
class KXFilterDefaultValue
{
public:
    explicit KXFilterDefaultValue(const KXRef<KXFilter> &filter)
        : m_filter(filter)
    {
    }
    [[nodiscard]] KXRef<KXFilter> filter() const { return m_filter.lock(); }

private:
    KXWeakRef<KXFilter> m_filter;
};

/// One entry of a menu of kinds of filters.
struct KXFilterTypeItem
{
    QString name;
    qint64 tag = 0;
};
