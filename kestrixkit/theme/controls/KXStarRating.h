#pragma once

#include <QColor>

#include <kestrixkit/theme/controls/KXThemed.h>

/// Zero to five stars, which the user sets by click, drag, arrow keys or digits; clicking on the last one that is set
/// takes them all away. Main thread.
class KX_UI_EXPORT KXStarRating : public KXThemed<QWidget>
{
    Q_OBJECT
    Q_PROPERTY(QString themeStyleName READ themeStyleName WRITE setThemeStyleName)
    Q_PROPERTY(int rating READ rating WRITE setRating NOTIFY ratingChanged USER true)
    Q_PROPERTY(QColor color MEMBER m_color)
    Q_PROPERTY(QColor highlightedColor MEMBER m_highlightedColor)
    Q_PROPERTY(QColor disabledColor MEMBER m_disabledColor)
    Q_PROPERTY(QColor emptyColor MEMBER m_emptyColor)
public:
    static constexpr int maximum = 5;

    explicit KXStarRating(QWidget *parent = nullptr);

    [[nodiscard]] int rating() const { return m_rating; }
    /// Bounded to 0…5.
    void setRating(int rating);
    /// As the user does: sets it and says so.
    void rate(int rating);

    /// Five stars within a rectangle, where text begins, for rows that paint them. The height is at most the
    /// rectangle's.
    static void paintStars(
        QPainter &painter, const QRectF &rect, int rating, const QColor &colour, const QColor &emptyColour);
    /// How many stars end at or before a place in such a rectangle, the one that it is in included: 0…5.
    [[nodiscard]] static int starsAt(const QPointF &position, const QRectF &rect, Qt::LayoutDirection direction);

    [[nodiscard]] QSize sizeHint() const override;
    [[nodiscard]] QSize minimumSizeHint() const override { return sizeHint(); }

Q_SIGNALS:
    void ratingChanged(int rating);
    void rated(int rating);

protected:
    void paintEvent(QPaintEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;

private:
    [[nodiscard]] QRectF starsRect() const;

    int m_rating = 0;
    int m_tracked = -1; // while the mouse is down
    QColor m_color, m_highlightedColor, m_disabledColor, m_emptyColor;
};
