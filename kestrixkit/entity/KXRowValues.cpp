#include <kestrixkit/entity/KXRowValues_p.h>

#include <cmath>
#include <cstdlib>
#include <new>

#include <QDateTime>
#include <QUrl>

#include <kestrixkit/entity/KXValueConversion_p.h>
#include <kestrixkit/foundation/KXDecimal.h>

namespace {

enum class SlotKind { Word, Text, Uuid, Boxed, ToMany };

SlotKind slotKind(const KXPropertyDescription &property)
{
    if (property.isRelationship())
        return property.isToMany() ? SlotKind::ToMany : SlotKind::Word;
    switch (property.type()) {
    case KXAttributeType::String:
    case KXAttributeType::URI:
        return SlotKind::Text;
    case KXAttributeType::UUID:
        return SlotKind::Uuid;
    case KXAttributeType::Decimal:
    case KXAttributeType::Binary:
    case KXAttributeType::Variant:
        return SlotKind::Boxed;
    default:
        return SlotKind::Word;
    }
}

}

static_assert(sizeof(KXTextSlot) == 16 && sizeof(QUuid) == 16 && sizeof(KXRowValues) == 8);

void KXTextSlot::assign(QString text)
{
    Data *before = m_data;
    m_data = nullptr;
    m_size = 0;
    if (!text.isEmpty()) {
        // Literals own nothing, a text cut at its front does not begin at its allocation, and one that was
        // converted from long UTF-8 may hold three times what it needs.
        QString::DataPointer *pointer = &text.data_ptr();
        if (!pointer->d_ptr() || pointer->freeSpaceAtBegin() != 0
            || pointer->constAllocatedCapacity() > 2 * text.size() + 16)
            text = QString(text.constData(), text.size());
        take(std::move(text));
    }
    if (before && !before->deref())
        Data::deallocate(before);
}

void KXTextSlot::assignUtf8(const char *utf8, qsizetype size)
{
    // Most texts of a music library are ASCII, or nearly: those are widened straight into an allocation of their size,
    // which is what a scan of a million rows spends much of its time on.
    uchar bits = 0;
    for (qsizetype i = 0; i < size; ++i)
        bits |= uchar(utf8[i]);
    if (size == 0 || bits >= 0x80) {
        assign(QString::fromUtf8(utf8, size));
        return;
    }
    QString text(size, Qt::Uninitialized);
    auto *start = reinterpret_cast<char16_t *>(text.data());
    for (qsizetype i = 0; i < size; ++i)
        start[i] = uchar(utf8[i]);
    take(std::move(text));
}

void KXTextSlot::take(QString &&text)
{
    m_data = text.data_ptr().d_ptr();
    m_size = text.size();
    // The argument's own reference becomes ours: its storage is forgotten, not released.
    alignas(QString) char forgotten[sizeof(QString)];
    new (forgotten) QString(std::move(text));
}

int KXRowValues::layOut(const KXEntityDescription &entity, const std::function<void(int, int)> &place)
{
    // Presence bits and slots of inherited properties must lie where the parent has them, so there is room for
    // the largest family from the start: 64 properties, or more words where an entity needs them.
    int widest = 0;
    for (const KXEntityDescription *member : entity.root()->family())
        widest = std::max(widest, int(member->properties().size()));
    int offset = int(sizeof(KXRowValues)) + 8 * std::max(1, (widest + 63) / 64);
    for (const KXPropertyDescription &property : entity.properties()) {
        place(property.index(), offset);
        const SlotKind kind = slotKind(property);
        offset += kind == SlotKind::Text || kind == SlotKind::Uuid ? 16 : 8;
    }
    return offset;
}

KXRowValues *KXRowValues::create(const KXEntityDescription &entity)
{
    void *memory = std::calloc(1, size_t(entity.blockSize()));
    if (!memory)
        throw std::bad_alloc();
    return static_cast<KXRowValues *>(memory);
}

KXRowValues *KXRowValues::clone(const KXRowValues &other, const KXEntityDescription &entity)
{
    auto *values = static_cast<KXRowValues *>(std::malloc(size_t(entity.blockSize())));
    if (!values)
        throw std::bad_alloc();
    std::memcpy(static_cast<void *>(values), &other, size_t(entity.blockSize()));
    for (const KXPropertyDescription &property : entity.properties()) {
        switch (slotKind(property)) {
        case SlotKind::Text:
            values->slot<KXTextSlot>(property.offset()).share(other.slot<KXTextSlot>(property.offset()));
            break;
        case SlotKind::Boxed:
            if (const QVariant *boxed = other.slot<QVariant *>(property.offset()))
                values->slot<QVariant *>(property.offset()) = new QVariant(*boxed);
            break;
        case SlotKind::ToMany:
            values->slot<KXToManyKeys *>(property.offset()) = nullptr;
            break;
        case SlotKind::Word:
        case SlotKind::Uuid:
            break;
        }
    }
    return values;
}

void KXRowValues::destroy(KXRowValues *values, const KXEntityDescription &entity)
{
    if (!values)
        return;
    for (const KXPropertyDescription &property : entity.properties()) {
        switch (slotKind(property)) {
        case SlotKind::Text:
            values->slot<KXTextSlot>(property.offset()).release();
            break;
        case SlotKind::Boxed:
            delete values->slot<QVariant *>(property.offset());
            break;
        case SlotKind::ToMany:
            delete values->slot<KXToManyKeys *>(property.offset());
            break;
        case SlotKind::Word:
        case SlotKind::Uuid:
            break;
        }
    }
    std::free(values);
}

QVariant KXRowValues::attribute(const KXPropertyDescription &property) const
{
    if (!isPresent(property.index()))
        return {};
    const int offset = property.offset();
    switch (property.type()) {
    case KXAttributeType::Integer16:
    case KXAttributeType::Integer32:
    case KXAttributeType::Integer64:
        return slot<qint64>(offset);
    case KXAttributeType::Boolean:
        return slot<qint64>(offset) != 0;
    case KXAttributeType::Double:
        return slot<double>(offset);
    case KXAttributeType::Date:
        return KXValueConversion::dateFromMicroseconds(slot<qint64>(offset));
    case KXAttributeType::String:
        return slot<KXTextSlot>(offset).toString();
    case KXAttributeType::URI:
        return QUrl(slot<KXTextSlot>(offset).toString());
    case KXAttributeType::UUID:
        return slot<QUuid>(offset);
    case KXAttributeType::Decimal:
    case KXAttributeType::Binary:
    case KXAttributeType::Variant:
        return *slot<QVariant *>(offset);
    }
    return {};
}

void KXRowValues::clear(const KXPropertyDescription &property)
{
    const SlotKind kind = slotKind(property);
    if (kind == SlotKind::Text) {
        slot<KXTextSlot>(property.offset()).release();
    } else if (kind == SlotKind::Boxed) {
        delete slot<QVariant *>(property.offset());
        slot<QVariant *>(property.offset()) = nullptr;
    }
    setPresent(property.index(), false);
}

bool KXRowValues::setAttribute(const KXPropertyDescription &property, const QVariant &value)
{
    const QVariant converted = KXValueConversion::convert(value, property.type());
    if (!converted.isValid()) {
        clear(property);
        return !value.isValid() || value.isNull();
    }
    const int offset = property.offset();
    switch (property.type()) {
    case KXAttributeType::Integer16:
    case KXAttributeType::Integer32:
    case KXAttributeType::Integer64:
        slot<qint64>(offset) = converted.toLongLong();
        break;
    case KXAttributeType::Boolean:
        slot<qint64>(offset) = converted.toBool();
        break;
    case KXAttributeType::Double:
        slot<double>(offset) = converted.toDouble();
        break;
    case KXAttributeType::Date:
        slot<qint64>(offset) = KXValueConversion::microsecondsFromDate(converted.toDateTime());
        break;
    case KXAttributeType::String:
        slot<KXTextSlot>(offset).assign(converted.toString());
        break;
    case KXAttributeType::URI:
        slot<KXTextSlot>(offset).assign(KXValueConversion::textFromUrl(converted.toUrl()));
        break;
    case KXAttributeType::UUID:
        slot<QUuid>(offset) = converted.toUuid();
        break;
    case KXAttributeType::Decimal:
    case KXAttributeType::Binary:
    case KXAttributeType::Variant:
        if (QVariant *boxed = slot<QVariant *>(offset))
            *boxed = converted;
        else
            slot<QVariant *>(offset) = new QVariant(converted);
        break;
    }
    setPresent(property.index(), true);
    return true;
}

bool KXRowValues::isEqual(const KXRowValues &a, const KXRowValues &b, const KXPropertyDescription &property)
{
    const int offset = property.offset();
    const bool present = a.isPresent(property.index());
    if (present != b.isPresent(property.index()))
        return false;
    if (!present)
        return true;
    switch (slotKind(property)) {
    case SlotKind::Word:
        return a.slot<qint64>(offset) == b.slot<qint64>(offset);
    case SlotKind::Text:
        return a.slot<KXTextSlot>(offset).view() == b.slot<KXTextSlot>(offset).view();
    case SlotKind::Uuid:
        return a.slot<QUuid>(offset) == b.slot<QUuid>(offset);
    case SlotKind::Boxed:
        return *a.slot<QVariant *>(offset) == *b.slot<QVariant *>(offset);
    case SlotKind::ToMany:
        break;
    }
    return true;
}

void KXRowValues::copy(const KXRowValues &from, const KXPropertyDescription &property)
{
    const int offset = property.offset();
    clear(property);
    if (!from.isPresent(property.index()))
        return;
    switch (slotKind(property)) {
    case SlotKind::Word:
        slot<qint64>(offset) = from.slot<qint64>(offset);
        break;
    case SlotKind::Text:
        slot<KXTextSlot>(offset).share(from.slot<KXTextSlot>(offset));
        break;
    case SlotKind::Uuid:
        slot<QUuid>(offset) = from.slot<QUuid>(offset);
        break;
    case SlotKind::Boxed:
        slot<QVariant *>(offset) = new QVariant(*from.slot<QVariant *>(offset));
        break;
    case SlotKind::ToMany:
        return;
    }
    setPresent(property.index(), true);
}

KXToManyKeys &KXRowValues::toMany(const KXPropertyDescription &property)
{
    KXToManyKeys *&keys = slot<KXToManyKeys *>(property.offset());
    if (!keys)
        keys = new KXToManyKeys;
    return *keys;
}
