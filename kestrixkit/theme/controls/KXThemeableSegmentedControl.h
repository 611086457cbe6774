#pragma once

#include <optional>

#include <kestrixkit/theme/controls/KXThemeableSegmentedControlCell.h>

/// A row of segments of which one, or any number, is selected.
///
/// Keyboard: the arrow keys go through the segments in the direction that they show, Home and End to the ends; where
/// one is selected they select, else Space does. For accessibility it is a group of radio buttons or check boxes. Main
/// thread.
class KX_UI_EXPORT KXThemeableSegmentedControl : public QWidget
{
    Q_OBJECT
    Q_PROPERTY(QString themeStyleName READ themeStyleName WRITE setThemeStyleName)
    Q_PROPERTY(QObject *cell READ cell)
    Q_PROPERTY(int selectedSegment READ selectedSegment WRITE setSelectedSegment NOTIFY selectionChanged)
    KX_CONTROL_WITH_CELL(KXThemeableSegmentedControlCell)
public:
    enum TrackingMode {
        SelectOne,
        SelectAny,
        Momentary, ///< nothing stays selected: a row of push buttons
    };

    explicit KXThemeableSegmentedControl(QWidget *parent = nullptr);
    ~KXThemeableSegmentedControl() override;

    [[nodiscard]] TrackingMode trackingMode() const { return m_mode; }
    void setTrackingMode(TrackingMode mode) { m_mode = mode; }

    [[nodiscard]] const QList<KXSegment> &segments() const { return m_segments; }
    void setSegments(const QList<KXSegment> &segments);
    void setLabels(const QStringList &labels);
    void setSegmentEnabled(int segment, bool enabled);

    /// The first selected one; -1 for none. Setting selects it alone, without clicked().
    [[nodiscard]] int selectedSegment() const;
    void setSelectedSegment(int segment);

    /// As if the user had clicked on it. Nothing on a segment that is disabled or not there.
    void click(int segment);

    /// Where arrow keys go on from.
    [[nodiscard]] int currentSegment() const { return m_current; }
    [[nodiscard]] QRect segmentRect(int segment) const;
    [[nodiscard]] int segmentAt(const QPoint &position) const;

    [[nodiscard]] QSize sizeHint() const override;
    [[nodiscard]] QSize minimumSizeHint() const override { return sizeHint(); }

Q_SIGNALS:
    void selectionChanged();
    /// By the user.
    void clicked(int segment);

protected:
    bool event(QEvent *event) override;
    void paintEvent(QPaintEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;

private:
    [[nodiscard]] QList<int> widths() const;
    void moveTo(int from, int step);

    QList<KXSegment> m_segments;
    TrackingMode m_mode = SelectOne;
    int m_current = 0;
    int m_hovered = -1;
    int m_pressed = -1;
};
