#include <kestrixkit/util/views/KXTableText_p.h>

#include <QPainter>
#include <QStyle>

namespace {

constexpr char16_t tableEllipsis = u'\u2026';
constexpr char16_t tablePlainEnd = 0x250; // Latin letters up to here, none of them joined or combined

bool tableIsPlain(QChar c) { return c.unicode() >= 0x20 && c.unicode() < tablePlainEnd && c.unicode() != 0xAD; }
bool tableIsUnkerned(QChar c) { return (c >= u'0' && c <= u'9') || c == u'.' || c == u':' || c == u'/' || c == u' '; }

}

KXTableText::KXTableText(const QFont &font)
    : m_font(font)
    , m_metrics(font)
    , m_ellipsis(m_metrics.horizontalAdvance(QChar(tableEllipsis)))
    , m_advances(tablePlainEnd, -1)
{
}

qreal KXTableText::advance(QChar character)
{
    float &known = m_advances[character.unicode()];
    if (known < 0)
        known = float(m_metrics.horizontalAdvance(character));
    return qreal(known);
}

qreal KXTableText::estimate(QStringView text, bool *isExact)
{
    qreal width = 0;
    *isExact = true;
    for (const QChar c : text) {
        if (!tableIsPlain(c))
            return -1;
        *isExact = *isExact && tableIsUnkerned(c);
        width += advance(c);
    }
    return width;
}

QString KXTableText::cut(const QString &text, qreal room)
{
    room -= m_ellipsis;
    qsizetype length = 0;
    for (; length < text.size(); ++length) {
        room -= advance(text[length]);
        if (room < 0)
            break;
    }
    while (length > 0 && text[length - 1].isSpace())
        --length;
    return text.left(length) + QChar(tableEllipsis);
}

void KXTableText::draw(QPainter &painter, const QRectF &rect, Qt::Alignment alignment, const QString &text)
{
    if (text.isEmpty())
        return;
    alignment = QStyle::visualAlignment(painter.layoutDirection(), alignment);
    bool isExact = false;
    qreal width = estimate(text, &isExact);
    if (width < 0 || painter.layoutDirection() == Qt::RightToLeft) {
        const int flags = int(alignment & Qt::AlignHorizontal_Mask) | Qt::AlignVCenter | Qt::TextSingleLine;
        painter.drawText(rect, flags | Qt::AlignAbsolute, m_metrics.elidedText(text, Qt::ElideRight, rect.width()));
        return;
    }
    QString shown = text;
    const bool atLeft = !(alignment & (Qt::AlignRight | Qt::AlignHCenter));
    if (width > rect.width() || (!atLeft && !isExact)) {
        width = isExact ? width : m_metrics.horizontalAdvance(text);
        if (width > rect.width()) {
            shown = cut(text, rect.width());
            width = m_metrics.horizontalAdvance(shown);
        }
    }
    const qreal rest = rect.width() - width;
    const qreal x = rect.left() + (atLeft ? 0 : alignment & Qt::AlignRight ? rest : rest / 2);
    const qreal y = rect.top() + (rect.height() - m_metrics.height()) / 2 + m_metrics.ascent();
    painter.drawText(QPointF(x, y), shown);
}
