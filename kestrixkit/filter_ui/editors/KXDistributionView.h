#pragma once

#include <optional>

#include <QWidget>

#include <kestrixkit/counts/KXWhatIfCounts.h>

/// How many objects have which number, as a row of bars, and which of them lie within two bounds. Dragging on it sets
/// the bounds: both by dragging over bars, one by dragging from near it.
///
/// From the keyboard: Left and Right move the lower bound by a bar, with Shift the upper one; Home and End open the
/// ends. What was dragged is told when the mouse is let go; Escape takes it back. Main thread.
class KX_UI_EXPORT KXDistributionView : public QWidget
{
    Q_OBJECT
public:
    /// Both ends included; absent ones are open.
    struct Bounds
    {
        std::optional<double> lower = {};
        std::optional<double> upper = {};
        friend bool operator==(const Bounds &, const Bounds &) = default;
    };
    static constexpr int mostBars = 48;

    explicit KXDistributionView(QWidget *parent = nullptr);

    /// Ascending. The axis reaches from the first to the last; bounds outside of it lie at its ends.
    void setNumbers(const QList<KXWhatIfCounts::NumberCount> &numbers);
    void setBounds(const Bounds &bounds);
    [[nodiscard]] const Bounds &bounds() const { return m_bounds; }
    /// Objects in each bar, ascending; empty without numbers.
    [[nodiscard]] const QList<qint64> &bars() const { return m_bars; }
    /// Where a bar begins; that of bars().size() is where the last one ends.
    [[nodiscard]] double edge(qsizetype bar) const { return m_first + m_step * double(bar); }
    /// Objects within the bounds.
    [[nodiscard]] qint64 countWithin() const;

    [[nodiscard]] QSize sizeHint() const override;
    [[nodiscard]] QSize minimumSizeHint() const override { return { 120, 40 }; }

Q_SIGNALS:
    /// The user has chosen others.
    void boundsChosen(const KXDistributionView::Bounds &bounds);

protected:
    void paintEvent(QPaintEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;
    bool event(QEvent *event) override;
    void focusOutEvent(QFocusEvent *event) override;

private:
    enum class Grip { None, Lower, Upper, Both };

    [[nodiscard]] bool isMirrored() const { return layoutDirection() == Qt::RightToLeft; }
    [[nodiscard]] double xOf(double number) const;
    /// The edge between bars that is nearest to the place.
    [[nodiscard]] qsizetype edgeAt(double x) const;
    void choose(const Bounds &bounds);
    void drag(double x);
    void describe();

    QList<KXWhatIfCounts::NumberCount> m_numbers;
    QList<qint64> m_bars;
    double m_first = 0, m_step = 1;
    Bounds m_bounds, m_before;
    Grip m_grip = Grip::None;
    double m_pressed = 0;
};
