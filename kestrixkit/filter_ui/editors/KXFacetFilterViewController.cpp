#include <kestrixkit/filter_ui/editors/KXFacetFilterViewController.h>

#include <algorithm>

#include <QHeaderView>
#include <QKeyEvent>
#include <QLabel>
#include <QMouseEvent>

#include <kestrixkit/filter_ui/editors/KXFacetFilterValueDelegate_p.h>
#include <kestrixkit/filters/KXFilterSetCheck.h>
#include <kestrixkit/foundation/KXStringWithFormat.h>
#include <kestrixkit/theme/controls/KXThemeableTableView.h>
#include <kestrixkit/theme/controls/KXThemeableTextField.h>

using namespace Qt::StringLiterals;

KXFacetFilterViewController::KXFacetFilterViewController(KXRef<KXFacetFilter> filter, QObject *parent)
    : KXFilterEditorViewController(filter, parent)
    , m_filter(std::move(filter))
    , m_model(new KXFacetFilterValuesModel(m_filter, this))
{
    m_model->setOffers({});
}

KXFacetFilterViewController::~KXFacetFilterViewController() { stopOffering(); }

KXThemeableTextField *KXFacetFilterViewController::searchField() const { return m_searchField; }
KXThemeableTableView *KXFacetFilterViewController::valuesView() const { return m_valuesView; }
QLabel *KXFacetFilterViewController::noteLabel() const { return m_noteLabel; }
QWidget *KXFacetFilterViewController::firstResponder() const { return m_searchField; }
QStringList KXFacetFilterViewController::editedKeys() const { return { u"values"_s }; }

void KXFacetFilterViewController::setOffers(const QList<Offer> &offers)
{
    m_model->setOffers(offers);
    m_isArranged = false;
    offerValues();
}

void KXFacetFilterViewController::setWhatIfCounts(KXFilterSetWhatIfCounts *counts)
{
    if (m_counts) {
        m_counts->disconnect(this);
        stopOffering();
    }
    m_offeredKeyPath.clear();
    m_counts = counts;
    m_isArranged = false;
    if (counts)
        connect(counts, &KXFilterSetWhatIfCounts::countsDidChange, this, &KXFacetFilterViewController::showCounts);
    offerValues();
}

void KXFacetFilterViewController::setFilteredEntity(const KXEntityDescription *entity)
{
    m_entity = entity;
    showNote();
}

/// The counts are asked for all values that are offered.
void KXFacetFilterViewController::offerValues()
{
    const auto &offers = m_model->offers();
    const bool canCount = std::any_of(
        offers.begin(), offers.end(), [](const Offer &offer) { return offer.included == KXPredicateOperator::Equal; });
    if (m_counts && canEdit() && canCount && m_filter->localValuePredicateKeyPath()) {
        m_offeredKeyPath = *m_filter->localValuePredicateKeyPath();
        m_counts->setFacet(m_offeredKeyPath, m_model->values(), m_filter->localValuePredicateModifier(), m_filter);
        m_counts->update(); // which fails where the store does: then there are no counts
    }
    showCounts();
}

void KXFacetFilterViewController::stopOffering()
{
    const QString keyPath = std::exchange(m_offeredKeyPath, {});
    if (m_counts && !keyPath.isEmpty())
        m_counts->removeFacet(keyPath);
}

/// An editor that closes keeps those that it shows.
void KXFacetFilterViewController::showCounts()
{
    if (!m_counts || !m_offeredKeyPath.isEmpty())
        m_model->setCounts(m_counts ? m_counts->valueCounts(m_offeredKeyPath) : QList<KXWhatIfCounts::ValueCounts>());
    if (canEdit())
        m_model->readChoices();
    if (!std::exchange(m_isArranged, true))
        m_model->arrange();
    showNote();
}

// The view

void KXFacetFilterViewController::viewDidLoad()
{
    m_searchField = outlet<KXThemeableTextField>(u"searchField"_s);
    m_valuesView = outlet<KXThemeableTableView>(u"valuesView"_s);
    m_noteLabel = outlet<QLabel>(u"noteLabel"_s);
    if (m_searchField) {
        connect(m_searchField, &QLineEdit::textChanged, m_model, &KXFacetFilterValuesModel::setSearchText);
        m_searchField->installEventFilter(this);
    }
    if (KXThemeableTableView *const list = m_valuesView) {
        list->setModel(m_model);
        auto *const delegate = new KXFacetFilterValueDelegate(list);
        list->setItemDelegate(delegate);
        list->horizontalHeader()->setVisible(false);
        list->horizontalHeader()->setSectionResizeMode(QHeaderView::Stretch);
        list->verticalHeader()->setVisible(false);
        list->verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
        QStyleOptionViewItem option;
        option.fontMetrics = list->fontMetrics();
        list->verticalHeader()->setDefaultSectionSize(delegate->sizeHint(option, {}).height());
        list->setTabKeyNavigation(false);
        list->setMouseTracking(true);
        list->installEventFilter(this);
        list->viewport()->installEventFilter(this);
    }
    KXFilterEditorViewController::viewDidLoad();
    showNote();
}

void KXFacetFilterViewController::popoverWillShow()
{
    KXFilterEditorViewController::popoverWillShow();
    m_before = choices();
    if (m_offeredKeyPath.isEmpty())
        offerValues();
    m_model->arrange();
}

/// The next editor may offer values for the same key path before this one is deleted.
void KXFacetFilterViewController::popoverWillClose()
{
    KXFilterEditorViewController::popoverWillClose();
    stopOffering();
}

void KXFacetFilterViewController::filterDidChange()
{
    m_model->readChoices();
    showNote();
}

QString KXFacetFilterViewController::noteText() const
{
    const KXRef<KXFilterSet> set = m_entity && canEdit() ? m_filter->filterSet() : KXRef<KXFilterSet>();
    if (!set)
        return {};
    const KXFilterSetCheck check = KXFilterSetCheck::check(*set, m_entity);
    for (const KXFilterSetCheck::Finding &finding : check.findings()) {
        const KXFilterSetCheck::Part &part = check.parts()[finding.parts.first()];
        if (finding.problem == KXFilterSetCheck::Problem::AlwaysMatches && part.filter.get() == m_filter.get())
            return KXLocalizedString("Excluding several values keeps nothing out: each differs from one of them");
    }
    return {};
}

void KXFacetFilterViewController::showNote()
{
    if (!m_noteLabel)
        return;
    m_noteLabel->setText(noteText());
    m_noteLabel->setVisible(!m_noteLabel->text().isEmpty());
}

// Choosing

void KXFacetFilterViewController::take(const QVariant &value)
{
    for (const KXRef<KXFacetFilterValue> &held : m_filter->values()) {
        if (held->value() == value)
            m_filter->managedObjectContext()->removeManagedObject(held);
    }
}

void KXFacetFilterViewController::put(const Offer &offer, KXPredicateOperator operatorType, bool enabled)
{
    KXRef<KXFacetFilterValue> value;
    for (const KXRef<KXFacetFilterValue> &held : m_filter->values()) {
        if (!value && held->value() == offer.value)
            value = held;
    }
    if (!value) {
        value = KXFacetFilterValue::createInContext(*m_filter->managedObjectContext());
        if (!value)
            return; // which has been logged
        value->setName(offer.name);
        value->setValue(offer.value);
        value->setValueIdentifier(offer.identifier);
        value->setFilter(m_filter);
    }
    value->setOperatorType(operatorType);
    value->setEnabled(enabled);
}

void KXFacetFilterViewController::setState(const QVariant &value, State state)
{
    const auto &offers = m_model->offers();
    const auto offer
        = std::find_if(offers.begin(), offers.end(), [&value](const Offer &each) { return each.value == value; });
    if (offer == offers.end() || (state == State::Excluded && offer->included != KXPredicateOperator::Equal))
        return;
    change([&] {
        if (state == State::NotChosen)
            take(value);
        else
            put(*offer, state == State::Excluded ? KXPredicateOperator::NotEqual : offer->included, true);
    });
}

void KXFacetFilterViewController::toggleIncluded(int row)
{
    if (row >= 0 && row < m_model->rowCount())
        setState(
            m_model->offer(row).value, m_model->state(row) == State::Included ? State::NotChosen : State::Included);
}

void KXFacetFilterViewController::toggleExcluded(int row)
{
    if (row >= 0 && row < m_model->rowCount())
        setState(
            m_model->offer(row).value, m_model->state(row) == State::Excluded ? State::NotChosen : State::Excluded);
}

QList<KXFacetFilterViewController::Choice> KXFacetFilterViewController::choices() const
{
    QList<Choice> choices;
    for (const KXRef<KXFacetFilterValue> &value : canEdit() ? m_filter->values() : QList<KXRef<KXFacetFilterValue>>())
        choices.append({ { value->name().value_or(QString()), value->value(), value->valueIdentifier() },
            value->operatorType(), value->enabled() });
    return choices;
}

/// Values that were deleted meanwhile are made anew.
void KXFacetFilterViewController::revert()
{
    change([this] {
        for (const Choice &now : choices()) {
            const auto isIt = [&now](const Choice &before) { return before.offer.value == now.offer.value; };
            if (std::none_of(m_before.begin(), m_before.end(), isIt))
                take(now.offer.value);
        }
        for (const Choice &before : m_before)
            put(before.offer, before.operatorType, before.enabled);
    });
}

// Mouse and keyboard

bool KXFacetFilterViewController::pressed(QMouseEvent *event)
{
    const QModelIndex index = m_valuesView->indexAt(event->position().toPoint());
    if (!index.isValid() || event->button() != Qt::LeftButton)
        return false;
    m_valuesView->setCurrentIndex(index);
    m_valuesView->setFocus(Qt::MouseFocusReason);
    const QRect place
        = KXFacetFilterValueDelegate::exclusionRect(m_valuesView->visualRect(index), m_valuesView->layoutDirection());
    if (event->modifiers() & Qt::AltModifier || place.contains(event->position().toPoint()))
        toggleExcluded(index.row());
    else
        toggleIncluded(index.row());
    return true;
}

bool KXFacetFilterViewController::typed(QObject *object, QKeyEvent *event)
{
    const bool isInSearch = object == m_searchField;
    if (isInSearch && event->key() == Qt::Key_Down && m_valuesView) {
        if (!m_valuesView->currentIndex().isValid())
            m_valuesView->setCurrentIndex(m_model->index(0));
        m_valuesView->setFocus(Qt::TabFocusReason);
        return true;
    }
    if (isInSearch || !m_valuesView)
        return false;
    const int row = m_valuesView->currentIndex().row();
    switch (event->key()) {
    case Qt::Key_Space:
        toggleIncluded(row);
        return true;
    case Qt::Key_Minus:
    case Qt::Key_Backspace:
    case Qt::Key_Delete:
        toggleExcluded(row);
        return true;
    case Qt::Key_Up:
        if (row > 0 || !m_searchField)
            return false;
        m_searchField->setFocus(Qt::BacktabFocusReason);
        return true;
    default:
        break;
    }
    const QString text = event->text();
    if (!m_searchField || text.isEmpty() || !text[0].isPrint() || event->modifiers() & Qt::ControlModifier)
        return false;
    m_searchField->setFocus(Qt::OtherFocusReason);
    m_searchField->setText(m_searchField->text() + text);
    return true;
}

bool KXFacetFilterViewController::eventFilter(QObject *object, QEvent *event)
{
    if (m_valuesView && object == m_valuesView->viewport()) {
        if (event->type() == QEvent::MouseButtonPress || event->type() == QEvent::MouseButtonDblClick) {
            if (pressed(static_cast<QMouseEvent *>(event)))
                return true;
        }
    } else if (event->type() == QEvent::KeyPress && (object == m_valuesView || object == m_searchField)) {
        if (typed(object, static_cast<QKeyEvent *>(event)))
            return true;
    }
    return KXFilterEditorViewController::eventFilter(object, event);
}
