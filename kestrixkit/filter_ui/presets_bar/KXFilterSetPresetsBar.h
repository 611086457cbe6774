#pragma once

#include <kestrixkit/context/KXManagedObjectContext.h>
#include <kestrixkit/filters/KXFilterSetPreset.h>
#include <kestrixkit/foundation/KXDelayedCall.h>
#include <kestrixkit/foundation/KXNotificationCenter.h>
#include <kestrixkit/foundation/KXWeakDelegate.h>
#include <kestrixkit/theme/controls/KXThemeableView.h>
#include <kestrixkit/toolkit/KXAnimationGroup.h>

class KXFilterSetPresetsBar;
class KXFilterSetPresetsBarPresetButton;
class KXMenu;
class KXObserver;
class KXThemeableButton;
QT_BEGIN_NAMESPACE
class QAction;
QT_END_NAMESPACE

/// What the presets bar tells.
class KX_UI_EXPORT KXFilterSetPresetsBarDelegate
{
public:
    virtual ~KXFilterSetPresetsBarDelegate();
    /// The user picked a preset.
    virtual void loadPreset(KXFilterSetPresetsBar &bar, const KXRef<KXFilterSetPreset> &preset) = 0;
};

/// The presets and folders of the top level as a row of buttons; what does not fit is in a menu at the end.
///
/// Shows the presets of the manager that is shared when its context is set, and follows them: buttons stay, whatever
/// changes but their number and order. Those that cannot be used in the application context are disabled. Keyboard: Tab
/// and the arrow keys go from button to button, Space presses. Main thread.
class KX_UI_EXPORT KXFilterSetPresetsBar : public QWidget
{
    Q_OBJECT
public:
    static constexpr int spacing = 5; ///< after each button, in points
    static constexpr int overflowSpacing = 6; ///< before the overflow button

    using Preset = KXRef<KXFilterSetPreset>;
    using Button = KXFilterSetPresetsBarPresetButton;

    explicit KXFilterSetPresetsBar(QWidget *parent = nullptr);
    ~KXFilterSetPresetsBar() override;

    [[nodiscard]] KXFilterSetPresetsBarDelegate *delegate() const { return m_delegate.get(); }
    void setDelegate(KXFilterSetPresetsBarDelegate *delegate) { m_delegate.set(delegate); }
    /// The application context, in which presets are available or not.
    [[nodiscard]] const KXManagedObjectContext::Ref &context() const { return m_context; }
    void setContext(const KXManagedObjectContext::Ref &context);
    /// Of the place whose counts are shown.
    [[nodiscard]] const QString &countsContextIdentifier() const { return m_identifier; }
    void setCountsContextIdentifier(const QString &identifier);

    /// Of the top level, by position.
    [[nodiscard]] const QList<Preset> &presets() const { return m_presets; }
    /// Those that had room since they are there, in the same order: a button is made when there first is.
    [[nodiscard]] QList<Button *> presetButtons() const;
    /// How many of the presets have room; the others are in the overflow menu.
    [[nodiscard]] qsizetype shownCount() const { return m_shownCount; }
    /// nullptr for one that has none.
    [[nodiscard]] Button *presetButtonForPreset(const KXFilterSetPreset *preset) const;
    [[nodiscard]] KXThemeableButton *overflowButton() const { return m_overflowButton; }
    [[nodiscard]] KXMenu *overflowMenu() const { return m_overflowMenu; }

    /// Makes buttons of what has come and takes those of what has gone away.
    void setupPresetButtons();
    /// Passes the preset of a button, or of an item of a menu (QAction), to the delegate.
    void loadPreset(const QObject *sender);
    /// Fills a menu: a folder's, or that of what does not fit.
    void menuNeedsUpdate(KXMenu &menu, const Preset &folder);
    /// A folder's item has a menu below it.
    QAction *addMenuItemForPreset(KXMenu &menu, const Preset &preset);

    [[nodiscard]] QSize sizeHint() const override;
    [[nodiscard]] QSize minimumSizeHint() const override;

protected:
    bool event(QEvent *event) override;
    bool eventFilter(QObject *object, QEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;

private:
    void follow(const KXObjectsDidChange &did);
    [[nodiscard]] bool concernsTopLevel(const KXObjectsDidChange &did) const;
    void updateAvailabilityAfter(const KXObjectsDidChange &did);
    [[nodiscard]] bool changesTitles(const KXObjectsDidChange &did) const;
    void titlesDidChange();
    [[nodiscard]] QList<Preset> level(const Preset &folder) const;
    [[nodiscard]] Button *createPresetButtonForPreset(const Preset &preset);
    void updateAvailability(Button &button) const;
    [[nodiscard]] bool isAvailable(const Preset &preset) const;
    void arrange(bool animated);
    [[nodiscard]] QSize sizeOf(const Preset &preset) const;
    [[nodiscard]] bool hasRoomForAll() const;
    void watchHiddenCounts();
    void restoreTabOrder();
    void moveFocus(const QWidget *from, int step);
    [[nodiscard]] Preset presetOfSender(const QObject *sender) const;

    KXWeakDelegate<KXFilterSetPresetsBarDelegate> m_delegate;
    KXManagedObjectContext::Ref m_context;
    KXManagedObjectContext::Ref m_presetsContext;
    QString m_identifier;
    QList<Preset> m_presets;
    QHash<const KXFilterSetPreset *, Button *> m_buttons;
    qsizetype m_shownCount = 0;
    mutable int m_width = -1; // of all buttons; -1: not known
    KXThemeableButton *m_overflowButton;
    KXMenu *m_overflowMenu;
    QHash<const KXFilterSetPreset *, std::shared_ptr<KXObserver>> m_hiddenCounts; // of those that are not seen
    KXDelayedCall m_layOutSoon { this };
    KXAnimationGroup m_slide;
    bool m_layOutAfterSlide = false;
    KXNotificationToken m_changes;
    KXNotificationToken m_themeChanges;
};
