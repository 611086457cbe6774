#pragma once

#include <memory>

#include <QWidget>

#include <kestrixkit/filters/KXFilter.h>

class KXFilterButton;
class KXObserver;
class KXThemeableTextField;

/// One filter in the filter bar: its name, and below it a button with what it asks for. Follows the filter. Main
/// thread.
class KX_UI_EXPORT KXFilterBarFilterView : public QWidget
{
    Q_OBJECT
public:
    explicit KXFilterBarFilterView(KXRef<KXFilter> filter, QWidget *parent = nullptr);
    ~KXFilterBarFilterView() override;

    [[nodiscard]] const KXRef<KXFilter> &filter() const { return m_filter; }
    [[nodiscard]] KXThemeableTextField *label() const { return m_label; }
    [[nodiscard]] KXFilterButton *button() const { return m_button; }

    /// What is wrong with the filter; empty for nothing.
    [[nodiscard]] const QString &problem() const { return m_problem; }
    void setProblem(const QString &problem);

    /// Shows the filter as it is now.
    void refresh();
    /// What the filter asks for, in few words: the user's own label; else bounds as "112 – 126", dates and values as
    /// the default label has them; "Any" for a filter that asks for nothing.
    [[nodiscard]] static QString textOfFilter(const KXFilter &filter);

    /// As wide as the label where that is wider than the button, else ten points wider than the button.
    [[nodiscard]] QSize sizeHint() const override;
    [[nodiscard]] QSize minimumSizeHint() const override { return sizeHint(); }

protected:
    void resizeEvent(QResizeEvent *event) override;
    void changeEvent(QEvent *event) override;
    bool event(QEvent *event) override;

private:
    void place();

    const KXRef<KXFilter> m_filter;
    KXThemeableTextField *m_label;
    KXFilterButton *m_button;
    QString m_problem;
    QList<std::shared_ptr<KXObserver>> m_observers;
};
