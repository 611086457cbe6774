#pragma once

#include <functional>

#include <QImage>

#include <kestrixkit/theme/controls/KXThemeableButtonCell.h>

/// A number in a pill, as beside presets. Below 1 there is none; from 1,000 on it says "999+", unless the host has
/// another format. Its keys are those of a button. Main thread.
class KX_UI_EXPORT KXBadgeCell : public KXThemeableButtonCell
{
    Q_OBJECT
public:
    using KXThemeableButtonCell::KXThemeableButtonCell;

    [[nodiscard]] static QString textForCount(qint64 count);
    /// What all badges of the process say of a number from 1 on; an empty function for what they say by themselves. Set
    /// before there are any.
    static void setTextFormat(std::function<QString(qint64 count)> format);
    /// A format of at most four signs that grows with the number, in the user's language: "999", "1.2k", "36k", "2.4M".
    [[nodiscard]] static QString shortText(qint64 count);
    /// Nothing for a count below 1.
    [[nodiscard]] static QSize sizeForCount(qint64 count, const QFont &font);
    /// Where the text ends in the rectangle, in the middle of its height.
    void paint(QPainter &painter, const QRect &rect, qint64 count, bool enabled, const QPalette &palette) const;
    /// 14 points high, in the given colours; null for a count below 1.
    [[nodiscard]] static QImage image(
        qint64 count, const QColor &background, const QColor &text, qreal devicePixelRatio = 1);

    using KXThemeableButtonCell::paint;
};

/// A widget that shows a badge, hidden while there is no number. Main thread.
class KX_UI_EXPORT KXBadge : public QWidget
{
    Q_OBJECT
    Q_PROPERTY(QString themeStyleName READ themeStyleName WRITE setThemeStyleName)
    Q_PROPERTY(QObject *cell READ cell)
    Q_PROPERTY(qint64 count READ count WRITE setCount)
    KX_CONTROL_WITH_CELL(KXBadgeCell)
public:
    explicit KXBadge(QWidget *parent = nullptr);

    [[nodiscard]] qint64 count() const { return m_count; }
    void setCount(qint64 count);
    [[nodiscard]] QString text() const { return KXBadgeCell::textForCount(m_count); }

    [[nodiscard]] QSize sizeHint() const override;
    [[nodiscard]] QSize minimumSizeHint() const override { return sizeHint(); }

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    qint64 m_count = 0;
};
