#include "filters/TrackReasons.h"

#include <QCoreApplication>
#include <QFileInfo>

#include <kestrixkit/filter_ui/editors/KXFilterBarFilterView.h>
#include <kestrixkit/filters/KXFilterSetExplanation.h>
#include <kestrixkit/foundation/KXClock.h>

#include "tags/TagValues.h"

using namespace Qt::StringLiterals;

namespace {

QString reasonText(const char *text) { return QCoreApplication::translate("TrackReasons", text); }

QString reasonValueText(const QString &keyPath, const QVariant &value)
{
    const QLocale locale = KXClock::locale();
    if (value.typeId() == QMetaType::QVariantList) {
        QStringList parts;
        for (const QVariant &element : value.toList())
            parts.append(reasonValueText(keyPath, element));
        return parts.join(u", "_s);
    }
    if (keyPath == "keyOrder"_L1 && value.isValid()) {
        const MusicalKey key { value.toInt() / 2, value.toInt() % 2 == 0 };
        return u"%1 · %2"_s.arg(key.wheelCode(), key.name());
    }
    if (keyPath == "key.isMinor"_L1 && value.isValid())
        return value.toBool() ? reasonText(QT_TRANSLATE_NOOP("TrackReasons", "Minor"))
                              : reasonText(QT_TRANSLATE_NOOP("TrackReasons", "Major"));
    if (value.typeId() == QMetaType::Bool)
        return value.toBool() ? reasonText(QT_TRANSLATE_NOOP("TrackReasons", "yes"))
                              : reasonText(QT_TRANSLATE_NOOP("TrackReasons", "no"));
    if (value.typeId() == QMetaType::QUrl)
        return value.toUrl().fileName();
    if (value.typeId() == QMetaType::QDateTime)
        return locale.toString(value.toDateTime().toTimeZone(KXClock::timeZone()), QLocale::ShortFormat);
    if (value.typeId() == QMetaType::Double)
        return locale.toString(value.toDouble(), 'g', QLocale::FloatingPointShortest);
    return value.toString();
}

QString reasonLineOf(const KXFilterSetExplanation::Verdict &verdict)
{
    QStringList has;
    for (auto entry = verdict.values.cbegin(); entry != verdict.values.cend(); ++entry) {
        const QString text = reasonValueText(entry.key(), entry.value());
        has.append(text.isEmpty() ? reasonText(QT_TRANSLATE_NOOP("TrackReasons", "nothing")) : text);
    }
    const QString name = verdict.filter->name().value_or(verdict.filter->label());
    const QString asks = KXFilterBarFilterView::textOfFilter(*verdict.filter);
    if (!verdict.takesPart)
        return reasonText(QT_TRANSLATE_NOOP("TrackReasons", "–  %1 (%2) keeps nothing out")).arg(name, asks);
    return (verdict.matches ? reasonText(QT_TRANSLATE_NOOP("TrackReasons", "✓  %1 is %2, and %3 is asked for"))
                            : reasonText(QT_TRANSLATE_NOOP("TrackReasons", "✗  %1 is %2, but %3 is asked for")))
        .arg(name, has.join(u"; "_s), asks);
}

} // namespace

QString TrackReasons::text(const KXRef<KXFilterSet> &set, const Track &track)
{
    const bool hasFilters = set && !set->filters().isEmpty();
    if (!hasFilters)
        return reasonText(
            QT_TRANSLATE_NOOP("TrackReasons", "There are no filters: every track of this place is shown."));
    QStringList lines;
    const KXFilterSetExplanation explanation = KXFilterSetExplanation::explain(*set, &track);
    for (const auto &verdict : explanation.verdicts())
        lines.append(reasonLineOf(verdict));
    return lines.join(u'\n');
}
