#pragma once

#include <kestrixkit/filter_ui/KXFilterSetPresetsViewController.h>
#include <kestrixkit/filters/KXFilterSet.h>

class KXThemeableTextField;

/// The content of a popover that saves a filter set as a preset: a name, and the presets library to choose the folder
/// it goes into or the preset that it replaces.
///
/// Saving cannot be undone. Where the store takes no preset the user is told, and everything is as it was. Return
/// saves, Escape closes. Main thread.
class KX_UI_EXPORT KXFilterSetPresetSaveViewController : public KXViewController,
                                                         public KXFilterSetPresetsViewControllerDelegate
{
    Q_OBJECT
    Q_PROPERTY(QString filterSetName READ filterSetName WRITE setFilterSetName NOTIFY filterSetNameChanged)
    Q_PROPERTY(bool saveEnabled READ isSaveEnabled NOTIFY saveEnabledChanged)
public:
    /// With the presets' context. A null one saves nothing.
    explicit KXFilterSetPresetSaveViewController(KXManagedObjectContext::Ref context, QObject *parent = nullptr);
    ~KXFilterSetPresetSaveViewController() override;

    [[nodiscard]] const KXManagedObjectContext::Ref &context() const { return m_context; }
    /// What is saved: a copy of it. Of any context.
    [[nodiscard]] const KXRef<KXFilterSet> &filterSet() const { return m_set; }
    void setFilterSet(const KXRef<KXFilterSet> &set) { m_set = set; }
    /// The title that the preset will have; any text, an empty one too. Follows the selected preset.
    [[nodiscard]] const QString &filterSetName() const { return m_name; }
    void setFilterSetName(const QString &name);
    /// False where a preset that must not be overwritten is selected and has the name.
    [[nodiscard]] bool isSaveEnabled() const;
    [[nodiscard]] KXFilterSetPresetsViewController *filterSetPresetsViewController() const { return m_library; }

    // Outlets; nullptr before the view is loaded.

    [[nodiscard]] KXThemeableTextField *nameTextField() const;
    [[nodiscard]] QWidget *filterSetPresetsContainerView() const;
    [[nodiscard]] KXThemeableButton *saveButton() const;
    [[nodiscard]] KXThemeableButton *cancelButton() const;

    /// Saves, and closes the popover where that was done.
    void save();
    void cancel();
    /// Takes the name of the first selected preset; a folder leaves it as it is.
    void updateFilterSetPresetName();
    /// Asks the user; everything may have changed afterwards.
    [[nodiscard]] bool confirmOverwriteOfFilterPreset();
    /// Into the selected folder, in place of the selected preset if it has the name (after a question), else last at
    /// the top. False where nothing was saved.
    bool saveFilterSetAsPreset();

    void popoverWillShow() override;
    void popoverDidShow() override;

    // KXFilterSetPresetsViewControllerDelegate

    [[nodiscard]] bool isPresetAvailable(
        KXFilterSetPresetsViewController &library, const KXRef<KXFilterSetPreset> &preset) override;
    [[nodiscard]] std::unique_ptr<KXFilterSetPresetDetailsViewController> detailsViewControllerForPreset(
        KXFilterSetPresetsViewController &library, const KXRef<KXFilterSetPreset> &preset) override;

Q_SIGNALS:
    void filterSetNameChanged();
    void saveEnabledChanged();
    void didSave(const KXRef<KXFilterSetPreset> &preset);

protected:
    void viewDidLoad() override;
    bool eventFilter(QObject *object, QEvent *event) override;

private:
    void enablingMayHaveChanged();

    const KXManagedObjectContext::Ref m_context;
    KXRef<KXFilterSet> m_set;
    QString m_name;
    bool m_wasSaveEnabled = true;
    KXFilterSetPresetsViewController *m_library;
    QPointer<KXThemeableTextField> m_nameTextField;
    QPointer<QWidget> m_container;
    QPointer<KXThemeableButton> m_saveButton, m_cancelButton;
};
