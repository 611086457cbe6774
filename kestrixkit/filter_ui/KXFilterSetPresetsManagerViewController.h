#pragma once

#include <kestrixkit/filter_ui/KXFilterSetPresetsViewController.h>
#include <kestrixkit/filters/KXFilterSetPresetsManager.h>

class KXFilterSetPresetsManagerViewController;

/// What the presets manager asks of whoever opened it.
class KX_UI_EXPORT KXFilterSetPresetsManagerViewControllerDelegate
{
public:
    virtual ~KXFilterSetPresetsManagerViewControllerDelegate();

    /// The user picked a preset, whose filter set this is. True where it was loaded.
    virtual bool loadFilterSet(KXFilterSetPresetsManagerViewController &manager, const KXRef<KXFilterSet> &set) = 0;
};

/// The content of a popover in which the user looks through the presets library and loads one.
///
/// Shows the presets of the shared presets manager, of which the application has to have one by then; what can be
/// loaded is decided by the mapper of the application context. Main thread.
class KX_UI_EXPORT KXFilterSetPresetsManagerViewController : public KXViewController
{
    Q_OBJECT
    Q_PROPERTY(bool canLoadSelectedPreset READ canLoadSelectedPreset NOTIFY selectedPresetChanged)
public:
    static constexpr int loadButtonDistance = 5; ///< from the button before it, in points, at least

    explicit KXFilterSetPresetsManagerViewController(KXManagedObjectContext::Ref context, QObject *parent = nullptr);

    /// The application context of whoever opened it.
    [[nodiscard]] const KXManagedObjectContext::Ref &context() const { return m_context; }
    [[nodiscard]] KXFilterSetPresetsManagerViewControllerDelegate *delegate() const { return m_delegate.get(); }
    void setDelegate(KXFilterSetPresetsManagerViewControllerDelegate *delegate) { m_delegate.set(delegate); }
    [[nodiscard]] KXFilterSetPresetsViewController *filterSetPresetsViewController() const { return m_library; }
    /// The topmost one; empty where none is.
    [[nodiscard]] const KXRef<KXFilterSetPreset> &selectedPreset() const { return m_selectedPreset; }
    /// Whether the mapper can map its set; without any selected preset the mapper is asked, too.
    [[nodiscard]] bool canLoadSelectedPreset() const { return m_canLoadSelectedPreset; }

    // Outlets; nullptr before the view is loaded.

    [[nodiscard]] QWidget *filterSetPresetsContainerView() const;
    [[nodiscard]] KXThemeableButton *loadButton() const;

    /// Loads the selected preset and closes the popover. Nothing for a folder and for what cannot be loaded.
    void load();
    /// Has the delegate load it and remembers when, which is no step to undo.
    void loadPreset(const KXRef<KXFilterSetPreset> &preset);

    void popoverWillShow() override;
    void popoverDidShow() override;

Q_SIGNALS:
    void selectedPresetChanged();

protected:
    void viewDidLoad() override;
    bool eventFilter(QObject *object, QEvent *event) override;

private:
    void selectionDidChange();

    const KXManagedObjectContext::Ref m_context;
    KXWeakDelegate<KXFilterSetPresetsManagerViewControllerDelegate> m_delegate;
    KXFilterSetPresetsViewController *m_library;
    KXRef<KXFilterSetPreset> m_selectedPreset;
    bool m_canLoadSelectedPreset = false;
    QPointer<QWidget> m_container;
    QPointer<KXThemeableButton> m_loadButton;
    KXNotificationToken m_changes;
};
