#pragma once

#include <kestrixkit/filter_ui/editors/KXFacetFilterValuesModel.h>
#include <kestrixkit/filter_ui/editors/KXFilterEditorViewController.h>
#include <kestrixkit/filters/KXFilterSetWhatIfCounts.h>

class KXEntityDescription;
class KXThemeableTableView;
class KXThemeableTextField;
QT_BEGIN_NAMESPACE
class QLabel;
QT_END_NAMESPACE

/// Edits a choice among values: a search field above the values that are offered, those first that bring most.
///
/// A click on a value includes it, or lets go of it; a click on the mark at its end, or with Alt, excludes it. From the
/// keyboard: the arrow keys lead from the search field into the list, Space includes, Minus, Backspace and Delete
/// exclude; what is typed in the list is searched for. Beside each value stands how many objects the list would have
/// with it; one that would leave nothing is paler, and can be chosen all the same. Main thread.
class KX_UI_EXPORT KXFacetFilterViewController : public KXFilterEditorViewController
{
    Q_OBJECT
public:
    using Offer = KXFacetFilterValuesModel::Offer;
    using State = KXFacetFilterValuesModel::State;

    explicit KXFacetFilterViewController(KXRef<KXFacetFilter> filter, QObject *parent = nullptr);
    ~KXFacetFilterViewController() override;

    [[nodiscard]] const KXRef<KXFacetFilter> &filter() const { return m_filter; }
    void setOffers(const QList<Offer> &offers);
    /// Counts of the set that the filter is in; until the editor closes they offer its values for the filter's key
    /// path. nullptr: no counts are shown. Borrowed.
    void setWhatIfCounts(KXFilterSetWhatIfCounts *counts);
    /// What is filtered, so that the editor can say when an exclusion has no effect. nullptr: it does not.
    void setFilteredEntity(const KXEntityDescription *entity);

    [[nodiscard]] KXFacetFilterValuesModel *valuesModel() const { return m_model; }
    /// Includes, excludes or lets go of a value; saved, without a step to undo.
    void setState(const QVariant &value, State state);
    /// Includes the row's value, or lets go of it.
    void toggleIncluded(int row);
    void toggleExcluded(int row);
    /// Why an exclusion has no effect; empty where there is nothing to say.
    [[nodiscard]] QString noteText() const;

    // Outlets; nullptr before the view is loaded.

    [[nodiscard]] KXThemeableTextField *searchField() const;
    [[nodiscard]] KXThemeableTableView *valuesView() const;
    [[nodiscard]] QLabel *noteLabel() const;

    void revert() override;
    void popoverWillShow() override;
    void popoverWillClose() override;

protected:
    void viewDidLoad() override;
    [[nodiscard]] QStringList editedKeys() const override;
    void filterDidChange() override;
    [[nodiscard]] QWidget *firstResponder() const override;
    bool eventFilter(QObject *object, QEvent *event) override;

private:
    struct Choice
    {
        Offer offer;
        KXPredicateOperator operatorType;
        bool enabled;
    };

    void offerValues();
    void stopOffering();
    void showCounts();
    void showNote();
    void put(const Offer &offer, KXPredicateOperator operatorType, bool enabled);
    void take(const QVariant &value);
    [[nodiscard]] QList<Choice> choices() const;
    [[nodiscard]] bool pressed(QMouseEvent *event);
    [[nodiscard]] bool typed(QObject *object, QKeyEvent *event);

    const KXRef<KXFacetFilter> m_filter;
    KXFacetFilterValuesModel *const m_model;
    const KXEntityDescription *m_entity = nullptr;
    QPointer<KXFilterSetWhatIfCounts> m_counts;
    QString m_offeredKeyPath;
    bool m_isArranged = false;
    QList<Choice> m_before;
    QPointer<KXThemeableTextField> m_searchField;
    QPointer<KXThemeableTableView> m_valuesView;
    QPointer<QLabel> m_noteLabel;
};
