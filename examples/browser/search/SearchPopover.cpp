#include "search/SearchPopover.h"

#include <QKeyEvent>
#include <QLineEdit>
#include <QLocale>
#include <QTableView>

#include <kestrixkit/foundation/KXClock.h>
#include <kestrixkit/theme/KXThemeStyleNames.h>
#include <kestrixkit/theme/controls/KXThemeableTextField.h>

#include "search/LibrarySearch.h"

using namespace Qt::StringLiterals;

namespace {

constexpr qsizetype mostResults = 200; // of a group
constexpr int searchFieldWidth = 200;
constexpr QSize searchCoverSize { 64, 64 }; // pixels, for sharp screens as well

/// What tells a track, or an album, from others of its name.
QString detailOf(const KXManagedObject &object)
{
    if (const Track *track = dynamic_cast<const Track *>(&object)) {
        QStringList parts { track->artistText().value_or(QString()), track->albumText().value_or(QString()) };
        parts.removeAll(QString());
        return parts.join(u" — "_s);
    }
    if (const Album *album = dynamic_cast<const Album *>(&object))
        return album->artistText();
    return {};
}

} // namespace

LibrarySearchViewController::LibrarySearchViewController(KXSearchIndex &index, QObject *parent)
    : KXSearchViewController({}, parent)
    , m_index(index)
    , m_covers(searchCoverSize)
{
    setSearchDelay(0);
    connect(&m_index, &KXSearchIndex::didChange, this, [this] {
        if (hasAppeared() || (popoverController() && popoverController()->isShown()))
            performSearch();
    });
}

void LibrarySearchViewController::viewDidLoad()
{
    KXSearchViewController::viewDidLoad();
    // A click opens a result, as Return does, and leaves the keyboard in the field.
    if (tableView()) {
        connect(&m_covers, &KXAudioCoverCache::didRead, tableView()->viewport(), qOverload<>(&QWidget::update));
        tableView()->setFocusPolicy(Qt::NoFocus);
        connect(tableView(), &QTableView::clicked, this, [this](const QModelIndex &row) {
            if (shouldSelectRow(row.row()))
                showItem(searchField());
        });
    }
}

void LibrarySearchViewController::performSearch()
{
    if (searchTerm().trimmed().isEmpty()) {
        m_index.stop();
        take({ searchTerm(), {}, true });
        return;
    }
    if (progressIndicator())
        progressIndicator()->setVisible(!m_index.isOpen());
    m_index.search(searchTerm(), mostResults, [alive = QPointer(this)](const KXSearchResults &results) {
        if (alive)
            alive->take(results);
    });
}

void LibrarySearchViewController::take(const KXSearchResults &results)
{
    static const char *const names[] = { QT_TR_NOOP("Tracks"), QT_TR_NOOP("Artists"), QT_TR_NOOP("Albums"),
        QT_TR_NOOP("Genres"), QT_TR_NOOP("Labels"), QT_TR_NOOP("Presets"), QT_TR_NOOP("Crates") };
    if (progressIndicator())
        progressIndicator()->hide();
    const QVariant before = selectedItem();
    const auto focused = currentFocusedSearchResultsGrouping();
    const bool isSameTerm = std::exchange(m_shownTerm, results.term) == results.term;
    QList<KXSearchResultsGrouping::Ref> groupings;
    KXSearchResultsGrouping::Ref stillFocused;
    for (qsizetype i = 0; i < results.groups.size(); ++i) {
        const KXSearchResults::Group &group = results.groups[i];
        if (group.count == 0)
            continue;
        auto grouping = std::make_shared<KXSearchResultsGrouping>();
        grouping->name = u"%1  ·  %2"_s.arg(tr(names[i]), KXClock::locale().toString(group.count));
        grouping->tag = int(i);
        for (const KXManagedObjectID &id : group.first)
            grouping->items.append(QVariant::fromValue(id));
        if (isSameTerm && focused && focused->tag == grouping->tag)
            stillFocused = grouping;
        groupings.append(std::move(grouping));
    }
    setAllResults(groupings);
    setCurrentFocusedSearchResultsGrouping(stillFocused);
    if (stillFocused)
        showResultsForGrouping(stillFocused);
    else
        processResults(groupings);
    const qsizetype kept = isSameTerm ? resultsContent()->arrangedObjects().indexOf(before) : -1;
    selectRow(kept > 0 ? int(kept) : 1); // below the first group
}

KXSearchResultCell LibrarySearchViewController::resultCell(const QVariant &item) const
{
    const KXRef<KXManagedObject> object = m_index.managedObjectContext()->objectWithID(item.value<KXManagedObjectID>());
    if (!object || object->isDeleted() || object->isMissing())
        return {};
    return { LibrarySearch::titleOf(*object), detailOf(*object), coverOf(*object) };
}

QIcon LibrarySearchViewController::coverOf(const KXManagedObject &object) const
{
    const auto *track = dynamic_cast<const Track *>(&object);
    KXRef<Track> first;
    if (const auto *album = dynamic_cast<const Album *>(&object)) {
        const QList<KXRef<Track>> tracks = album->tracks();
        first = tracks.isEmpty() ? KXRef<Track>() : tracks.first();
        track = first.get();
    }
    return track ? m_covers.cover(track->location()) : QIcon();
}

KXManagedObjectID LibrarySearchViewController::confirmed() const
{
    // What was typed last may not have been searched for yet.
    return searchTerm() == m_shownTerm ? selectedItem().value<KXManagedObjectID>() : KXManagedObjectID();
}

void LibrarySearchViewController::showItem(QObject *)
{
    const KXManagedObjectID object = confirmed();
    if (object.isNull())
        return;
    const QPointer<LibrarySearchViewController> alive(this);
    if (popoverController())
        popoverController()->close();
    if (alive)
        Q_EMIT picked(object);
}

bool LibrarySearchViewController::eventFilter(QObject *object, QEvent *event)
{
    if (object == searchField() && event->type() == QEvent::KeyPress) {
        const auto *key = static_cast<QKeyEvent *>(event);
        const bool isReturn = key->key() == Qt::Key_Return || key->key() == Qt::Key_Enter;
        if (isReturn && key->modifiers() & Qt::ControlModifier) {
            if (const KXManagedObjectID found = confirmed(); !found.isNull())
                Q_EMIT playRequested(found);
            return true;
        }
    }
    return KXSearchViewController::eventFilter(object, event);
}

SearchPopover::SearchPopover(const KXManagedObjectContext::Ref &context, QObject *parent)
    : QObject(parent)
    , m_context(context)
    , m_field(new KXThemeableTextField)
{
    m_field->setThemeStyleName(KXTextFieldStyles);
    m_field->setPlaceholderText(tr("Search  (Ctrl+F)"));
    m_field->setAccessibleName(tr("Search the library"));
    m_field->setReadOnly(true); // what is typed goes into the popover's field
    m_field->setFocusPolicy(Qt::NoFocus);
    m_field->setFixedWidth(searchFieldWidth);
    m_field->installEventFilter(this);
}

SearchPopover::~SearchPopover()
{
    m_popover.reset();
    m_controller.reset();
    m_index.reset();
    delete m_field;
}

QWidget *SearchPopover::field() const { return m_field; }

void SearchPopover::make()
{
    if (m_index)
        return;
    m_index = LibrarySearch::makeIndex(m_context);
    m_controller = std::make_unique<LibrarySearchViewController>(*m_index);
    connect(m_controller.get(), &LibrarySearchViewController::picked, this, &SearchPopover::picked);
    connect(m_controller.get(), &LibrarySearchViewController::playRequested, this, &SearchPopover::playRequested);
    m_popover = std::make_unique<KXPopoverController>(m_controller.get());
    connect(m_controller.get(), &KXSearchViewController::searchTermChanged, this, [this] {
        if (m_field)
            m_field->setText(m_controller->searchTerm());
    });
}

void SearchPopover::show()
{
    make();
    m_index->openInBackground();
    if (m_field)
        m_popover->showRelativeTo(m_field, Qt::BottomEdge);
}

void SearchPopover::close()
{
    if (m_popover)
        m_popover->close();
}

bool SearchPopover::eventFilter(QObject *object, QEvent *event)
{
    if (event->type() == QEvent::MouseButtonPress && object == m_field) {
        show();
        return true;
    }
    return QObject::eventFilter(object, event);
}
