#pragma once

#include <QString>
#include <QStringView>

/// The name of a property as a constant, as KX_ATTRIBUTE and its like make it ("titleKey"). It fits wherever a key is
/// taken: valueForKey(), KXSortDescriptor, KXLiveListModel::Column, QStringView, "%K" of a predicate. A value that
/// borrows a literal, and makes a QString of it without copying; any thread.
class KXKey : public QStringView
{
public:
    template <size_t size>
    explicit constexpr KXKey(const char16_t (&name)[size])
        : QStringView(name, qsizetype(size - 1))
    {
    }

    operator QString() const { return QString::fromRawData(data(), size()); }

    friend bool operator==(const KXKey &a, const KXKey &b) { return QStringView(a) == QStringView(b); }
    friend bool operator==(const KXKey &a, const QString &b) { return QStringView(a) == QStringView(b); }
};
