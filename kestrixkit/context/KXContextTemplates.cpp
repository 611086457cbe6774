// Fetches and counts by the templates of a model.

#include <kestrixkit/context/KXManagedObjectContext.h>

#include <algorithm>

#include <kestrixkit/context/KXContextFetch_p.h>
#include <kestrixkit/context/KXManagedObjectContext_p.h>
#include <kestrixkit/foundation/KXException.h>
#include <kestrixkit/foundation/KXStringWithFormat.h>
#include <kestrixkit/foundation/KXUserDefaults.h>

using namespace Qt::StringLiterals;

namespace {

KXFetchRequest requestFromTemplate(
    const KXManagedObjectContextPrivate &context, const QString &name, const QVariantMap &variables)
{
    const auto model = context.coordinator->model();
    if (!model)
        throw KXException(
            QString(KXInvalidArgumentException), KXStringWithFormat("There is no model for the template \"%@\"", name));
    const KXFetchTemplate &fetch = model->fetchTemplate(name);
    return KXFetchRequest(fetch.entityName, fetch.predicate.predicateWithSubstitutionVariables(variables));
}

KXRef<KXManagedObject> firstOrLog(const KXFetchedList &list, const QString &templateName, const KXError &error)
{
    if (list.isNull())
        KXContextFetcher::reportOf(templateName, error);
    return list.first();
}

}

qint64 KXManagedObjectContext::countFor(const QVariant &identifier, const QString &usingTemplate)
{
    const QString user = KXUserDefaults::standard().stringForKey(u"kestrixUsername"_s).value_or(u"*"_s);
    KXError error;
    const qint64 number = count(
        requestFromTemplate(*m_p, usingTemplate, { { u"IDENTIFIER"_s, identifier }, { u"USER"_s, user } }), &error);
    if (number < 0)
        KXContextFetcher::reportOf(usingTemplate, error);
    return number;
}

qint64 KXManagedObjectContext::countUsingTemplate(const QString &templateName)
{
    KXError error;
    const qint64 number = count(requestFromTemplate(*m_p, templateName, {}), &error);
    if (number < 0)
        KXContextFetcher::reportOf(templateName, error);
    return std::max<qint64>(0, number);
}

KXRef<KXManagedObject> KXManagedObjectContext::fetchFirstUsingTemplate(const QString &templateName)
{
    KXError error;
    const KXFetchedList list = fetch(requestFromTemplate(*m_p, templateName, {}).setFetchLimit(1), &error);
    return firstOrLog(list, templateName, error);
}

KXRef<KXManagedObject> KXManagedObjectContext::fetchFirstFor(const QVariant &identifier, const QString &usingTemplate)
{
    KXError error;
    const KXFetchedList list
        = fetch(requestFromTemplate(*m_p, usingTemplate, { { u"IDENTIFIER"_s, identifier } }).setFetchLimit(1), &error);
    return firstOrLog(list, usingTemplate, error);
}

KXFetchedList KXManagedObjectContext::fetchUsingTemplate(
    const QString &templateName, const QVariantMap &variables, KXError *error)
{
    return fetch(requestFromTemplate(*m_p, templateName, variables), error);
}

KXFetchedList KXManagedObjectContext::fetchUsingTemplate(
    const QString &templateName, const QVariantMap &variables, const QString &sortBy, bool ascending, KXError *error)
{
    KXFetchRequest request = requestFromTemplate(*m_p, templateName, variables);
    if (!sortBy.isEmpty())
        request.setSortDescriptors({ { sortBy, ascending } });
    return fetch(request, error);
}

KXRef<KXManagedObject> KXManagedObjectContext::fetchFirstUsingTemplate(
    const QString &templateName, const QVariantMap &variables, KXError *error)
{
    return fetch(requestFromTemplate(*m_p, templateName, variables).setFetchLimit(1), error).first();
}
