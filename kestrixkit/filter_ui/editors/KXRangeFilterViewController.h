#pragma once

#include <kestrixkit/filter_ui/editors/KXFilterEditorViewController.h>
#include <kestrixkit/filters/KXRangeFilter.h>
#include <kestrixkit/foundation/KXDelayedCall.h>

class KXThemeablePopUpButton;
class KXThemeableTextField;

/// Edits a range of numbers: two bounds, each with its comparison. A field that is empty, or holds no number, is an
/// open end. Numbers are written and read with the locale's decimal separator; a point will do where the locale has
/// another one. Main thread.
class KX_UI_EXPORT KXRangeFilterViewController : public KXFilterEditorViewController
{
    Q_OBJECT
public:
    static constexpr double typingDelay = 0.2; ///< seconds from the last key until what is typed is taken over

    explicit KXRangeFilterViewController(KXRef<KXRangeFilter> filter, QObject *parent = nullptr);

    [[nodiscard]] const KXRef<KXRangeFilter> &filter() const { return m_filter; }
    /// What the numbers are of ("bpm"); shown beside them.
    void setUnitText(const QString &text);

    // Outlets; nullptr before the view is loaded.

    [[nodiscard]] KXThemeableTextField *startValueField() const;
    [[nodiscard]] KXThemeableTextField *endValueField() const;
    /// The items' data are codes of comparisons (KXPredicateOperator).
    [[nodiscard]] KXThemeablePopUpButton *startValueOperatorTypeButton() const;
    [[nodiscard]] KXThemeablePopUpButton *endValueOperatorTypeButton() const;

    /// Writes both bounds and comparisons into the filter and saves.
    void rangeValuesChanged();
    void commitTyping() override;

    /// The number that a text stands for in the clock's locale; absent for an empty text and for one that is no number.
    [[nodiscard]] static std::optional<KXDecimal> numberOfText(const QString &text);
    [[nodiscard]] static QString textOfNumber(const std::optional<KXDecimal> &number);

protected:
    void viewDidLoad() override;
    [[nodiscard]] QStringList editedKeys() const override;
    void filterDidChange() override;
    [[nodiscard]] QWidget *firstResponder() const override;

private:
    const KXRef<KXRangeFilter> m_filter;
    QString m_unitText;
    KXDelayedCall m_takeOverSoon { this };
    QPointer<KXThemeableTextField> m_startValueField, m_endValueField;
    QPointer<KXThemeablePopUpButton> m_startOperatorButton, m_endOperatorButton;
};
