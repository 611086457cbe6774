#include <kestrixkit/navigation/KXInspectorViewController.h>

#include <QCborArray>
#include <QEvent>
#include <QVBoxLayout>

#include <kestrixkit/foundation/KXArchive.h>
#include <kestrixkit/foundation/KXStringWithFormat.h>
#include <kestrixkit/foundation/KXUserDefaults.h>
#include <kestrixkit/navigation/KXAssociation_p.h>
#include <kestrixkit/navigation/KXInspectorModel_p.h>
#include <kestrixkit/navigation/KXInspectorOutlineView.h>
#include <kestrixkit/navigation/KXInspectorRowDelegate_p.h>
#include <kestrixkit/theme/KXThemeStyleNames.h>

using namespace Qt::StringLiterals;

namespace {

constexpr QStringView inspectorPlaceFormat = u"com.kestrix.kestrixkit.inspector-place";
constexpr int inspectorPlaceFormatNumber = 1;

}

/// Around the view of a section: as high as that wants to be.
class KXInspectorViewController::Cell : public QWidget
{
public:
    Cell(const KXInspectorOutlineView *outline, std::function<void()> layoutDidChange)
        : m_outline(outline)
        , m_layoutDidChange(std::move(layoutDidChange))
    {
        (new QVBoxLayout(this))->setContentsMargins(0, 0, 0, 0);
    }
    void setContent(QWidget *content)
    {
        m_content = content;
        layout()->addWidget(content);
        content->show();
    }
    void releaseContent()
    {
        if (m_content && m_content->parentWidget() == this) {
            layout()->removeWidget(m_content);
            m_content->hide();
            m_content->setParent(nullptr);
        }
        m_content = nullptr;
    }
    [[nodiscard]] QSize sizeHint() const override
    {
        if (!m_content)
            return { 0, 0 };
        const int width = m_outline->viewport()->width();
        const int own
            = m_content->hasHeightForWidth() ? m_content->heightForWidth(width) : m_content->sizeHint().height();
        return { width,
            std::clamp(std::max(own, m_content->minimumSizeHint().height()), m_content->minimumHeight(),
                m_content->maximumHeight()) };
    }
    [[nodiscard]] QSize minimumSizeHint() const override { return { 0, 0 }; }

protected:
    bool event(QEvent *event) override
    {
        const bool handled = QWidget::event(event);
        if (event->type() == QEvent::LayoutRequest)
            m_layoutDidChange();
        return handled;
    }

private:
    const KXInspectorOutlineView *const m_outline;
    const std::function<void()> m_layoutDidChange;
    QPointer<QWidget> m_content;
};

KXInspectorViewController::KXInspectorViewController(QObject *parent)
    : KXViewController(parent)
    , m_model(new KXInspectorModel(this))
{
}

KXInspectorViewController::~KXInspectorViewController()
{
    for (KXViewController *controller : std::as_const(m_viewControllers)) {
        controller->disconnect(this);
        if (inspectorViewController(controller) == this)
            KXAssociate(controller, KXInspectorViewControllerKey, nullptr);
    }
    takeViewsOut();
}

KXInspectorViewController *KXInspectorViewController::inspectorViewController(const KXViewController *controller)
{
    return KXAssociated<KXInspectorViewController>(controller, KXInspectorViewControllerKey);
}

KXInspectorOutlineView *KXInspectorViewController::outlineView() const { return m_outline; }

void KXInspectorViewController::loadView()
{
    KXInterfaceLoader::shared().registerWidgetOnce<KXInspectorOutlineView>();
    KXViewController::loadView();
}

void KXInspectorViewController::viewDidLoad()
{
    KXViewController::viewDidLoad();
    m_outline = outlet<KXInspectorOutlineView>(u"outlineView"_s);
    m_cells.clear();
    if (!m_outline)
        return;
    m_outline->setModel(m_model);
    m_outline->setItemDelegate(new KXInspectorRowDelegate(m_model, m_outline));
    m_outline->groupRowView()->setThemeStyleName(KXSourceListGroupRowStyles);
    const auto folded = [this](const QModelIndex &header, bool expanded) {
        const KXViewController *const controller = m_model->controller(header);
        const auto *const item = KXInspectorViewItem::inspectorViewItem(m_model->controller(header));
        if (m_isReloading || !item)
            return;
        if (!item->showHeader()) { // keys of the tree's own may have folded it
            m_outline->expand(header);
            return;
        }
        expanded ? (void)m_expanded.insert(controller) : (void)m_expanded.remove(controller);
        saveExpanded();
        updateAppearance();
    };
    connect(m_outline, &QTreeView::expanded, this, [folded](const QModelIndex &header) { folded(header, true); });
    connect(m_outline, &QTreeView::collapsed, this, [folded](const QModelIndex &header) { folded(header, false); });
    connect(m_outline, &KXInspectorOutlineView::widthDidChange, this, &KXInspectorViewController::measureAll);
    readExpanded();
    reload();
}

void KXInspectorViewController::setViewControllers(const QList<KXViewController *> &given)
{
    QList<KXViewController *> controllers = given;
    controllers.removeAll(nullptr);
    if (controllers == m_viewControllers)
        return;
    const QPointer<KXInspectorViewController> alive(this);
    QList<QPointer<KXViewController>> gone;
    for (KXViewController *controller : std::as_const(m_viewControllers)) {
        controller->disconnect(this);
        KXInspectorViewItem::inspectorViewItem(controller)->disconnect(this);
        if (controllers.contains(controller))
            continue;
        m_expanded.remove(controller);
        if (inspectorViewController(controller) == this)
            KXAssociate(controller, KXInspectorViewControllerKey, nullptr);
        gone.append(controller);
    }
    m_viewControllers = controllers;
    for (KXViewController *const controller : std::as_const(controllers)) {
        KXAssociate(controller, KXInspectorViewControllerKey, this);
        connect(KXInspectorViewItem::inspectorViewItem(controller), &KXInspectorViewItem::didChange, this,
            [this, controller] { itemDidChange(m_viewControllers.indexOf(controller)); });
        connect(controller, &QObject::destroyed, this, [this, controller] {
            m_viewControllers.removeAll(controller); // of which only the address is left
            m_expanded.remove(controller);
            takeViewsOut();
            reload(); // what is remembered are places, which others have now
        });
    }
    if (m_outline)
        takeViewsOut();
    for (const QPointer<KXViewController> &controller : std::as_const(gone)) {
        if (alive && controller && controller->hasAppeared()) {
            controller->viewWillDisappear();
            controller->viewDidDisappear();
        }
    }
    if (!alive || m_viewControllers != controllers)
        return;
    readExpanded();
    reload();
}

KXViewController *KXInspectorViewController::viewControllerForItem(const KXInspectorViewItem *item) const
{
    for (KXViewController *controller : m_viewControllers) {
        if (item && KXInspectorViewItem::inspectorViewItem(controller) == item)
            return controller;
    }
    return nullptr;
}

// Rows

void KXInspectorViewController::takeViewsOut()
{
    for (const QPointer<Cell> &cell : std::exchange(m_cells, {})) {
        if (cell)
            cell->releaseContent();
    }
}

void KXInspectorViewController::reload()
{
    if (!m_outline)
        return;
    m_isReloading = true;
    m_model->setControllers(m_viewControllers);
    for (qsizetype i = 0; i < m_viewControllers.size(); ++i) {
        auto *const cell = new Cell(m_outline, [this, i] { measure(i); });
        QWidget *const content = m_viewControllers.at(i)->view();
        cell->setContent(content);
        m_cells.append(cell);
        m_outline->setIndexWidget(m_model->contentIndex(i), cell); // owns it
    }
    showExpanded();
    m_isReloading = false;
    measureAll();
    updateAppearance();
}

void KXInspectorViewController::itemDidChange(qsizetype index)
{
    if (!m_outline || index < 0)
        return;
    m_isReloading = true;
    m_outline->setExpanded(m_model->headerIndex(index), isOpen(index));
    m_isReloading = false;
    m_model->headerDidChange(index);
    measure(index);
    updateAppearance();
}

void KXInspectorViewController::measure(qsizetype index)
{
    if (!m_outline || index < 0 || index >= m_cells.size())
        return;
    m_model->contentDidChange(index);
    m_outline->scheduleDelayedItemsLayout();
}

void KXInspectorViewController::measureAll()
{
    for (qsizetype i = 0; i < m_cells.size(); ++i)
        measure(i);
}

void KXInspectorViewController::heightOfViewControllerDidChange(KXViewController *controller)
{
    measure(m_viewControllers.indexOf(controller));
}

// What is open

bool KXInspectorViewController::isOpen(qsizetype index) const
{
    KXViewController *const controller = m_viewControllers.value(index);
    const auto *const item = KXInspectorViewItem::inspectorViewItem(controller);
    return item && (!item->showHeader() || m_expanded.contains(controller));
}

bool KXInspectorViewController::isExpanded(const KXViewController *controller) const
{
    return isOpen(m_viewControllers.indexOf(controller));
}

void KXInspectorViewController::setExpanded(const KXViewController *controller, bool expanded)
{
    const qsizetype index = m_viewControllers.indexOf(controller);
    if (index < 0)
        return;
    expanded ? (void)m_expanded.insert(controller) : (void)m_expanded.remove(controller);
    if (m_outline)
        m_outline->setExpanded(m_model->headerIndex(index), isOpen(index)); // which saves
    else
        saveExpanded();
}

void KXInspectorViewController::updateAppearance()
{
    const QPointer<KXInspectorViewController> alive(this);
    const QList<QPointer<KXViewController>> all(m_viewControllers.cbegin(), m_viewControllers.cend());
    for (const QPointer<KXViewController> &controller : all) {
        if (!alive)
            return;
        const qsizetype index = m_viewControllers.indexOf(controller);
        if (index < 0)
            continue;
        const bool appears = hasAppeared() && m_outline && isOpen(index);
        if (appears == controller->hasAppeared())
            continue;
        appears ? controller->viewWillAppear() : controller->viewWillDisappear();
        if (controller)
            appears ? controller->viewDidAppear() : controller->viewDidDisappear();
    }
}

void KXInspectorViewController::viewDidAppear()
{
    KXViewController::viewDidAppear();
    updateAppearance();
}

void KXInspectorViewController::viewWillDisappear()
{
    for (const QPointer<KXViewController> &controller :
        QList<QPointer<KXViewController>>(m_viewControllers.cbegin(), m_viewControllers.cend())) {
        if (controller && controller->hasAppeared())
            controller->viewWillDisappear();
        if (controller && controller->hasAppeared())
            controller->viewDidDisappear();
    }
    KXViewController::viewWillDisappear();
}

void KXInspectorViewController::setAutosaveName(const QString &name)
{
    m_autosaveName = name;
    readExpanded();
    m_isReloading = true;
    showExpanded();
    m_isReloading = false;
    updateAppearance();
}

QByteArray KXInspectorViewController::persistentObjectForItem(const KXInspectorViewItem *item) const
{
    const qsizetype index = m_viewControllers.indexOf(viewControllerForItem(item));
    if (index < 0)
        return {};
    return KXArchive::archive(inspectorPlaceFormat, inspectorPlaceFormatNumber, QCborArray { qint64(index) });
}

KXInspectorViewItem *KXInspectorViewController::itemForPersistentObject(const QByteArray &object) const
{
    const auto values = KXArchive::unarchive(object, inspectorPlaceFormat, inspectorPlaceFormatNumber);
    const qint64 index = values ? values->toArray().first().toInteger(-1) : -1;
    return index >= 0 && index < m_viewControllers.size()
        ? KXInspectorViewItem::inspectorViewItem(m_viewControllers.at(index))
        : nullptr;
}

void KXInspectorViewController::saveExpanded()
{
    if (m_autosaveName.isEmpty())
        return;
    QVariantList open;
    for (KXViewController *controller : std::as_const(m_viewControllers)) {
        if (m_expanded.contains(controller))
            open.append(persistentObjectForItem(KXInspectorViewItem::inspectorViewItem(controller)));
    }
    KXUserDefaults::standard().setValue(KXStringWithFormat("%@ Expanded Items", m_autosaveName), open);
}

/// What is remembered, where there is something.
void KXInspectorViewController::readExpanded()
{
    const auto open = m_autosaveName.isEmpty()
        ? std::nullopt
        : KXUserDefaults::standard().arrayForKey(KXStringWithFormat("%@ Expanded Items", m_autosaveName));
    if (!open)
        return;
    m_expanded.clear();
    for (const QVariant &place : *open) {
        if (const KXViewController *controller = viewControllerForItem(itemForPersistentObject(place.toByteArray())))
            m_expanded.insert(controller);
    }
}

void KXInspectorViewController::showExpanded()
{
    for (qsizetype i = 0; m_outline && i < m_viewControllers.size(); ++i)
        m_outline->setExpanded(m_model->headerIndex(i), isOpen(i));
}
