#include "ListSummary.h"

#include <QBoxLayout>
#include <QLabel>
#include <QLocale>

#include <kestrixkit/foundation/KXClock.h>

#include "FilterStrip.h"
#include "MusicImport.h"
#include "TrackTableView.h"
#include "shop/ShopPlace.h"

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
    , m_empty(new QLabel(table->viewport()))
{
    m_empty->setAlignment(Qt::AlignCenter);
    auto *centre = new QVBoxLayout(table->viewport());
    centre->addWidget(m_empty);
    m_empty->hide();
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
    QStringList parts { tracks == 1 ? tr("1 track") : tr("%1 tracks").arg(locale.toString(tracks)) };
    if (const qsizetype skipped = qsizetype(m_import->result().skipped.size()))
        parts.append(tr("%1 skipped").arg(locale.toString(skipped)));
    m_line->setText(parts.join(u"  ·  "_s));
    showSkipped();
    m_empty->setText(m_strip->predicate()                       ? tr("No track fits this")
            : m_model->isFiltered() && !m_emptyReason.isEmpty() ? m_emptyReason
                                                                : tr("No music in the library yet"));
    m_empty->setVisible(tracks == 0 && !m_import->isRunning());
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
