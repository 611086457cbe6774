#pragma once

#include <kestrixkit/navigation/KXInspectorViewItem.h>
#include <kestrixkit/toolkit/KXViewController.h>

class KXInspectorModel;
class KXInspectorOutlineView;

/// The dynamic property under which a view controller carries the inspector that it is in.
inline constexpr QLatin1StringView KXInspectorViewControllerKey { "KXInspectorViewControllerKey" };

/// Several view controllers above each other, each below a header that folds it up, or below a gap where it has none.
///
/// A section is as high as its view wants to be at the inspector's width, and is measured again when that view's layout
/// says so. Its controller appears while the inspector does and the section is open. Which sections are open is
/// remembered by their places under the autosave name. Controllers are borrowed; one that ends leaves by itself. Main
/// thread.
class KX_UI_EXPORT KXInspectorViewController : public KXViewController
{
    Q_OBJECT
public:
    static constexpr int HeaderHeight = 28; ///< points
    static constexpr int SpacerHeight = 8; ///< points, in place of a header

    explicit KXInspectorViewController(QObject *parent = nullptr);
    ~KXInspectorViewController() override;

    /// The one that the controller is inspected in; nullptr for none.
    [[nodiscard]] static KXInspectorViewController *inspectorViewController(const KXViewController *controller);

    [[nodiscard]] const QList<KXViewController *> &viewControllers() const { return m_viewControllers; }
    /// Ignored where they are the same ones in the same order. Null ones are left out.
    void setViewControllers(const QList<KXViewController *> &controllers);
    /// nullptr for an item that is none of theirs.
    [[nodiscard]] KXViewController *viewControllerForItem(const KXInspectorViewItem *item) const;
    /// Measures its section again; nothing for a controller that is not in it.
    void heightOfViewControllerDidChange(KXViewController *controller);

    /// Sections without header always are.
    [[nodiscard]] bool isExpanded(const KXViewController *controller) const;
    void setExpanded(const KXViewController *controller, bool expanded);
    /// The key under which open sections are kept in the user defaults; empty for none. They are restored at once.
    [[nodiscard]] const QString &autosaveName() const { return m_autosaveName; }
    void setAutosaveName(const QString &name);
    /// What stands for a section among what is remembered: its place. Empty for one that is not in it.
    [[nodiscard]] QByteArray persistentObjectForItem(const KXInspectorViewItem *item) const;
    /// nullptr for a place that is not there, and for what is no place.
    [[nodiscard]] KXInspectorViewItem *itemForPersistentObject(const QByteArray &object) const;

    /// nullptr before the view is loaded.
    [[nodiscard]] KXInspectorOutlineView *outlineView() const;

    void viewDidAppear() override;
    void viewWillDisappear() override;

protected:
    void loadView() override;
    void viewDidLoad() override;

private:
    class Cell;
    [[nodiscard]] bool isOpen(qsizetype index) const;
    void reload();
    void takeViewsOut();
    void measure(qsizetype index);
    void measureAll();
    void updateAppearance();
    void saveExpanded();
    void readExpanded();
    void showExpanded();
    void itemDidChange(qsizetype index);

    QList<KXViewController *> m_viewControllers;
    KXInspectorModel *m_model;
    QPointer<KXInspectorOutlineView> m_outline;
    QList<QPointer<Cell>> m_cells; // by controller, while the view is loaded
    QString m_autosaveName;
    QSet<const KXViewController *> m_expanded; // those with a header
    bool m_isReloading = false;
};
