#include "ChoiceEditor.h"

#include <QAbstractListModel>
#include <QBoxLayout>
#include <QKeyEvent>

#include <kestrixkit/filter_ui/KXFacetFilterValueCellView.h>
#include <kestrixkit/source_list/KXSourceListView.h>
#include <kestrixkit/theme/KXStandardTheme.h>
#include <kestrixkit/theme/KXThemeStyleNames.h>
#include <kestrixkit/theme/controls/KXThemeableTextField.h>

#include "BrowserStyle.h"

using namespace Qt::StringLiterals;

using Choice = FilterTypes::Choice;

/// The values that can be chosen, less those that the search leaves out.
class ChoiceModel : public QAbstractListModel
{
public:
    ChoiceModel(QList<Choice> all, KXRef<KXFacetFilter> filter, QObject *parent)
        : QAbstractListModel(parent)
        , m_all(std::move(all))
        , m_shown(m_all)
        , m_filter(std::move(filter))
        , m_check(KXStandardTheme::icon(u":/kestrixkit/icons/check.svg"_s, BrowserStyle::accent()))
    {
    }
    int rowCount(const QModelIndex &parent = {}) const override { return parent.isValid() ? 0 : int(m_shown.size()); }
    QVariant data(const QModelIndex &index, int role) const override
    {
        const Choice &choice = m_shown[index.row()];
        const KXRef<KXFacetFilterValue> value = valueOf(choice);
        if (role == Qt::CheckStateRole)
            return value ? Qt::Checked : Qt::Unchecked;
        if (role == Qt::DisplayRole || role == Qt::AccessibleTextRole)
            return value ? KXFacetFilterValueCellView::titleOfValue(*value) : choice.name;
        if (role != KXSourceListView::CellRole)
            return {};
        KXSourceListCell cell;
        cell.isExpandable = false;
        cell.title = choice.name;
        if (value) {
            KXFacetFilterValueCellView(cell).setFacetFilterValue(value);
            cell.image = m_check;
        }
        return QVariant::fromValue(cell);
    }
    void search(const QString &text)
    {
        beginResetModel();
        m_shown.clear();
        for (const Choice &choice : std::as_const(m_all)) {
            if (choice.name.contains(text, Qt::CaseInsensitive))
                m_shown.append(choice);
        }
        endResetModel();
    }
    void filterDidChange()
    {
        m_values.clear();
        for (const auto &value : m_filter->values())
            m_values.insert(value->value().toString(), value);
        if (!m_shown.isEmpty())
            Q_EMIT dataChanged(index(0), index(int(m_shown.size()) - 1));
    }
    [[nodiscard]] const Choice &choice(const QModelIndex &row) const { return m_shown[row.row()]; }
    [[nodiscard]] KXRef<KXFacetFilterValue> valueOf(const Choice &choice) const
    {
        return m_values.value(choice.value.toString());
    }

private:
    const QList<Choice> m_all;
    QList<Choice> m_shown;
    const KXRef<KXFacetFilter> m_filter;
    const QIcon m_check;
    QHash<QString, KXRef<KXFacetFilterValue>> m_values; // of the filter, by what they stand for
};

namespace {

void addChoice(KXFacetFilter &filter, const Choice &choice)
{
    const auto value = KXFacetFilterValue::createInContext(*filter.managedObjectContext());
    if (!value)
        return;
    value->setName(choice.name);
    value->setValue(choice.value);
    value->setOperatorType(choice.included);
    filter.addToValues(value);
}

void removeValues(KXFacetFilter &filter)
{
    for (const auto &value : filter.values())
        filter.managedObjectContext()->removeManagedObject(value);
}

} // namespace

ChoiceEditor::ChoiceEditor(KXRef<KXFacetFilter> filter)
    : KXFilterEditorViewController(filter)
    , m_facet(std::move(filter))
{
}

void ChoiceEditor::loadView()
{
    auto *const pane = new QWidget;
    auto *const rows = new QVBoxLayout(pane);
    rows->setContentsMargins(4, 4, 4, 4);
    auto *const search = new KXThemeableTextField;
    search->setThemeStyleName(KXTextFieldStyles);
    search->setPlaceholderText(tr("Find"));
    search->setAccessibleName(tr("Find a value"));
    search->setClearButtonEnabled(true);
    search->installEventFilter(this);
    rows->addWidget(search);
    auto *const list = new KXSourceListView;
    m_model = new ChoiceModel(
        canEdit() ? FilterTypes::choicesFor(*m_facet->managedObjectContext(), *m_facet) : QList<Choice>(), m_facet,
        list);
    list->setModel(m_model);
    list->setAccessibleName(title());
    list->setRootIsDecorated(false);
    list->setPlaceholderText(tr("Nothing to choose from"));
    list->setMinimumSize(260, 280);
    list->installEventFilter(this);
    rows->addWidget(list);
    m_search = search;
    m_list = list;
    connect(search, &QLineEdit::textChanged, this, [this](const QString &text) {
        m_model->search(text.trimmed());
        m_list->setCurrentIndex(m_model->index(0));
    });
    connect(list, &QAbstractItemView::clicked, this, &ChoiceEditor::toggle);
    setView(pane);
}

QWidget *ChoiceEditor::firstResponder() const { return m_search; }

void ChoiceEditor::filterDidChange()
{
    if (m_model)
        m_model->filterDidChange();
}

QList<Choice> ChoiceEditor::chosen() const
{
    QList<Choice> choices;
    for (const auto &value : m_facet->values())
        choices.append({ value->name().value_or(QString()), value->value(), value->operatorType() });
    return choices;
}

void ChoiceEditor::popoverWillShow()
{
    KXFilterEditorViewController::popoverWillShow();
    m_before = canEdit() ? chosen() : QList<Choice>();
}

void ChoiceEditor::revert() { setChosen(m_before); }

void ChoiceEditor::setChosen(const QList<Choice> &choices)
{
    change([&] {
        removeValues(*m_facet);
        for (const Choice &choice : choices)
            addChoice(*m_facet, choice);
    });
    filterDidChange();
}

void ChoiceEditor::toggle(const QModelIndex &row)
{
    if (!row.isValid())
        return;
    const Choice choice = m_model->choice(row);
    const KXRef<KXFacetFilterValue> value = m_model->valueOf(choice);
    change([&] {
        if (value)
            m_facet->managedObjectContext()->removeManagedObject(value);
        else
            addChoice(*m_facet, choice);
    });
    if (canEdit())
        m_model->filterDidChange();
}

bool ChoiceEditor::eventFilter(QObject *object, QEvent *event)
{
    if (event->type() == QEvent::KeyPress && (object == m_search || object == m_list)) {
        const int key = static_cast<QKeyEvent *>(event)->key();
        if (object == m_search && key == Qt::Key_Down) {
            m_list->setFocus();
            if (!m_list->currentIndex().isValid())
                m_list->setCurrentIndex(m_model->index(0));
            return true;
        }
        if (object == m_list && key == Qt::Key_Space) {
            toggle(m_list->currentIndex());
            return true;
        }
    }
    return KXFilterEditorViewController::eventFilter(object, event);
}

// Texts

TextEditor::TextEditor(KXRef<KXFacetFilter> filter)
    : KXFilterEditorViewController(filter)
    , m_facet(std::move(filter))
{
}

void TextEditor::loadView()
{
    auto *const pane = new QWidget;
    auto *const rows = new QVBoxLayout(pane);
    rows->setContentsMargins(8, 8, 8, 8);
    auto *const field = new KXThemeableTextField;
    field->setThemeStyleName(KXTextFieldStyles);
    field->setPlaceholderText(tr("holds…"));
    field->setAccessibleName(tr("%1 holds").arg(title()));
    field->setMinimumWidth(240);
    rows->addWidget(field);
    m_field = field;
    connect(field, &QLineEdit::editingFinished, this, &TextEditor::commitTyping);
    setView(pane);
}

QWidget *TextEditor::firstResponder() const { return m_field; }

QString TextEditor::text() const
{
    const auto values = m_facet->values();
    return values.isEmpty() ? QString() : values.first()->name().value_or(QString());
}

void TextEditor::filterDidChange()
{
    if (m_field && m_field->text() != text())
        m_field->setText(text());
}

void TextEditor::popoverWillShow()
{
    KXFilterEditorViewController::popoverWillShow();
    m_before = canEdit() ? text() : QString();
}

void TextEditor::revert() { setText(m_before); }

void TextEditor::commitTyping()
{
    if (m_field && canEdit() && m_field->text() != text())
        setText(m_field->text());
}

void TextEditor::setText(const QString &text)
{
    change([&] {
        removeValues(*m_facet);
        if (!text.trimmed().isEmpty())
            addChoice(*m_facet, { text, FilterTypes::patternOfText(text), KXPredicateOperator::Matches });
    });
}
