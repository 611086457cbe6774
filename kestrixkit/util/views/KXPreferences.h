#pragma once

#include <QAction>
#include <QHash>
#include <QPointer>
#include <QToolBar>

#include <kestrixkit/foundation/KXNotificationCenter.h>
#include <kestrixkit/util/views/KXPreferencesViewController.h>

class KXAnimationGroup;
class QActionGroup;

/// The preferences window: a toolbar of sections above the view of the one that is selected. The window takes the size
/// of the section, its top left corner stays.
///
/// The window is loaded when it is first asked for, from the interface file "KXPreferences". Sections are borrowed; one
/// that goes leaves the toolbar. Main thread.
class KX_UI_EXPORT KXPreferences : public KXObject
{
    Q_OBJECT
public:
    /// The application's. It ends with the application.
    [[nodiscard]] static KXPreferences &sharedPreferences();
    explicit KXPreferences(QObject *parent = nullptr);
    ~KXPreferences() override;

    [[nodiscard]] QList<KXPreferencesViewController *> viewControllers() const;
    /// Selects the first; none, where the list is empty.
    void setViewControllers(const QList<KXPreferencesViewController *> &controllers);
    /// Does not hide what another window shows by now. Does nothing for one that is not here.
    void removeViewController(KXPreferencesViewController *controller);
    [[nodiscard]] KXPreferencesViewController *selectedViewController() const { return m_selected; }
    /// Shows the section, animated where animations are on. Before the window is there it is only remembered.
    void setSelectedViewController(KXPreferencesViewController *controller);
    /// Selects the first section of that identifier; without one nothing happens.
    void showPreferenceViewWithIdentifier(const QVariant &identifier);
    /// The first of that section name; nullptr without one.
    [[nodiscard]] KXPreferencesViewController *viewControllerWithName(const QString &sectionName) const;
    /// The section names, in order.
    [[nodiscard]] QStringList toolbarItemIdentifiers() const;
    /// Selects the section that a toolbar's item stands for.
    void toggleActivePreferenceView(QAction *item);

    /// Loads the window if need be.
    [[nodiscard]] QWidget *window();
    [[nodiscard]] bool isWindowLoaded() const { return m_window; }
    /// Shows the window in front of all others; the first time in the middle of the active one.
    void showWindow();
    [[nodiscard]] QToolBar *toolbar() const { return m_toolbar; }
    [[nodiscard]] QWidget *activeContentView() const { return m_activeContentView; }
    /// In points: the width of the window as loaded, which no section makes narrower.
    [[nodiscard]] int defaultWindowWidth() const { return m_defaultWindowWidth; }

private:
    void loadWindow();
    void fillToolbar();
    void showSelected(bool animated);

    QList<QPointer<KXPreferencesViewController>> m_viewControllers;
    QPointer<KXPreferencesViewController> m_selected;
    quint32 m_requests = 0; // to select
    QPointer<QWidget> m_window;
    QPointer<QToolBar> m_toolbar;
    QPointer<QWidget> m_activeContentView;
    QPointer<QActionGroup> m_items;
    QPointer<KXAnimationGroup> m_resizing;
    QHash<const QObject *, QSize> m_sizes; // of the views as they were loaded, by controller
    int m_defaultWindowWidth = 0;
    KXNotificationToken m_theme;
};
