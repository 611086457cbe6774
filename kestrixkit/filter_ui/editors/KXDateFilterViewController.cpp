#include <kestrixkit/filter_ui/editors/KXDateFilterViewController.h>

#include <QCalendarWidget>
#include <QDateEdit>
#include <QSignalBlocker>

#include <kestrixkit/foundation/KXClock.h>
#include <kestrixkit/foundation/KXStringWithFormat.h>
#include <kestrixkit/theme/controls/KXButtonMatrixView.h>
#include <kestrixkit/util/KXDate.h>

using namespace Qt::StringLiterals;

namespace {

constexpr int dateRangeColumns = 3;

QDate dateFilterDay(const QDateTime &moment)
{
    return moment.isValid() ? moment.toTimeZone(KXClock::timeZone()).date() : KXClock::today();
}

QDateTime dateFilterStartOf(QDate day) { return day.startOfDay(KXClock::timeZone()); }
QDateTime dateFilterEndOf(QDate day) { return day.endOfDay(KXClock::timeZone()); }

}

KXDateFilterViewController::KXDateFilterViewController(KXRef<KXDateFilter> filter, QObject *parent)
    : KXFilterEditorViewController(filter, parent)
    , m_filter(std::move(filter))
{
}

KXButtonMatrixView *KXDateFilterViewController::dateRangeControl() const { return m_dateRangeControl; }
QDateEdit *KXDateFilterViewController::startDatePicker() const { return m_startDatePicker; }
QDateEdit *KXDateFilterViewController::endDatePicker() const { return m_endDatePicker; }
QWidget *KXDateFilterViewController::firstResponder() const { return m_dateRangeControl; }
QStringList KXDateFilterViewController::editedKeys() const { return { u"range"_s, u"startDate"_s, u"endDate"_s }; }

void KXDateFilterViewController::viewDidLoad()
{
    m_dateRangeControl = outlet<KXButtonMatrixView>(u"dateRangeControl"_s);
    m_startDatePicker = outlet<QDateEdit>(u"startDatePicker"_s);
    m_endDatePicker = outlet<QDateEdit>(u"endDatePicker"_s);
    if (m_dateRangeControl) {
        QList<KXButtonMatrixItem> spans;
        for (const auto &[title, span] : { std::pair(QT_TRANSLATE_NOOP("KestrixKit", "All"), KXDateRange::All),
                 std::pair(QT_TRANSLATE_NOOP("KestrixKit", "Today"), KXDateRange::Today),
                 std::pair(QT_TRANSLATE_NOOP("KestrixKit", "Yesterday"), KXDateRange::Yesterday),
                 std::pair(QT_TRANSLATE_NOOP("KestrixKit", "Last 7 Days"), KXDateRange::Last7Days),
                 std::pair(QT_TRANSLATE_NOOP("KestrixKit", "Last 30 Days"), KXDateRange::Last30Days),
                 std::pair(QT_TRANSLATE_NOOP("KestrixKit", "This Year"), KXDateRange::ThisYear) })
            spans.append({ KXLocalizedString(title), int(span) });
        m_dateRangeControl->setItems(spans, dateRangeColumns);
        connect(m_dateRangeControl, &KXButtonMatrixView::selectionDidChange, this,
            &KXDateFilterViewController::dateRangeChanged);
    }
    for (QDateEdit *const picker : { m_startDatePicker.data(), m_endDatePicker.data() }) {
        if (!picker)
            continue;
        picker->setKeyboardTracking(false);
        picker->setCalendarPopup(true);
        picker->setDisplayFormat(KXClock::locale().dateFormat(QLocale::ShortFormat).contains("yyyy"_L1)
                ? KXClock::locale().dateFormat(QLocale::ShortFormat)
                : KXClock::locale().dateFormat(QLocale::ShortFormat).replace("yy"_L1, "yyyy"_L1));
        connect(picker, &QDateEdit::userDateChanged, this, &KXDateFilterViewController::datesChanged);
    }
    KXFilterEditorViewController::viewDidLoad();
}

void KXDateFilterViewController::filterDidChange()
{
    updatePickers();
    if (!m_dateRangeControl)
        return;
    int index = -1;
    for (int i = 0; i < m_dateRangeControl->items().size(); ++i) {
        if (m_dateRangeControl->items()[i].value.toInt() == int(m_filter->range()))
            index = i;
    }
    m_dateRangeControl->setSelectedIndex(index);
}

/// Setting them is not the user's doing, and changes no filter.
void KXDateFilterViewController::updatePickers()
{
    if (!m_startDatePicker || !m_endDatePicker)
        return;
    const QDate today = KXClock::today();
    QDate start = today, end = today;
    switch (m_filter->range()) {
    case KXDateRange::All:
        start = QDate(1970, 1, 1);
        break;
    case KXDateRange::Today:
        break;
    case KXDateRange::Yesterday:
        start = end = today.addDays(-1);
        break;
    case KXDateRange::Last7Days:
        start = today.addDays(-7);
        break;
    case KXDateRange::Last30Days:
        start = today.addDays(-30);
        break;
    case KXDateRange::ThisYear:
        start = QDate(today.year(), 1, 1);
        break;
    case KXDateRange::Custom:
        start = dateFilterDay(m_filter->startDate());
        end = dateFilterDay(m_filter->endDate());
        break;
    default:
        return;
    }
    const QSignalBlocker startSilent(m_startDatePicker), endSilent(m_endDatePicker);
    m_startDatePicker->setDate(start);
    m_endDatePicker->setDate(end);
}

void KXDateFilterViewController::dateRangeChanged()
{
    const auto chosen = m_dateRangeControl ? m_dateRangeControl->selectedItem() : std::nullopt;
    if (!chosen)
        return;
    change([this, &chosen] { m_filter->setRange(KXDateRange(chosen->value.toInt())); });
}

void KXDateFilterViewController::datesChanged()
{
    if (!m_startDatePicker || !m_endDatePicker || !canEdit())
        return;
    const QDate start = m_startDatePicker->date(), end = m_endDatePicker->date();
    // Pickers know days, stored dates are moments.
    const bool differs = m_filter->range() != KXDateRange::Custom || !m_filter->startDate().isValid()
        || !m_filter->endDate().isValid() || dateFilterDay(m_filter->startDate()) != start
        || dateFilterDay(m_filter->endDate()) != end;
    change([&] {
        if (!differs)
            return;
        m_filter->setRange(KXDateRange::Custom);
        m_filter->setStartDate(dateFilterStartOf(start));
        m_filter->setEndDate(dateFilterEndOf(end));
    });
}
