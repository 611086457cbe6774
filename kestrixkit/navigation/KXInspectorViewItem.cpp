#include <kestrixkit/navigation/KXInspectorViewItem.h>

#include <kestrixkit/navigation/KXAssociation_p.h>
#include <kestrixkit/toolkit/KXViewController.h>

KXInspectorViewItem::KXInspectorViewItem(KXViewController *controller)
    : KXObject(controller)
    , m_controller(controller)
{
    connect(controller, &KXViewController::titleChanged, this, &KXInspectorViewItem::didChange);
}

KXInspectorViewItem *KXInspectorViewItem::inspectorViewItem(KXViewController *controller)
{
    auto *item = KXAssociated<KXInspectorViewItem>(controller, KXInspectorViewItemKey);
    if (!item && controller) {
        item = new KXInspectorViewItem(controller);
        KXAssociate(controller, KXInspectorViewItemKey, item);
    }
    return item;
}

QString KXInspectorViewItem::title() const { return m_title.isEmpty() ? m_controller->title() : m_title; }

void KXInspectorViewItem::setTitle(const QString &title)
{
    if (title == m_title)
        return;
    willChangeValueForKey(u"title");
    m_title = title;
    didChangeValueForKey(u"title");
    Q_EMIT didChange();
}

void KXInspectorViewItem::setShowHeader(bool show)
{
    if (show == m_showHeader)
        return;
    willChangeValueForKey(u"showHeader");
    m_showHeader = show;
    didChangeValueForKey(u"showHeader");
    Q_EMIT didChange();
}

void KXInspectorViewItem::setTableRowView(KXThemeableTableRowView *view)
{
    m_rowView = view;
    Q_EMIT didChange();
}
