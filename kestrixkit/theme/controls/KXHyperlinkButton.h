#pragma once

#include <QAbstractButton>

#include <kestrixkit/foundation/KXNotificationCenter.h>

/// Text that is clicked like a link, in the theme's colours of text: underlined under the mouse and with the focus.
/// Without theme it has the palette's colour of links. Main thread.
class KX_UI_EXPORT KXHyperlinkButton : public QAbstractButton
{
    Q_OBJECT
public:
    explicit KXHyperlinkButton(QWidget *parent = nullptr);
    explicit KXHyperlinkButton(const QString &text, QWidget *parent = nullptr);

    [[nodiscard]] QSize sizeHint() const override;
    [[nodiscard]] QSize minimumSizeHint() const override { return sizeHint(); }

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    KXNotificationToken m_theme;
};
