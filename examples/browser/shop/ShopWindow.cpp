#include "shop/ShopWindow.h"

#include <QAction>
#include <QBoxLayout>
#include <QLabel>
#include <QSplitter>
#include <QStatusBar>

#include <kestrixkit/catalogue/presets/KXFilterSetPresetCatalogueCountsProvider.h>
#include <kestrixkit/filters/KXFilterSetPresetsManager.h>
#include <kestrixkit/foundation/KXMainQueue.h>
#include <kestrixkit/theme/KXThemeStyleNames.h>
#include <kestrixkit/theme/controls/KXThemeableButton.h>
#include <kestrixkit/theme/controls/KXThemeableTextField.h>
#include <kestrixkit/theme/controls/KXThemeableView.h>
#include <kestrixkit/util/views/KXTableView.h>

#include "BrowserStyle.h"
#include "shop/ShopFacets.h"
#include "shop/ShopFilters.h"
#include "shop/ShopPreview.h"
#include "shop/ShopTableModel.h"

using namespace Qt::StringLiterals;

namespace {

constexpr double searchPause = 0.2; // seconds between keys of a quick typist

} // namespace

ShopWindow::ShopWindow(KXPersistentStoreCoordinator::Ref coordinator, const KXCatalogueServers &servers,
    std::shared_ptr<KXAudioOutput> output, QWidget *parent)
    : QMainWindow(parent)
    , m_context(KXManagedObjectContext::contextWithPersistentStoreCoordinator(std::move(coordinator)))
    , m_shop(servers)
    , m_filters(std::make_unique<ShopFilters>(m_context, m_shop.mapper))
    , m_presets(std::make_unique<KXFilterSetPresetsBarViewController>(m_context))
    , m_model(new ShopTableModel(m_shop.catalogue, this))
    , m_facets(new ShopFacets(m_shop.catalogue, *m_context))
    , m_preview(new ShopPreview(servers, std::move(output), this))
    , m_table(new KXTableView)
    , m_search(new KXThemeableTextField)
    , m_count(new QLabel)
    , m_problem(new QLabel)
    , m_again(new KXThemeableButton(tr("Try Again")))
{
    setWindowTitle(tr("Shop"));
    resize(1280, 760);
    m_queue.setMaxConcurrentOperationCount(1);
    if (const auto manager = KXFilterSetPresetsManager::sharedManager())
        manager->registerFilterSetMapper(m_shop.mapper, m_context);
    m_presets->setDelegate(this);
    m_presets->setFilterSetViewController(m_filters.get());
    m_presets->setCountsContextIdentifier(QString(Shop::contextIdentifier));
    build();
    if (const auto set = KXFilterSet::createInContext(*m_context)) {
        set->setTitle(u"shop"_s);
        m_filters->setFilterSet(set);
    }
    connect(m_filters.get(), &KXFilterSetViewController::filterSetDidChange, this,
        [this] { m_askSoon.start(0, [this] { ask(); }); });
    connect(m_search, &QLineEdit::textChanged, this, [this] { m_askSoon.start(searchPause, [this] { ask(); }); });
    connect(m_facets, &ShopFacets::picked, m_filters.get(), &ShopFilters::toggleValue);
    connect(m_facets, &ShopFacets::countCame, this, [this](const QString &count, const QString &problem) {
        m_count->setText(count.isEmpty() ? QString() : tr("%1 tracks").arg(count));
        showProblem(problem);
        if (!count.startsWith(u"≈"_s))
            Q_EMIT answered();
    });
    connect(m_model, &ShopTableModel::failed, this, &ShopWindow::showProblem);
    connect(m_model, &ShopTableModel::pageCame, this, &ShopWindow::markOwned);
    connect(m_table, &QTableView::activated, this, [this](const QModelIndex &index) { togglePreview(index.row()); });
    auto *const play = new QAction(tr("Play the Preview"), m_table);
    play->setShortcut(QKeySequence(Qt::Key_Space));
    play->setShortcutContext(Qt::WidgetShortcut);
    connect(play, &QAction::triggered, this, [this] { togglePreview(m_table->currentIndex().row()); });
    m_table->addAction(play);
    connect(m_again, &QPushButton::clicked, this, [this] {
        m_shop.counts->noteFailure({});
        ask();
    });
    ask();
}

ShopWindow::~ShopWindow()
{
    disconnect(m_filters.get(), nullptr, this, nullptr);
    m_queue.waitUntilAllOperationsAreFinished();
    if (const KXRef<KXFilterSet> set = m_filters->filterSet()) {
        m_filters->setFilterSet({});
        m_context->removeManagedObject(set);
        m_context->save();
    }
    m_presets.reset();
    m_filters.reset();
}

void ShopWindow::build()
{
    auto *const middle = new QWidget;
    auto *const rows = new QVBoxLayout(middle);
    rows->setContentsMargins(0, 0, 0, 0);
    rows->setSpacing(0);
    auto *const top = new KXThemeableView;
    top->setThemeStyleName(KXToolbarStyles);
    auto *const line = new QHBoxLayout(top);
    line->setContentsMargins(0, 0, 6, 0);
    line->addWidget(m_presets->view(), 1);
    m_search->setThemeStyleName(KXTextFieldStyles);
    m_search->setPlaceholderText(tr("Search the shop"));
    m_search->setAccessibleName(tr("Search the shop"));
    m_search->setClearButtonEnabled(true);
    m_search->setFixedWidth(240);
    line->addWidget(m_search);
    rows->addWidget(top);
    auto *const filters = new KXThemeableView;
    filters->setThemeStyleName(KXToolbarStyles);
    auto *const filterLine = new QHBoxLayout(filters);
    filterLine->setContentsMargins(4, 0, 0, 0);
    filterLine->addWidget(m_filters->view());
    rows->addWidget(filters);
    auto *const panes = new QSplitter;
    panes->addWidget(m_facets);
    panes->addWidget(m_table);
    panes->setSizes({ 240, 1040 });
    panes->setStretchFactor(1, 1);
    rows->addWidget(panes, 1);
    m_table->setModel(m_model);
    m_table->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_table->setSortingEnabled(true);
    m_table->sortByColumn(ShopTableModel::Released, Qt::DescendingOrder);
    m_table->setColumnWidth(ShopTableModel::Title, 260);
    m_table->setColumnWidth(ShopTableModel::Artist, 200);
    for (const int column : { ShopTableModel::Bpm, ShopTableModel::Key, ShopTableModel::Length, ShopTableModel::Price })
        m_table->setColumnWidth(column, 70);
    m_table->setAccessibleName(tr("Tracks of the shop"));
    setCentralWidget(middle);
    m_table->setFocus();
    for (QLabel *label : { m_count, m_problem }) {
        label->setTextFormat(Qt::PlainText);
        label->setContentsMargins(BrowserStyle::margin, 0, 0, 0);
    }
    m_problem->setForegroundRole(QPalette::PlaceholderText);
    statusBar()->setSizeGripEnabled(false);
    statusBar()->addWidget(m_count);
    statusBar()->addWidget(m_problem, 1);
    statusBar()->addPermanentWidget(m_again);
    m_again->hide();
}

QString ShopWindow::stateText() const { return m_problem->text().isEmpty() ? m_count->text() : m_problem->text(); }

KXPredicate ShopWindow::rule() const
{
    const KXPredicate filters = m_filters->remotePredicate();
    const QString term = m_search->text().trimmed();
    if (term.isEmpty())
        return filters;
    const KXPredicate found
        = KXPredicate::comparison(QString(KXCatalogueSchema::searchKeyPath), KXPredicateOperator::BeginsWord, term);
    return filters ? KXPredicate::andPredicate({ filters, found }) : found;
}

void ShopWindow::ask()
{
    m_askSoon.cancel();
    showProblem({});
    const KXPredicate asked = rule();
    m_model->setRule(asked);
    m_facets->setRule(asked);
}

void ShopWindow::showProblem(const QString &problem)
{
    m_problem->setText(problem.section(u'\n', 0, 0));
    m_problem->setToolTip(problem);
    m_again->setVisible(!problem.isEmpty());
}

void ShopWindow::togglePreview(int row)
{
    const QString reason = m_preview->toggle(m_model->previewOfRow(row));
    m_problem->setText(reason);
    m_problem->setToolTip(reason);
}

KXFilterSetPresetCountsScheduler::Provider ShopWindow::countsProviderForFilterSetPreset(
    KXFilterSetPresetsBarViewController &, const KXRef<KXFilterSetPreset> &preset)
{
    auto provider = std::make_shared<KXFilterSetPresetCatalogueCountsProvider>(
        preset, QString(Shop::contextIdentifier), m_shop.catalogue, m_shop.counts);
    provider->setFilterSetMapper(m_shop.mapper);
    return provider;
}

/// Looks for the page's titles in the library, in the background.
void ShopWindow::markOwned(int firstRow)
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
