#pragma once

#include <memory>

#include <QPointer>

#include <kestrixkit/filter_ui/editors/KXFilterBarLayout.h>
#include <kestrixkit/filters/KXFilterSet.h>
#include <kestrixkit/foundation/KXNotificationCenter.h>
#include <kestrixkit/foundation/KXWeakDelegate.h>
#include <kestrixkit/theme/controls/KXThemeableView.h>

class KXFilterBar;
class KXFilterBarFilterView;
class KXMenu;
class KXObserver;
struct KXObjectsDidChange;
QT_BEGIN_NAMESPACE
class QLabel;
class QMimeData;
QT_END_NAMESPACE

/// The height of one row of the filter bar, in points.
inline constexpr int KXFilterBarFilterViewHeight = 48;
/// The place of a filter that is dragged within its bar.
inline constexpr QLatin1StringView KXFilterBarFilterViewPasteboardType {
    "com.kestrix.kestrixkit.internal.KXFilterBarFilterView"
};

/// What the filter bar asks for.
class KX_UI_EXPORT KXFilterBarDelegate
{
public:
    virtual ~KXFilterBarDelegate();

    /// The user wants to edit the filter.
    virtual void showFilter(KXFilterBar &bar, const KXRef<KXFilter> &filter) = 0;
    /// The user wants it the other way.
    virtual void toggleEnabledStateForFilter(KXFilterBar &bar, const KXRef<KXFilter> &filter) = 0;
    /// The filter's menu, asked for once; null for none.
    [[nodiscard]] virtual std::unique_ptr<KXMenu> contextMenuForFilter(KXFilterBar &bar, const KXRef<KXFilter> &filter)
        = 0;
    /// A key for deleting was pressed on the filter. Nothing unless overridden.
    virtual void deleteFilter(KXFilterBar &bar, const KXRef<KXFilter> &filter);
};

/// The filters of a set as a wrapping row of views, by position. A click edits a filter, its switch turns it on and
/// off, and dragging moves it, which cannot be undone and is saved.
///
/// Keyboard: Tab goes through the filters and their switches, the arrow keys from filter to filter, Alt with them moves
/// the filter, Backspace and Delete ask the delegate to delete it. Where keys or buttons delete the filter that has the
/// focus, the next one gets it. It follows the set, whoever changes it. Main thread.
class KX_UI_EXPORT KXFilterBar : public KXThemeableView
{
    Q_OBJECT
public:
    explicit KXFilterBar(QWidget *parent = nullptr);
    ~KXFilterBar() override;

    [[nodiscard]] KXFilterBarDelegate *delegate() const { return m_delegate.get(); }
    void setDelegate(KXFilterBarDelegate *delegate) { m_delegate.set(delegate); }

    /// Empty at first, and after the set was deleted.
    [[nodiscard]] const KXRef<KXFilterSet> &filterSet() const { return m_set; }
    void setFilterSet(const KXRef<KXFilterSet> &set);
    /// Shown, in order.
    [[nodiscard]] QList<KXRef<KXFilter>> filters() const;
    [[nodiscard]] const QList<KXFilterBarFilterView *> &filterViews() const { return m_views; }
    /// nullptr for a filter that is not shown.
    [[nodiscard]] KXFilterBarFilterView *viewOfFilter(const KXFilter *filter) const;
    /// What stands there as long as there is no filter.
    void setPlaceholderText(const QString &text);

    /// Makes views of what has come, takes those of what has gone away, and orders them by position.
    void setupFilterViews();
    /// Passes the filter whose view the sender lies in to the delegate.
    void edit(const QWidget *sender);
    void toggleFilterEnabledState(const QWidget *sender);

    /// Of its rows at the width that it has.
    [[nodiscard]] int intrinsicHeight() const { return heightForWidth(width()); }
    [[nodiscard]] bool hasHeightForWidth() const override { return true; }
    [[nodiscard]] int heightForWidth(int width) const override;
    [[nodiscard]] QSize sizeHint() const override;
    [[nodiscard]] QSize minimumSizeHint() const override;

    // Moving filters

    /// Of what is dragged over it.
    [[nodiscard]] KXFilterBarDropPosition currentDropIndexPosition() const { return m_dropPosition; }
    /// Where something let go at that place of the bar would go.
    [[nodiscard]] KXFilterBarDropPosition dropPositionAt(const QPoint &place) const;
    /// What a drag of that view carries; the caller owns it.
    [[nodiscard]] QMimeData *mimeDataForFilterView(const KXFilterBarFilterView &view) const;
    /// Moves it and saves. False, and nothing changes, where that is no move.
    bool moveFilterView(qsizetype dragged, KXFilterBarDropPosition position);

Q_SIGNALS:
    /// Other filters are shown, or in another order.
    void filtersChanged();
    /// setFilterSet() was given another one, or the set was deleted.
    void filterSetChanged();

protected:
    bool event(QEvent *event) override;
    bool eventFilter(QObject *object, QEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;
    void dragEnterEvent(QDragEnterEvent *event) override;
    void dragMoveEvent(QDragMoveEvent *event) override;
    void dragLeaveEvent(QDragLeaveEvent *event) override;
    void dropEvent(QDropEvent *event) override;

private:
    void follow(const KXObjectsDidChange &did);
    [[nodiscard]] KXFilterBarFilterView *makeView(const KXRef<KXFilter> &filter);
    void removeView(KXFilterBarFilterView *view);
    [[nodiscard]] KXFilterBarFilterView *viewAround(const QWidget *widget) const;
    [[nodiscard]] QList<int> widths() const;
    void arrange();
    void restoreTabOrder();
    void setDropPosition(KXFilterBarDropPosition position);
    void showIndicator();
    void startDrag(KXFilterBarFilterView *view, const QPoint &place);
    bool keyPressed(KXFilterBarFilterView *view, const QKeyEvent &event);
    [[nodiscard]] qsizetype draggedIndex(const QMimeData *data) const;

    KXWeakDelegate<KXFilterBarDelegate> m_delegate;
    KXRef<KXFilterSet> m_set;
    QList<KXFilterBarFilterView *> m_views;
    KXFilterBarDropPosition m_dropPosition;
    QWidget *m_indicator;
    QLabel *m_placeholder;
    int m_rows = 1;
    QPoint m_pressPlace;
    QPointer<KXFilterBarFilterView> m_dragged; // while it is; what is merged meanwhile moves it or takes it away
    bool m_isDragging = false;
    std::shared_ptr<KXObserver> m_filtersObserver;
    KXNotificationToken m_changes;
};
