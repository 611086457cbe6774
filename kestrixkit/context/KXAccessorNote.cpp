#include <kestrixkit/context/KXAccessorNote.h>

#include <mutex>

#include <kestrixkit/entity/KXPropertyDescription.h>

using namespace Qt::StringLiterals;

namespace {

// Made before anything that is made before main(), and never ended: notes come and go with the libraries they are in.
constinit std::mutex accessorMutex;
constinit KXAccessorNote *firstAccessor = nullptr;

}

KXAccessorNote::KXAccessorNote(const std::type_info &owner, KXKey key, KXAccessorKind kind, const char *type)
    : m_owner(owner)
    , m_key(key)
    , m_type(type)
    , m_kind(kind)
{
    const std::lock_guard lock(accessorMutex);
    m_next = std::exchange(firstAccessor, this);
}

KXAccessorNote::~KXAccessorNote()
{
    const std::lock_guard lock(accessorMutex);
    KXAccessorNote **link = &firstAccessor;
    while (*link && *link != this)
        link = &(*link)->m_next;
    if (*link)
        *link = m_next;
}

QList<const KXAccessorNote *> KXAccessorNote::ofClasses(const QList<const std::type_info *> &classes)
{
    QList<const KXAccessorNote *> notes;
    const std::lock_guard lock(accessorMutex);
    for (const KXAccessorNote *note = firstAccessor; note; note = note->m_next) {
        if (std::any_of(classes.begin(), classes.end(), [note](auto *type) { return *type == note->m_owner; }))
            notes.append(note);
    }
    return notes;
}

bool KXAccessorNote::fits(KXAccessorKind kind, const KXPropertyDescription &property)
{
    using Kind = KXAccessorKind;
    if (property.isRelationship())
        return kind == (property.isToMany() ? Kind::ToMany : Kind::ToOne);
    switch (property.type()) {
    case KXAttributeType::Integer16:
    case KXAttributeType::Integer32:
    case KXAttributeType::Integer64:
        return kind == Kind::Integer || kind == Kind::Boolean;
    case KXAttributeType::Boolean:
        return kind == Kind::Boolean;
    case KXAttributeType::Double:
        return kind == Kind::Double;
    case KXAttributeType::Date:
        return kind == Kind::Date;
    case KXAttributeType::String:
        return kind == Kind::Text;
    case KXAttributeType::Decimal:
        return kind == Kind::Decimal || kind == Kind::Variant;
    case KXAttributeType::URI:
        return kind == Kind::URI || kind == Kind::Variant;
    case KXAttributeType::UUID:
        return kind == Kind::UUID || kind == Kind::Variant;
    case KXAttributeType::Binary:
        return kind == Kind::Binary || kind == Kind::Variant;
    case KXAttributeType::Variant: // may hold any of them
        return kind >= Kind::Decimal && kind <= Kind::Variant;
    }
    return false;
}

QString KXAccessorNote::typeOfProperty(const KXPropertyDescription &property)
{
    if (property.isRelationship())
        return property.isToMany() ? u"to-many relationship"_s : u"to-one relationship"_s;
    switch (property.type()) {
    case KXAttributeType::Integer16:
        return u"Integer16"_s;
    case KXAttributeType::Integer32:
        return u"Integer32"_s;
    case KXAttributeType::Integer64:
        return u"Integer64"_s;
    case KXAttributeType::Boolean:
        return u"Boolean"_s;
    case KXAttributeType::Double:
        return u"Double"_s;
    case KXAttributeType::Decimal:
        return u"Decimal"_s;
    case KXAttributeType::String:
        return u"String"_s;
    case KXAttributeType::Date:
        return u"Date"_s;
    case KXAttributeType::URI:
        return u"URI"_s;
    case KXAttributeType::UUID:
        return u"UUID"_s;
    case KXAttributeType::Binary:
        return u"Binary"_s;
    case KXAttributeType::Variant:
        return u"Variant"_s;
    }
    return {};
}

QString KXAccessorNote::nameOfKind(KXAccessorKind kind)
{
    static constexpr const char *names[] = { "an integer", "bool", "double", "QDateTime", "QString", "KXDecimal",
        "QUrl", "QUuid", "QByteArray", "QVariant", "to-one relationship", "to-many relationship" };
    return QString::fromUtf8(names[size_t(kind)]);
}
