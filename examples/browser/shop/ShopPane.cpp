#include "shop/ShopPane.h"

#include <QBoxLayout>
#include <QLabel>

#include <kestrixkit/catalogue/presets/KXFilterSetPresetCatalogueCountsProvider.h>
#include <kestrixkit/filters/KXFilterSetPresetsManager.h>
#include <kestrixkit/foundation/KXMainQueue.h>
#include <kestrixkit/foundation/KXUndoManager.h>
#include <kestrixkit/theme/KXThemeStyleNames.h>
#include <kestrixkit/theme/controls/KXThemeableButton.h>
#include <kestrixkit/theme/controls/KXThemeableSplitView.h>
#include <kestrixkit/theme/controls/KXThemeableView.h>
#include <kestrixkit/util/views/KXTableView.h>

#include "filters/FilterBars.h"
#include "shop/ShopFacets.h"
#include "shop/ShopFilters.h"
#include "shop/ShopHosts.h"
#include "shop/ShopTableModel.h"
#include "window/BrowserStyle.h"

using namespace Qt::StringLiterals;

namespace {

constexpr double savePause = 0.5; // seconds after the last change

}

ShopPane::ShopPane(KXPersistentStoreCoordinator::Ref coordinator, const KXCatalogueServers &servers, const QUrl &place,
    Preview *preview)
    : m_context(KXManagedObjectContext::contextWithPersistentStoreCoordinator(std::move(coordinator)))
    , m_place(place)
    , m_preview(preview)
    , m_shop(servers)
    , m_kept(m_context)
    , m_filters(std::make_unique<ShopFilters>(m_context, m_shop.mapper))
    , m_presets(std::make_unique<KXFilterSetPresetsBarViewController>(m_context))
    , m_model(new ShopTableModel(m_shop.catalogue, this))
    , m_facets(new ShopFacets(m_shop.catalogue, *m_context))
    , m_hosts(new ShopHosts(servers, this))
    , m_table(new KXTableView)
    , m_problemLine(new KXThemeableView)
    , m_problem(new QLabel)
{
    m_queue.setMaxConcurrentOperationCount(1);
    if (const auto manager = KXFilterSetPresetsManager::sharedManager())
        manager->registerFilterSetMapper(m_shop.mapper, m_context);
    m_presets->setDelegate(this);
    m_presets->setFilterSetViewController(m_filters.get());
    m_presets->setCountsContextIdentifier(QString(Shop::contextIdentifier));
    build();
    m_filters->setFilterSet(m_kept.setOfPlace(m_place));
    follow();
    ask();
}

ShopPane::~ShopPane()
{
    m_preview->disconnect(this);
    m_filters->disconnect(this);
    m_queue.waitUntilAllOperationsAreFinished();
    save();
    m_presets.reset();
    m_filters.reset();
}

void ShopPane::build()
{
    m_bars = new FilterBars(m_presets.get(), m_filters.get(),
        { .command = tr("&Search the Shop"),
            .placeholder = tr("Search the shop  (/)"),
            .name = tr("Search the shop"),
            .width = 240,
            .pause = 0.2 });
    auto *const rows = new QVBoxLayout(this);
    rows->setContentsMargins(0, 0, 0, 0);
    rows->setSpacing(0);
    rows->addWidget(m_bars);
    auto *const line = new QHBoxLayout(m_problemLine);
    line->setContentsMargins(BrowserStyle::margin, 4, 6, 4);
    m_problem->setTextFormat(Qt::PlainText);
    m_problem->setWordWrap(true);
    m_problem->setAccessibleDescription(tr("What the shop says"));
    line->addWidget(m_problem, 1);
    auto *const again = new KXThemeableButton(tr("Try Again"));
    again->setThemeStyleName(KXButtonStyles);
    connect(again, &QPushButton::clicked, this, &ShopPane::lookAgain);
    line->addWidget(again);
    m_again = again;
    m_problemLine->hide();
    rows->addWidget(m_problemLine);
    auto *const panes = new KXThemeableSplitView(Qt::Horizontal);
    panes->setThemeStyleName(KXSplitViewStyles);
    panes->addWidget(m_facets);
    panes->addWidget(m_table);
    panes->setChildrenCollapsible(false);
    panes->setSizes({ 200, 960 });
    panes->setStretchFactor(1, 1);
    rows->addWidget(panes, 1);
    m_table->setModel(m_model);
    m_table->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_table->setSortingEnabled(true);
    m_table->sortByColumn(ShopTableModel::Released, Qt::DescendingOrder);
    constexpr int widths[ShopTableModel::ColumnCount] = { 178, 146, 100, 62, 54, 72, 104, 98, 58, 112 };
    for (int column = 0; column < ShopTableModel::ColumnCount; ++column)
        m_table->setColumnWidth(column, widths[column]);
    m_table->setAccessibleName(tr("Tracks of the shop"));
    setFocusProxy(m_table);
}

/// Filters are kept as they are left.
void ShopPane::save()
{
    m_saveSoon.cancel();
    if (m_context->hasChanges())
        m_context->save();
}

void ShopPane::follow()
{
    connect(m_filters.get(), &KXFilterSetViewController::filterSetDidChange, this,
        [this] { m_askSoon.start(0, [this] { ask(); }); });
    connect(undoManager(), &KXUndoManager::changed, this,
        [this] { m_saveSoon.start(savePause, [this] { save(); }); }); // what was undone, too
    connect(m_filters.get(), &KXFilterSetViewController::didSavePreset, this,
        [this](const KXRef<KXFilterSetPreset> &preset) { m_kept.setPresetOfSet(m_filters->filterSet(), preset); });
    connect(m_bars, &FilterBars::wordsDidChange, this, &ShopPane::ask);
    connect(m_bars, &FilterBars::wordsDidEnd, m_table, [this] { m_table->setFocus(); });
    connect(m_facets, &ShopFacets::picked, m_filters.get(), &ShopFilters::toggleValue);
    connect(m_facets, &ShopFacets::countCame, this, [this](const QString &count, const QString &problem) {
        m_count = count;
        if (!problem.isEmpty())
            showProblem(problem, true);
        Q_EMIT countDidChange();
        if (!count.startsWith(u"≈"_s))
            Q_EMIT answered();
    });
    connect(m_model, &ShopTableModel::failed, this, [this](const QString &reason) { showProblem(reason, true); });
    connect(m_model, &ShopTableModel::pageCame, this, &ShopPane::markOwned);
    connect(m_table, &QTableView::activated, this, [this] {
        if (const auto sound = selectedSound())
            m_preview->playSound(*sound);
    });
    connect(m_preview, &Preview::changed, this, &ShopPane::followPreview);
}

// What is asked

QString ShopPane::problem() const { return m_problem->toolTip(); }

KXPredicate ShopPane::rule() const
{
    const KXPredicate filters = m_filters->remotePredicate();
    const QString term = m_bars->words().trimmed();
    if (term.isEmpty())
        return filters;
    const KXPredicate found
        = KXPredicate::comparison(QString(KXCatalogueSchema::searchKeyPath), KXPredicateOperator::BeginsWord, term);
    return filters ? KXPredicate::andPredicate({ filters, found }) : found;
}

void ShopPane::ask()
{
    m_askSoon.cancel();
    showProblem({}, false);
    const KXPredicate asked = rule();
    m_model->setRule(asked);
    m_facets->setRule(asked);
}

void ShopPane::lookAgain()
{
    m_hosts->tryAgain();
    if (problem().isEmpty())
        return;
    m_shop.counts->noteFailure({});
    ask();
}

void ShopPane::showProblem(const QString &problem, bool canBeAskedAgain)
{
    m_problem->setText(problem.section(u'\n', 0, 0));
    m_problem->setToolTip(problem);
    m_again->setVisible(canBeAskedAgain);
    m_problemLine->setVisible(!problem.isEmpty());
}

// Presets

KXFilterSetPresetCountsScheduler::Provider ShopPane::countsProviderForFilterSetPreset(
    KXFilterSetPresetsBarViewController &, const KXRef<KXFilterSetPreset> &preset)
{
    auto provider = std::make_shared<KXFilterSetPresetCatalogueCountsProvider>(
        preset, QString(Shop::contextIdentifier), m_shop.catalogue, m_shop.counts);
    provider->setFilterSetMapper(m_shop.mapper);
    return provider;
}

void ShopPane::didLoadFilterSet(KXFilterSetPresetsBarViewController &, const KXRef<KXFilterSetPreset> &preset)
{
    m_kept.adopt(m_place, m_filters->filterSet(), preset);
}

// Previews

std::optional<Preview::Sound> ShopPane::selectedSound()
{
    const int row = m_table->currentIndex().row();
    if (row < 0)
        return std::nullopt;
    const std::optional<Preview::Sound> sound = soundOfRow(row);
    showProblem(sound ? QString() : m_hosts->refusal(m_model->previewOfRow(row)), false);
    return sound;
}

std::optional<Preview::Sound> ShopPane::soundOfRow(int row) const
{
    const QUrl address = m_model->previewOfRow(row);
    if (!m_hosts->refusal(address).isEmpty())
        return std::nullopt;
    const ShopTableModel::Name name = m_model->nameOfRow(row);
    // Those beside it that can be played, as the table is then.
    const auto beside = [pane = QPointer(this), address](int step) -> std::optional<Preview::Sound> {
        const int from = pane ? pane->m_model->rowOfPreview(address) : -1;
        for (int at = from + step; from >= 0 && at >= 0 && at < pane->m_model->rowCount(); at += step) {
            if (auto sound = pane->soundOfRow(at))
                return sound;
        }
        return std::nullopt;
    };
    return Preview::Sound { address, name.artists.isEmpty() ? name.title : u"%1 – %2"_s.arg(name.artists, name.title),
        m_hosts->redirectRule(), beside };
}

/// Where the player goes on by itself the selection goes along, unless the user has left the track.
void ShopPane::followPreview()
{
    const QUrl before = std::exchange(m_playing, m_preview->playingAddress());
    if (before == m_playing)
        return;
    const int row = m_model->rowOfPreview(m_playing);
    if (row >= 0 && m_table->currentIndex().isValid() && m_table->currentIndex().row() == m_model->rowOfPreview(before))
        m_table->setCurrentIndex(m_model->index(row, m_table->currentIndex().column()));
}

/// Looks for the page's titles in the library, in the background.
void ShopPane::markOwned(int firstRow)
{
    QVariantList titles;
    QSet<ShopTableModel::Name> names;
    for (int row = firstRow; row < m_model->rowCount(); ++row) {
        const ShopTableModel::Name name = m_model->nameOfRow(row);
        titles.append(name.title);
        names.insert(name);
    }
    if (titles.isEmpty())
        return;
    m_queue.addBlock([this, titles, names, coordinator = m_context->persistentStoreCoordinator()] {
        const auto context = KXManagedObjectContext::contextWithPersistentStoreCoordinator(coordinator);
        QSet<ShopTableModel::Name> owned;
        for (const KXRef<KXManagedObject> &object : context->fetchForEntity(
                 QString(Track::entityName), KXPredicate::comparison(u"title"_s, KXPredicateOperator::In, titles))) {
            const auto track = Track::cast(object);
            const ShopTableModel::Name name { track->title(), track->artistText().value_or(QString()) };
            if (names.contains(name))
                owned.insert(name);
        }
        if (!owned.isEmpty())
            KXMainQueue::async(m_model, [this, owned] { m_model->markOwned(owned); });
    });
}
