#include <kestrixkit/navigation/KXLayeredNavigationItem.h>

#include <kestrixkit/navigation/KXAssociation_p.h>
#include <kestrixkit/toolkit/KXViewController.h>

KXLayeredNavigationItem::KXLayeredNavigationItem(KXViewController *controller)
    : KXObject(controller)
    , m_controller(controller)
{
    connect(controller, &KXViewController::titleChanged, this, &KXLayeredNavigationItem::didChange);
}

KXLayeredNavigationItem *KXLayeredNavigationItem::layeredNavigationItem(KXViewController *controller)
{
    auto *item = KXAssociated<KXLayeredNavigationItem>(controller, KXLayeredNavigationItemKey);
    if (!item && controller) {
        item = new KXLayeredNavigationItem(controller);
        KXAssociate(controller, KXLayeredNavigationItemKey, item);
    }
    return item;
}

QString KXLayeredNavigationItem::title() const { return m_title.isEmpty() ? m_controller->title() : m_title; }

void KXLayeredNavigationItem::setImage(const QIcon &image)
{
    willChangeValueForKey(u"image");
    m_image = image;
    didChangeValueForKey(u"image");
    Q_EMIT didChange();
}
