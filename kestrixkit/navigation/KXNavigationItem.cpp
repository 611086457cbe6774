#include <kestrixkit/navigation/KXNavigationItem.h>

#include <kestrixkit/navigation/KXAssociation_p.h>
#include <kestrixkit/toolkit/KXViewController.h>

KXNavigationItem::KXNavigationItem(KXViewController *controller)
    : KXObject(controller)
    , m_controller(controller)
{
    connect(controller, &KXViewController::titleChanged, this, [this] {
        if (m_title.isEmpty())
            Q_EMIT titleChanged();
    });
}

KXNavigationItem *KXNavigationItem::navigationItem(KXViewController *controller)
{
    auto *item = KXAssociated<KXNavigationItem>(controller, KXNavigationItemKey);
    if (!item && controller) {
        item = new KXNavigationItem(controller);
        KXAssociate(controller, KXNavigationItemKey, item);
    }
    return item;
}

QString KXNavigationItem::title() const { return m_title.isEmpty() ? m_controller->title() : m_title; }

void KXNavigationItem::setTitle(const QString &title)
{
    if (title == m_title)
        return;
    willChangeValueForKey(u"title");
    m_title = title;
    didChangeValueForKey(u"title");
    Q_EMIT titleChanged();
}
