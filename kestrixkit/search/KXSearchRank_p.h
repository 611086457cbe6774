#pragma once

#include <QByteArray>
#include <QVariant>

#include <kestrixkit/entity/KXPropertyDescription.h>

class KXColumnValue;

/// Sort values as bytes whose plain order is that of sort descriptors: texts by code point, absent values first.
class KXSearchRank
{
public:
    /// One value after the other, as the descriptors have them.
    void add(const KXPropertyDescription &property, KXColumnValue value, bool ascending, int options);
    void add(const QVariant &value, bool ascending, int options);
    /// Bytes that another rank has taken.
    void addBytes(QByteArrayView bytes) { m_bytes += bytes; }
    [[nodiscard]] const QByteArray &bytes() const { return m_bytes; }
    void clear() { m_bytes.resize(0); }

private:
    void addInteger(qint64 number);
    void addReal(double number);
    void addText(QByteArrayView utf8);
    void addDecimal(QByteArrayView canonical);
    void invertFrom(qsizetype from);

    QByteArray m_bytes;
};
