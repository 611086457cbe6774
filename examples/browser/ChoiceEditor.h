#pragma once

#include <QLineEdit>

#include <kestrixkit/filter_ui/editors/KXFilterEditorViewController.h>
#include <kestrixkit/filters/KXFacetFilter.h>

#include "FilterTypes.h"

class ChoiceModel;
class KXSourceListView;

/// Edits a choice among the library's values: a list of them with a field to find some. A click, Space or Return choose
/// a value or take it away; tracks with any of the chosen ones fit.
class ChoiceEditor : public KXFilterEditorViewController
{
    Q_OBJECT
public:
    explicit ChoiceEditor(KXRef<KXFacetFilter> filter);

    [[nodiscard]] QLineEdit *searchField() const { return m_search; }
    [[nodiscard]] KXSourceListView *list() const { return m_list; }

    void revert() override;
    void popoverWillShow() override;

protected:
    void loadView() override;
    [[nodiscard]] QStringList editedKeys() const override { return { QStringLiteral("values") }; }
    void filterDidChange() override;
    [[nodiscard]] QWidget *firstResponder() const override;
    bool eventFilter(QObject *object, QEvent *event) override;

private:
    void toggle(const QModelIndex &row);
    void setChosen(const QList<FilterTypes::Choice> &choices);
    [[nodiscard]] QList<FilterTypes::Choice> chosen() const;

    const KXRef<KXFacetFilter> m_facet;
    QList<FilterTypes::Choice> m_before;
    ChoiceModel *m_model = nullptr;
    QPointer<QLineEdit> m_search;
    QPointer<KXSourceListView> m_list;
};

/// Edits a text filter: tracks whose text holds what is typed, whatever its case.
class TextEditor : public KXFilterEditorViewController
{
    Q_OBJECT
public:
    explicit TextEditor(KXRef<KXFacetFilter> filter);

    [[nodiscard]] QLineEdit *field() const { return m_field; }
    void commitTyping() override;
    void revert() override;
    void popoverWillShow() override;

protected:
    void loadView() override;
    [[nodiscard]] QStringList editedKeys() const override { return { QStringLiteral("values") }; }
    void filterDidChange() override;
    [[nodiscard]] QWidget *firstResponder() const override;

private:
    void setText(const QString &text);
    [[nodiscard]] QString text() const;

    const KXRef<KXFacetFilter> m_facet;
    QString m_before;
    QPointer<QLineEdit> m_field;
};
