/// Makes Google Test print Qt's texts and dates readably.
#pragma once

#include <ostream>

#include <QDateTime>
#include <QString>

inline void PrintTo(const QString &text, std::ostream *out)
{
    *out << (text.isNull() ? "null" : '"' + text.toStdString() + '"');
}
inline void PrintTo(const QDateTime &date, std::ostream *out)
{
    *out << date.toString(Qt::ISODateWithMs).toStdString();
}
