#pragma once

#include <vector>

#include <QFontMetricsF>
#include <QString>

QT_BEGIN_NAMESPACE
class QPainter;
QT_END_NAMESPACE

/// Draws single lines of text in one font, fast.
///
/// Measuring a text costs as much as drawing it, and most texts of a table fit into their cells. So their characters'
/// widths, which are looked up once, are added up first: that is never less than what the text takes, since kerning
/// only ever brings characters together. What is not made of plain letters is left to Qt.
class KXTableText
{
public:
    explicit KXTableText(const QFont &font);

    [[nodiscard]] const QFont &font() const { return m_font; }
    /// In the middle of the rectangle, at the side that the alignment says, cut with an ellipsis.
    void draw(QPainter &painter, const QRectF &rect, Qt::Alignment alignment, const QString &text);

private:
    /// Negative for a text with other than plain letters.
    [[nodiscard]] qreal estimate(QStringView text, bool *isExact);
    [[nodiscard]] qreal advance(QChar character);
    [[nodiscard]] QString cut(const QString &text, qreal room);

    QFont m_font;
    QFontMetricsF m_metrics;
    qreal m_ellipsis;
    std::vector<float> m_advances; // by character, below 0 while unknown
};
