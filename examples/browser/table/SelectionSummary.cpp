#include "table/SelectionSummary.h"

#include <QLabel>
#include <QLocale>

#include <kestrixkit/foundation/KXClock.h>

#include "table/TrackTableView.h"
#include "window/BrowserStyle.h"

using namespace Qt::StringLiterals;

namespace {

constexpr double summaryAfter = 0.05; // seconds: while the shift key and an arrow are held down nothing is added up
constexpr qsizetype summaryPiece = 2'000; // rows a turn

} // namespace

SelectionSummary::SelectionSummary(TrackTableView *table, TrackTableModel *model, QLabel *label, QObject *parent)
    : QObject(parent)
    , m_table(table)
    , m_model(model)
    , m_label(label)
{
    const auto again = [this] { m_soon.start(summaryAfter, [this] { begin(); }); };
    connect(table->selectionModel(), &QItemSelectionModel::selectionChanged, this, again);
    connect(model, &QAbstractItemModel::rowsRemoved, this, again);
    connect(model, &QAbstractItemModel::layoutChanged, this, again);
    connect(model, &QAbstractItemModel::modelReset, this, again);
    m_label->hide();
}

void SelectionSummary::begin()
{
    m_rows = m_table->selectedRowNumbers();
    m_next = 0;
    m_seconds = 0;
    m_bytes = 0;
    m_label->setVisible(m_rows.size() > 1);
    if (m_rows.size() > 1)
        goOn();
}

void SelectionSummary::goOn()
{
    const qsizetype end = std::min(m_next + summaryPiece, m_rows.size());
    for (; m_next < end; ++m_next) {
        const KXRef<Track> track = m_model->track(m_rows[m_next]);
        m_seconds += track ? track->duration().value_or(0) : 0;
        m_bytes += track ? track->fileSize() : 0;
    }
    const bool isComplete = m_next == m_rows.size();
    show(isComplete);
    if (!isComplete)
        m_soon.start(0, [this] { goOn(); });
}

void SelectionSummary::show(bool isComplete)
{
    const QLocale locale = KXClock::locale();
    QString text = tr("%1 selected", nullptr, int(m_rows.size())).arg(locale.toString(m_rows.size()));
    text += isComplete ? u"  ·  %1  ·  %2"_s.arg(
                BrowserStyle::timeText(m_seconds), locale.formattedDataSize(m_bytes, 1, QLocale::DataSizeSIFormat))
                       : u"  ·  …"_s;
    m_label->setText(text);
}
