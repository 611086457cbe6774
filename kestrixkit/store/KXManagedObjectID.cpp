#include <kestrixkit/store/KXManagedObjectID.h>

using namespace Qt::StringLiterals;

QUrl KXManagedObjectID::URIRepresentation() const
{
    if (isNull())
        return {};
    QUrl url;
    url.setScheme(u"x-kestrix-store"_s);
    url.setHost(m_store->uuid);
    url.setPath(u'/' + m_entity->name() + "/p"_L1 + QString::number(m_key));
    return url;
}
