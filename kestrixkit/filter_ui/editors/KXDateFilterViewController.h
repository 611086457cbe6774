#pragma once

#include <kestrixkit/filter_ui/editors/KXFilterEditorViewController.h>
#include <kestrixkit/filters/KXDateFilter.h>

class KXButtonMatrixView;
QT_BEGIN_NAMESPACE
class QDateEdit;
QT_END_NAMESPACE

/// Edits a span of dates: one of the spans that move with the present, or two days of the user's own, both of them
/// included. Days are those of the clock's time zone. Main thread.
class KX_UI_EXPORT KXDateFilterViewController : public KXFilterEditorViewController
{
    Q_OBJECT
public:
    explicit KXDateFilterViewController(KXRef<KXDateFilter> filter, QObject *parent = nullptr);

    [[nodiscard]] const KXRef<KXDateFilter> &filter() const { return m_filter; }

    // Outlets; nullptr before the view is loaded.

    /// The items' values are codes of spans (KXDateRange); none is selected for a custom one.
    [[nodiscard]] KXButtonMatrixView *dateRangeControl() const;
    [[nodiscard]] QDateEdit *startDatePicker() const;
    [[nodiscard]] QDateEdit *endDatePicker() const;

    /// The user chose a span.
    void dateRangeChanged();
    /// The user chose a day.
    void datesChanged();

protected:
    void viewDidLoad() override;
    [[nodiscard]] QStringList editedKeys() const override;
    void filterDidChange() override;
    [[nodiscard]] QWidget *firstResponder() const override;

private:
    void updatePickers();

    const KXRef<KXDateFilter> m_filter;
    QPointer<KXButtonMatrixView> m_dateRangeControl;
    QPointer<QDateEdit> m_startDatePicker, m_endDatePicker;
};
