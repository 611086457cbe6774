#pragma once

#include <QPointer>
#include <QPushButton>

#include <kestrixkit/foundation/KXNotificationCenter.h>
#include <kestrixkit/navigation/KXLayeredNavigationItem.h>

class KXThemeableButton;
class KXThemeableSpinningProgressIndicator;

/// The head of a layer: image, title and busy indicator of its item, and a button that closes it.
///
/// Drawn by the theme's layeredNavigationHeader values. While it is active it is a button: pressed by the mouse as soon
/// as that is down, or by the keyboard. Main thread.
class KX_UI_EXPORT KXLayeredHeaderView : public QPushButton
{
    Q_OBJECT
public:
    static constexpr int Height = 30; ///< points
    static constexpr int Margin = 5; ///< points around what lies in it

    explicit KXLayeredHeaderView(KXLayeredNavigationItem *item, QWidget *parent = nullptr);

    /// Whether pressing it leads anywhere: it does in layers that are covered.
    void setActive(bool active);
    [[nodiscard]] bool isActive() const { return focusPolicy() != Qt::NoFocus; }
    [[nodiscard]] KXThemeableButton *closeButton() const { return m_close; }
    [[nodiscard]] KXThemeableSpinningProgressIndicator *activityIndicator() const { return m_activity; }
    /// In place of the image.
    void setCloseButtonShown(bool shown);

    [[nodiscard]] QSize sizeHint() const override { return { 200, Height }; }
    [[nodiscard]] QSize minimumSizeHint() const override { return { 0, Height }; }

Q_SIGNALS:
    void pressedDown();
    void closeRequested();
    /// The pointer came over the header, or left it.
    void pointerDidMove();

protected:
    bool event(QEvent *event) override;
    void paintEvent(QPaintEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;

private:
    void follow();
    [[nodiscard]] QRect imageRect() const;
    [[nodiscard]] QRect titleRect() const;

    const QPointer<KXLayeredNavigationItem> m_item;
    KXThemeableButton *m_close;
    KXThemeableSpinningProgressIndicator *m_activity;
    KXNotificationToken m_themeChanges;
};
