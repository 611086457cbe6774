#pragma once

#include <kestrixkit/filters/KXFilterDefaultValue.h>
#include <kestrixkit/foundation/KXWeakDelegate.h>
#include <kestrixkit/toolkit/KXViewController.h>

class KXButtonMatrixView;
class KXFilterSetManagerViewController;

/// What the grid of filter types tells.
class KX_UI_EXPORT KXFilterSetManagerViewControllerDelegate
{
public:
    virtual ~KXFilterSetManagerViewControllerDelegate();
    /// The user chose a type. Its popover, if it was in one, has closed.
    virtual void addFilterOfType(KXFilterSetManagerViewController &manager, const KXFilterTypeItem &type) = 0;
};

/// Offers kinds of filters as a grid of buttons, in a popover. Main thread.
class KX_UI_EXPORT KXFilterSetManagerViewController : public KXViewController
{
    Q_OBJECT
public:
    static constexpr QSize buttonSize { 100, 20 }; ///< in points; higher where the font needs it

    explicit KXFilterSetManagerViewController(QObject *parent = nullptr);

    [[nodiscard]] const QList<KXFilterTypeItem> &allowedFilterTypeItems() const { return m_items; }
    void setAllowedFilterTypeItems(const QList<KXFilterTypeItem> &items);
    [[nodiscard]] KXFilterSetManagerViewControllerDelegate *delegate() const { return m_delegate.get(); }
    void setDelegate(KXFilterSetManagerViewControllerDelegate *delegate) { m_delegate.set(delegate); }

    /// The grid: values are places of the types. nullptr before the view is loaded.
    [[nodiscard]] KXButtonMatrixView *filterTypeSelectionMatrix() const;
    /// A column for each of up to three types; of more four where that makes full rows, else five. At least one.
    [[nodiscard]] static int columnsForTypes(qsizetype count);

    void popoverDidShow() override;

protected:
    void viewDidLoad() override;

private:
    void fill();
    void buttonMatrixViewSelectionDidChange();
    void addSelected();

    QList<KXFilterTypeItem> m_items;
    KXWeakDelegate<KXFilterSetManagerViewControllerDelegate> m_delegate;
    QPointer<KXButtonMatrixView> m_matrix;
};
