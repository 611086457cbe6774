#include <kestrixkit/toolkit/KXPasteboard.h>

#include <QCborArray>
#include <QClipboard>
#include <QGuiApplication>
#include <QMimeData>

#include <kestrixkit/foundation/KXArchive.h>
#include <kestrixkit/foundation/KXLog.h>

namespace {
constexpr int pasteboardFormatNumber = 1;
}

QMimeData *KXPasteboard::mimeDataWithItems(const QString &type, const QVariantList &items)
{
    auto *data = new QMimeData;
    const QByteArray bytes
        = KXArchive::archive(type, pasteboardFormatNumber, QCborArray::fromVariantList(items).toCborValue());
    if (bytes.isEmpty())
        KXLogWarning(toolkit, "%d items of \"%@\" are too much for the pasteboard", items.size(), type);
    else
        data->setData(type, bytes);
    return data;
}

QVariantList KXPasteboard::itemsOfMimeData(const QMimeData *data, const QString &type)
{
    if (!data || !data->hasFormat(type))
        return {};
    const auto values = KXArchive::unarchive(data->data(type), type, pasteboardFormatNumber);
    if (!values || !values->isArray()) {
        KXLogWarning(toolkit, "What the pasteboard has as \"%@\" is unreadable", type);
        return {};
    }
    return values->toArray().toVariantList();
}

void KXPasteboard::setItems(const QString &type, const QVariantList &items)
{
    QGuiApplication::clipboard()->setMimeData(mimeDataWithItems(type, items));
}

QVariantList KXPasteboard::items(const QString &type)
{
    return itemsOfMimeData(QGuiApplication::clipboard()->mimeData(), type);
}

bool KXPasteboard::canReadItems(const QString &type) { return !items(type).isEmpty(); }
