#pragma once

#include <QPointer>

#include <kestrixkit/navigation/KXNavigationItem.h>
#include <kestrixkit/theme/controls/KXThemeableButton.h>

/// Points of room at either side of a breadcrumb's title.
inline constexpr double KXNavigationBarButtonInset = 15.0;

/// A breadcrumb: the title of an item. The first begins the trail, and all others have an arrow head in front; the last
/// is where one is. Main thread.
class KX_UI_EXPORT KXNavigationBarButton : public KXThemeableButton
{
    Q_OBJECT
public:
    explicit KXNavigationBarButton(KXNavigationItem *item, QWidget *parent = nullptr);

    /// nullptr once it has ended.
    [[nodiscard]] KXNavigationItem *item() const { return m_item; }
    [[nodiscard]] bool beginsTrail() const { return m_beginsTrail; }
    void setBeginsTrail(bool begins);
    /// Whether it stands for what is shown.
    [[nodiscard]] bool isCurrent() const { return m_isCurrent; }
    void setCurrent(bool current);

    /// As wide as title and insets.
    [[nodiscard]] QSize sizeHint() const override;
    [[nodiscard]] QSize minimumSizeHint() const override;

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    void showTitle();

    const QPointer<KXNavigationItem> m_item;
    bool m_beginsTrail = false;
    bool m_isCurrent = false;
};
