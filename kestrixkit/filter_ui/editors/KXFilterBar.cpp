#include <kestrixkit/filter_ui/editors/KXFilterBar.h>

#include <QApplication>
#include <QKeyEvent>
#include <QLabel>
#include <QSignalBlocker>
#include <QStyle>

#include <kestrixkit/filter_ui/editors/KXFilterBarFilterView.h>
#include <kestrixkit/filter_ui/editors/KXFilterButton.h>
#include <kestrixkit/filters/KXFacetFilterValue.h>
#include <kestrixkit/foundation/KXObserver.h>
#include <kestrixkit/foundation/KXStringWithFormat.h>
#include <kestrixkit/source_list/KXSourceListView.h>
#include <kestrixkit/toolkit/KXMenu.h>

using namespace Qt::StringLiterals;

KXFilterBarDelegate::~KXFilterBarDelegate() = default;
void KXFilterBarDelegate::deleteFilter(KXFilterBar &, const KXRef<KXFilter> &) { }

KXFilterBar::KXFilterBar(QWidget *parent)
    : KXThemeableView(parent)
    , m_indicator(new QWidget(this))
    , m_placeholder(new QLabel(this))
{
    setAcceptDrops(true);
    QSizePolicy policy(QSizePolicy::Expanding, QSizePolicy::Minimum);
    policy.setHeightForWidth(true);
    setSizePolicy(policy);
    setAccessibleName(KXLocalizedString("Filters"));
    m_indicator->setAutoFillBackground(true);
    m_indicator->setBackgroundRole(QPalette::Highlight);
    m_indicator->setAttribute(Qt::WA_TransparentForMouseEvents);
    m_indicator->hide();
    m_placeholder->setTextFormat(Qt::PlainText);
    m_placeholder->setForegroundRole(QPalette::PlaceholderText);
    m_placeholder->setContentsMargins(8, 0, 8, 0);
    arrange();
}

KXFilterBar::~KXFilterBar()
{
    const QSignalBlocker blocker(this); // whoever has put it there may be half gone
    for (KXFilterBarFilterView *const view : std::as_const(m_views))
        view->button()->removeEventFilter(this);
    setFilterSet({});
}

// The set and its views

void KXFilterBar::setFilterSet(const KXRef<KXFilterSet> &set)
{
    m_filtersObserver.reset();
    m_changes = {};
    const bool isOther = set != m_set;
    m_set = set;
    const KXManagedObjectContext *const context = m_set ? m_set->managedObjectContext() : nullptr;
    m_filtersObserver = KXObserver::observerFor(m_set.get(), u"filters"_s, {}, [this](const KXKeyValueChange &change) {
        if (change.kind == KXChangeKind::Insertion || change.kind == KXChangeKind::Removal)
            setupFilterViews();
    });
    // What is merged and undone comes whole by this.
    m_changes = KXManagedObjectContext::onChange(context, [this](const KXObjectsDidChange &did) { follow(did); });
    const QPointer<KXFilterBar> alive(this);
    setupFilterViews();
    if (alive && isOther)
        Q_EMIT filterSetChanged();
}

void KXFilterBar::follow(const KXObjectsDidChange &did)
{
    if (did.deleted.contains(KXRef<KXManagedObject>(m_set))) {
        setFilterSet({});
        return;
    }
    for (const auto *list : { &did.inserted, &did.updated, &did.refreshed }) {
        for (const KXRef<KXManagedObject> &object : *list) {
            // A value's name and operator are part of its filter's label.
            const auto value = KXFacetFilterValue::cast(object);
            const auto filter = value ? KXRef<KXManagedObject>(value->filter<KXFilter>()) : object;
            if (KXFilterBarFilterView *const view = viewOfFilter(KXFilter::cast(filter).get()))
                view->refresh();
        }
    }
    setupFilterViews();
}

QList<KXRef<KXFilter>> KXFilterBar::filters() const
{
    QList<KXRef<KXFilter>> filters;
    for (const KXFilterBarFilterView *view : m_views)
        filters.append(view->filter());
    return filters;
}

KXFilterBarFilterView *KXFilterBar::viewOfFilter(const KXFilter *filter) const
{
    for (KXFilterBarFilterView *const view : m_views) {
        if (view->filter().get() == filter)
            return view;
    }
    return nullptr;
}

void KXFilterBar::setPlaceholderText(const QString &text)
{
    m_placeholder->setText(text);
    arrange();
}

void KXFilterBar::setupFilterViews()
{
    QList<KXRef<KXFilter>> wanted;
    if (m_set && !m_set->isDeleted() && m_set->managedObjectContext()) {
        for (const KXRef<KXFilter> &filter : m_set->sortedFilters()) {
            if (!filter->isDeleted() && filter->managedObjectContext())
                wanted.append(filter);
        }
    }
    if (wanted == filters())
        return;
    const QWidget *const focus = QApplication::focusWidget();
    const KXFilterBarFilterView *const focused = viewAround(focus);
    const qsizetype focusedIndex = focused ? m_views.indexOf(focused) : -1;
    QHash<const KXFilter *, KXFilterBarFilterView *> shown;
    for (KXFilterBarFilterView *const view : std::as_const(m_views))
        shown.insert(view->filter().get(), view);
    QList<KXFilterBarFilterView *> views;
    for (const KXRef<KXFilter> &filter : std::as_const(wanted)) {
        KXFilterBarFilterView *view = shown.take(filter.get());
        views.append(view ? view : makeView(filter));
    }
    m_views = views;
    for (KXFilterBarFilterView *const view : std::as_const(shown))
        removeView(view);
    restoreTabOrder();
    arrange();
    if (focusedIndex >= 0 && !m_views.contains(focused) && !m_views.isEmpty())
        m_views[qMin(focusedIndex, m_views.size() - 1)]->button()->setFocus(Qt::OtherFocusReason);
    Q_EMIT filtersChanged();
}

KXFilterBarFilterView *KXFilterBar::makeView(const KXRef<KXFilter> &filter)
{
    auto *const view = new KXFilterBarFilterView(filter, this);
    KXFilterButton *const button = view->button();
    connect(button, &QPushButton::clicked, this, [this, button] { edit(button); });
    connect(button, &KXFilterButton::enabledSwitchClicked, this, [this, button] { toggleFilterEnabledState(button); });
    if (m_delegate)
        button->setFilterMenu(m_delegate->contextMenuForFilter(*this, filter));
    view->installEventFilter(this);
    button->installEventFilter(this);
    button->enabledSwitch()->installEventFilter(this);
    view->show();
    return view;
}

void KXFilterBar::removeView(KXFilterBarFilterView *view)
{
    view->removeEventFilter(this);
    view->button()->removeEventFilter(this);
    view->button()->enabledSwitch()->removeEventFilter(this);
    view->button()->disconnect(this);
    view->hide();
    view->deleteLater(); // its menu or its button may be what has led here
}

KXFilterBarFilterView *KXFilterBar::viewAround(const QWidget *widget) const
{
    for (; widget && widget != this; widget = widget->parentWidget()) {
        for (KXFilterBarFilterView *const view : m_views) {
            if (view == widget)
                return view;
        }
    }
    return nullptr;
}

void KXFilterBar::edit(const QWidget *sender)
{
    const KXFilterBarFilterView *const view = viewAround(sender);
    const KXRef<KXFilter> filter = view ? view->filter() : KXRef<KXFilter>();
    if (filter && m_delegate)
        m_delegate->showFilter(*this, filter);
}

void KXFilterBar::toggleFilterEnabledState(const QWidget *sender)
{
    const KXFilterBarFilterView *const view = viewAround(sender);
    const KXRef<KXFilter> filter = view ? view->filter() : KXRef<KXFilter>();
    if (filter && m_delegate)
        m_delegate->toggleEnabledStateForFilter(*this, filter);
}

// Layout

QList<int> KXFilterBar::widths() const
{
    QList<int> widths;
    for (const KXFilterBarFilterView *view : m_views)
        widths.append(view->sizeHint().width());
    return widths;
}

int KXFilterBar::heightForWidth(int width) const
{
    return KXFilterBarLayout::rows(widths(), width) * KXFilterBarFilterViewHeight;
}

QSize KXFilterBar::sizeHint() const
{
    int width = 0;
    for (const int one : widths())
        width += one;
    return { qMax(width, 120), KXFilterBarFilterViewHeight };
}

QSize KXFilterBar::minimumSizeHint() const { return { 60, KXFilterBarFilterViewHeight }; }

void KXFilterBar::arrange()
{
    const QList<int> widths = this->widths();
    const QList<QPoint> places = KXFilterBarLayout::places(widths, width(), KXFilterBarFilterViewHeight);
    for (qsizetype i = 0; i < m_views.size(); ++i)
        m_views[i]->setGeometry(QStyle::visualRect(
            layoutDirection(), rect(), QRect(places[i], QSize(widths[i], KXFilterBarFilterViewHeight))));
    m_placeholder->setVisible(m_views.isEmpty() && !m_placeholder->text().isEmpty());
    m_placeholder->setGeometry(0, 0, width(), KXFilterBarFilterViewHeight);
    showIndicator();
    const int rows = KXFilterBarLayout::rows(widths, width());
    if (std::exchange(m_rows, rows) != rows)
        updateGeometry();
}

/// From filter to filter, each with its switch, whatever the order in which they came.
void KXFilterBar::restoreTabOrder()
{
    QWidget *last = nullptr;
    for (const KXFilterBarFilterView *view : std::as_const(m_views)) {
        if (last)
            setTabOrder(last, view->button());
        setTabOrder(view->button(), view->button()->enabledSwitch());
        last = view->button()->enabledSwitch();
    }
}

void KXFilterBar::resizeEvent(QResizeEvent *event)
{
    KXThemeableView::resizeEvent(event);
    arrange();
}

bool KXFilterBar::event(QEvent *event)
{
    const bool handled = KXThemeableView::event(event);
    // Nobody asks for a layout while the bar is hidden.
    if (event->type() == QEvent::LayoutRequest || event->type() == QEvent::LayoutDirectionChange
        || event->type() == QEvent::Show)
        arrange();
    return handled;
}

// Keys

bool KXFilterBar::keyPressed(KXFilterBarFilterView *view, const QKeyEvent &event)
{
    const int key = event.key();
    const qsizetype index = m_views.indexOf(view);
    if (index < 0)
        return false;
    if (key == Qt::Key_Left || key == Qt::Key_Right) {
        const bool isForward = (key == Qt::Key_Right) != (layoutDirection() == Qt::RightToLeft);
        const qsizetype to = index + (isForward ? 1 : -1);
        if (to < 0 || to >= m_views.size())
            return true;
        if (!(event.modifiers() & Qt::AltModifier)) {
            m_views[to]->button()->setFocus(Qt::TabFocusReason);
        } else if (!isForward) {
            moveFilterView(index, KXFilterBarDropPosition::before(to));
        } else {
            moveFilterView(index,
                to + 1 < m_views.size() ? KXFilterBarDropPosition::before(to + 1) : KXFilterBarDropPosition::end());
        }
        return true;
    }
    if (KXSourceListView::isDeleteKey(event) && m_delegate) {
        m_delegate->deleteFilter(*this, KXRef<KXFilter>(view->filter()));
        return true;
    }
    return false;
}

bool KXFilterBar::eventFilter(QObject *object, QEvent *event)
{
    KXFilterBarFilterView *const view = object->isWidgetType() ? viewAround(static_cast<QWidget *>(object)) : nullptr;
    if (!view)
        return KXThemeableView::eventFilter(object, event);
    if (event->type() == QEvent::KeyPress)
        return keyPressed(view, *static_cast<QKeyEvent *>(event));
    if (event->type() == QEvent::MouseButtonPress) {
        m_pressPlace = static_cast<QMouseEvent *>(event)->globalPosition().toPoint();
    } else if (event->type() == QEvent::MouseMove) {
        const auto *const move = static_cast<QMouseEvent *>(event);
        const QPoint now = move->globalPosition().toPoint();
        if (move->buttons() & Qt::LeftButton
            && (now - m_pressPlace).manhattanLength() >= QApplication::startDragDistance()) {
            view->button()->setDown(false);
            startDrag(view, view->mapFromGlobal(m_pressPlace));
            return true;
        }
    }
    return KXThemeableView::eventFilter(object, event);
}
