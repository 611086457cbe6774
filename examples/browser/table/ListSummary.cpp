#include "table/ListSummary.h"

#include <QLabel>
#include <QLocale>

#include <kestrixkit/foundation/KXClock.h>

#include "demo/DemoHint.h"
#include "filters/FilterStrip.h"
#include "import/MusicImport.h"
#include "shop/ShopPlace.h"
#include "table/TrackTableModel.h"
#include "table/TrackTableView.h"
#include "window/Welcome.h"

using namespace Qt::StringLiterals;

namespace {

constexpr int shownReasons = 20; // in the tool tip

} // namespace

ListSummary::ListSummary(TrackTableView *table, TrackTableModel *model, const FilterStrip *strip,
    const MusicImport *import, QLabel *line, QObject *parent)
    : QObject(parent)
    , m_model(model)
    , m_strip(strip)
    , m_import(import)
    , m_line(line)
    , m_empty(new Welcome(table->viewport()))
{
    for (const auto signal : { &QAbstractItemModel::rowsInserted, &QAbstractItemModel::rowsRemoved })
        connect(m_model, signal, this, &ListSummary::update);
    connect(m_import, &MusicImport::began, this, &ListSummary::update);
}

void ListSummary::setShop(const ShopPlace *shop)
{
    m_shop = shop;
    connect(shop, &ShopPlace::countDidChange, this, &ListSummary::update);
}

void ListSummary::update()
{
    if (m_shop && m_shop->isShown()) {
        m_line->setText(m_shop->countText());
        m_line->setToolTip({});
        return;
    }
    const QLocale locale = KXClock::locale();
    const int tracks = m_model->rowCount();
    QStringList parts { tracks == 1 ? tr("1 track") : tr("%1 tracks", nullptr, tracks).arg(locale.toString(tracks)) };
    if (const qsizetype skipped = qsizetype(m_import->result().skipped.size()))
        parts.append(tr("%1 skipped", nullptr, int(skipped)).arg(locale.toString(skipped)));
    m_line->setText(parts.join(u"  ·  "_s));
    showSkipped();
    if (m_demoHint)
        m_demoHint->follow(m_model->index(0, 0).data(TrackTableModel::LocationRole).toUrl());
    if (tracks > 0 || m_import->isRunning())
        m_empty->hide();
    else if (m_strip->predicate())
        m_empty->showReason(tr("No track fits this"));
    else if (m_model->isFiltered() && !m_emptyReason.isEmpty())
        m_empty->showReason(m_emptyReason);
    else
        m_empty->showGreeting();
}

void ListSummary::showSkipped()
{
    QStringList reasons;
    for (const SkippedFile &file : m_import->result().skipped) {
        if (reasons.size() == shownReasons) {
            reasons.append(u"…"_s);
            break;
        }
        reasons.append(u"%1: %2"_s.arg(file.file, file.reason));
    }
    m_line->setToolTip(reasons.join(u'\n'));
}
