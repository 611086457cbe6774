#pragma once

#include <QBrush>
#include <QPointer>
#include <QPushButton>

#include <kestrixkit/foundation/KXNotificationCenter.h>
#include <kestrixkit/foundation/KXWeakDelegate.h>

class KXMessageView;

/// Whoever acts on what the user does with the strip. Unless it is a QObject, it outlives the view or is taken off it.
class KX_UI_EXPORT KXMessageViewDelegate
{
public:
    virtual ~KXMessageViewDelegate();
    virtual void messageWasSelected(KXMessageView *view) = 0;
    virtual void messageViewShouldBeHidden(KXMessageView *view) = 0;
};

/// A strip with one line of text, which is a button, and a button to hide it. Main thread.
class KX_UI_EXPORT KXMessageView : public QWidget
{
    Q_OBJECT
    Q_PROPERTY(QString message READ message WRITE setMessage)
    Q_PROPERTY(QBrush backgroundGradient READ backgroundGradient WRITE setBackgroundGradient)
public:
    explicit KXMessageView(QWidget *parent = nullptr);
    ~KXMessageView() override;

    [[nodiscard]] KXMessageViewDelegate *delegate() const { return m_delegate.get(); }
    void setDelegate(KXMessageViewDelegate *delegate) { m_delegate.set(delegate); }

    /// Plain text. What is too long for a line and a tool tip is cut there.
    [[nodiscard]] const QString &message() const { return m_message; }
    void setMessage(const QString &message);
    [[nodiscard]] const QBrush &backgroundGradient() const { return m_backgroundGradient; }
    void setBackgroundGradient(const QBrush &gradient);

    [[nodiscard]] QPushButton *messageButton() const { return m_messageButton; }
    [[nodiscard]] QPushButton *hideButton() const { return m_hideButton; }

    /// What the buttons do: tell the delegate. (QWidget's functions of these names stay reachable through it.)
    void show(QPushButton *sender);
    void hide(QPushButton *sender);
    using QWidget::hide;
    using QWidget::show;

    [[nodiscard]] QSize sizeHint() const override;
    [[nodiscard]] QSize minimumSizeHint() const override;

protected:
    bool event(QEvent *event) override;
    void paintEvent(QPaintEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;

private:
    void layoutSubviews();

    QString m_message;
    QBrush m_backgroundGradient;
    QPushButton *m_messageButton;
    QPushButton *m_hideButton;
    KXWeakDelegate<KXMessageViewDelegate> m_delegate;
    KXNotificationToken m_theme;
};
