#pragma once

#include <kestrixkit/filters/KXFilter.h>
#include <kestrixkit/foundation/KXNotificationCenter.h>
#include <kestrixkit/toolkit/KXViewController.h>

class KXObserver;

/// Base of editors of one filter, shown in a popover: what the user sets is written through at once, without a step to
/// undo, and saved.
///
/// Return takes over what is being typed and closes the popover. Escape takes back what was set since it opened, and
/// closes it. An editor follows its filter, and closes when that goes. Main thread.
class KX_UI_EXPORT KXFilterEditorViewController : public KXViewController
{
    Q_OBJECT
public:
    explicit KXFilterEditorViewController(KXRef<KXFilter> filter, QObject *parent = nullptr);
    ~KXFilterEditorViewController() override;

    [[nodiscard]] const KXRef<KXFilter> &editedFilter() const { return m_filter; }
    /// Whether the filter is still there to be edited.
    [[nodiscard]] bool canEdit() const;

    /// Takes over at once what is being typed. Nothing unless overridden.
    virtual void commitTyping();
    /// Gives the filter the values again that it had when the popover opened.
    virtual void revert();

    void popoverWillShow() override;
    void popoverDidShow() override;
    void popoverWillClose() override;

protected:
    /// What the editor sets: the keys that are followed and reverted.
    [[nodiscard]] virtual QStringList editedKeys() const = 0;
    /// Shows the filter as it is; called once when the editor itself has changed it, not meanwhile.
    virtual void filterDidChange() = 0;
    /// What gets the focus when the popover has opened.
    [[nodiscard]] virtual QWidget *firstResponder() const { return nullptr; }
    /// Runs the function with undo registration off, saves, and shows what has become of it. Nothing for a filter that
    /// is gone. Whoever is told may end the editor: do not look at it afterwards.
    void change(const std::function<void()> &set);
    void viewDidLoad() override;
    bool eventFilter(QObject *object, QEvent *event) override;

private:
    const KXRef<KXFilter> m_filter;
    QVariantMap m_before;
    bool m_isChanging = false;
    bool m_isShown = false;
    QList<std::shared_ptr<KXObserver>> m_observers;
    KXNotificationToken m_changes;
};
