#pragma once

#include <functional>
#include <memory>

#include <QPointer>
#include <QRect>
#include <QWidget>

#include <kestrixkit/foundation/KXObject.h>

class KXPopoverFrame;
class KXViewController;

/// When a popover closes without being told to.
enum class KXPopoverBehaviour : int {
    ApplicationDefined, ///< never
    Transient, ///< when the user does anything outside it, or another window becomes active
    SemiTransient, ///< when the user clicks outside it in the window that it belongs to
};

/// Shows the view of a controller in a window beside a widget: a KXPopoverFrame, its arrow on the widget. The Escape
/// key closes it, unless its closing is defined by the application. Its content is told of popoverWillShow() and the
/// rest. Main thread.
class KX_UI_EXPORT KXPopoverController : public KXObject
{
    Q_OBJECT
    Q_PROPERTY(bool shown READ isShown NOTIFY shownChanged)
public:
    /// The content is borrowed, unless its parent is made this one; where it goes, the popover closes.
    explicit KXPopoverController(KXViewController *content, QObject *parent = nullptr);
    /// Closes without calling actions.
    ~KXPopoverController() override;

    [[nodiscard]] KXViewController *contentViewController() const;
    [[nodiscard]] KXPopoverBehaviour behaviour() const { return m_behaviour; }
    /// May be changed while it is shown, for an alert in front of it for instance.
    void setBehaviour(KXPopoverBehaviour behaviour) { m_behaviour = behaviour; }
    /// On unless changed.
    void setAnimates(bool animates) { m_animates = animates; }
    void setCloseAction(std::function<void()> action) { m_closeAction = std::move(action); }
    void setDidShowAction(std::function<void()> action) { m_didShowAction = std::move(action); }

    /// Shows it at that edge of the widget, or where the screen has no room there at the opposite one. Follows the
    /// widget, and closes when that is hidden or goes. Moves there if it is shown already.
    void showRelativeTo(QWidget *anchor, Qt::Edge edge) { showRelativeTo(anchor, {}, edge); }
    /// The same for a rectangle of the widget, in its coordinates; the whole widget if it is empty.
    void showRelativeTo(QWidget *anchor, const QRect &rect, Qt::Edge edge);
    /// Harmless when it is not shown.
    void close();
    [[nodiscard]] bool isShown() const { return m_shown; }

    /// Where a window of that size goes: all in coordinates of the desktop. It stays within the screen.
    [[nodiscard]] static QRect placed(const QRect &anchor, QSize size, Qt::Edge edge, const QRect &screen);

Q_SIGNALS:
    void shownChanged();

protected:
    bool eventFilter(QObject *object, QEvent *event) override;

private:
    void place();
    [[nodiscard]] bool isInside(const QWidget *widget) const;

    QPointer<KXViewController> m_content;
    QPointer<QWidget> m_anchor;
    QRect m_rect;
    Qt::Edge m_edge = Qt::BottomEdge;
    KXPopoverBehaviour m_behaviour = KXPopoverBehaviour::Transient;
    std::function<void()> m_closeAction;
    std::function<void()> m_didShowAction;
    std::unique_ptr<KXPopoverFrame> m_frame; // no child of the anchor's window: its end must not take the content along
    quint32 m_requests = 0; // to show or to close
    bool m_animates = true;
    bool m_shown = false;
};
