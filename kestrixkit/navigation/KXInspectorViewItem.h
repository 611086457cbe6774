#pragma once

#include <QLatin1StringView>
#include <QPointer>

#include <kestrixkit/foundation/KXObject.h>
#include <kestrixkit/theme/controls/KXThemeableTableRowView.h>

class KXViewController;

/// The dynamic property under which a view controller carries its item.
inline constexpr QLatin1StringView KXInspectorViewItemKey { "KXInspectorViewItemKey" };

/// How a view controller stands in an inspector: under a header with a title, which folds it up, or below a gap.
/// Belongs to the controller. Main thread.
class KX_UI_EXPORT KXInspectorViewItem : public KXObject
{
    Q_OBJECT
    Q_PROPERTY(QString title READ title WRITE setTitle NOTIFY didChange)
    Q_PROPERTY(bool showHeader READ showHeader WRITE setShowHeader NOTIFY didChange)
public:
    /// The controller's item, made when it is first asked for; nullptr for nullptr.
    [[nodiscard]] static KXInspectorViewItem *inspectorViewItem(KXViewController *controller);

    /// What was set or, where nothing was, the controller's own title.
    [[nodiscard]] QString title() const;
    void setTitle(const QString &title);
    /// Not at first.
    [[nodiscard]] bool showHeader() const { return m_showHeader; }
    void setShowHeader(bool show);
    /// The looks of the header's row; nullptr for the outline's own. Borrowed.
    [[nodiscard]] KXThemeableTableRowView *tableRowView() const { return m_rowView; }
    void setTableRowView(KXThemeableTableRowView *view);

Q_SIGNALS:
    void didChange();

private:
    explicit KXInspectorViewItem(KXViewController *controller);

    KXViewController *const m_controller; // the parent
    QString m_title;
    bool m_showHeader = false;
    QPointer<KXThemeableTableRowView> m_rowView;
};
