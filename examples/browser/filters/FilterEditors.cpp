#include "filters/FilterEditors.h"

#include <algorithm>
#include <numeric>

#include <QBoxLayout>
#include <QGridLayout>

#include <kestrixkit/foundation/KXClock.h>
#include <kestrixkit/theme/KXThemeStyleNames.h>
#include <kestrixkit/theme/controls/KXThemeableButton.h>
#include <kestrixkit/theme/controls/KXThemeableTextField.h>

#include "filters/FilterTypes.h"

using namespace Qt::StringLiterals;

namespace {

KXThemeableButton *editorButton(const QString &title, const QString &toolTip)
{
    auto *const button = new KXThemeableButton(title);
    button->setThemeStyleName(KXButtonStyles);
    button->setToolTip(toolTip);
    return button;
}

} // namespace

// Values

TrackFacetEditor::TrackFacetEditor(
    KXRef<KXFacetFilter> filter, const KXRef<Track> &trackAtHand, KXFilterSetWhatIfCounts *counts)
    : KXFacetFilterViewController(std::move(filter))
{
    if (!canEdit())
        return;
    m_all = FilterTypes::choicesFor(*this->filter()->managedObjectContext(), *this->filter());
    if (trackAtHand && FilterTypes::isOfKeys(*this->filter()))
        m_keyOrder = trackAtHand->keyOrder();
    if (counts && m_all.size() > mostOffers)
        putMostFirst(*counts);
    setOffers(m_all.first(std::min(mostOffers, m_all.size())));
    setWhatIfCounts(counts);
}

KXThemeableButton *TrackFacetEditor::fittingButton() const { return m_fitting; }

void TrackFacetEditor::putMostFirst(KXFilterSetWhatIfCounts &counts)
{
    const QString keyPath = filter()->localValuePredicateKeyPath().value_or(QString());
    QVariantList values;
    for (const Offer &offer : std::as_const(m_all))
        values.append(offer.value);
    counts.setFacet(keyPath, values, filter()->localValuePredicateModifier(), filter());
    counts.update();
    const QList<KXWhatIfCounts::ValueCounts> numbers = counts.valueCounts(keyPath);
    counts.removeFacet(keyPath);
    if (numbers.size() != m_all.size())
        return; // the store does not answer: by name
    QList<qsizetype> order(m_all.size());
    std::iota(order.begin(), order.end(), 0);
    std::stable_sort(order.begin(), order.end(),
        [&numbers](qsizetype a, qsizetype b) { return numbers[a].added > numbers[b].added; });
    QList<Offer> sorted;
    for (const qsizetype at : std::as_const(order))
        sorted.append(m_all[at]);
    m_all = sorted;
}

void TrackFacetEditor::viewDidLoad()
{
    if (auto *const rows = qobject_cast<QBoxLayout *>(view()->layout()); rows && m_keyOrder) {
        m_fitting = editorButton(tr("Keys That Fit %1").arg(FilterTypes::keyCode(*m_keyOrder)),
            tr("The key of the track that plays or is selected, its neighbours on the wheel and its relative"));
        rows->addWidget(m_fitting, 0, Qt::AlignLeft);
        connect(m_fitting, &QPushButton::clicked, this, &TrackFacetEditor::takeFittingKeys);
    }
    KXFacetFilterViewController::viewDidLoad();
    if (searchField() && m_all.size() > mostOffers)
        connect(searchField(), &QLineEdit::textChanged, this, &TrackFacetEditor::offer);
}

/// Searches all values, not only those that are offered at first.
void TrackFacetEditor::offer(const QString &search)
{
    const QString sought = KXFacetFilterValuesModel::foldedText(search.trimmed());
    QList<Offer> offers;
    for (const Offer &offer : std::as_const(m_all)) {
        if (offers.size() == mostOffers)
            break;
        if (KXFacetFilterValuesModel::foldedText(offer.name).contains(sought))
            offers.append(offer);
    }
    setOffers(offers);
}

void TrackFacetEditor::takeFittingKeys()
{
    change([this] { FilterTypes::setFittingKeys(*filter(), *m_keyOrder); });
}

// Numbers

TrackRangeEditor::TrackRangeEditor(
    KXRef<KXRangeFilter> filter, const KXRef<Track> &trackAtHand, KXFilterSetWhatIfCounts *counts)
    : KXDistributionFilterViewController(std::move(filter))
{
    if (!canEdit())
        return;
    setUnitText(FilterTypes::unitOf(*this->filter()));
    if (trackAtHand && FilterTypes::isOfTempos(*this->filter()))
        m_bpm = trackAtHand->bpm();
    setWhatIfCounts(counts);
}

KXThemeableButton *TrackRangeEditor::aroundButton() const { return m_around; }

void TrackRangeEditor::viewDidLoad()
{
    KXDistributionFilterViewController::viewDidLoad();
    auto *const grid = qobject_cast<QGridLayout *>(view()->layout());
    if (!grid || !m_bpm)
        return;
    const QLocale locale = KXClock::locale();
    m_around = editorButton(tr("%1 bpm ± %2 %")
                                .arg(locale.toString(*m_bpm, 'f', 1))
                                .arg(locale.toString(FilterTypes::tempoTolerance * 100)),
        tr("Around the track that plays or is selected: what a pitch fader bridges"));
    grid->addWidget(m_around, grid->rowCount(), 0, 1, grid->columnCount(), Qt::AlignLeft);
    connect(m_around, &QPushButton::clicked, this, &TrackRangeEditor::takeTempoAround);
}

void TrackRangeEditor::takeTempoAround()
{
    change([this] { FilterTypes::setTempoAround(*filter(), *m_bpm); });
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
        FilterTypes::removeValues(*m_facet);
        if (!text.trimmed().isEmpty())
            FilterTypes::addValue(
                *m_facet, { text, FilterTypes::patternOfText(text), {}, KXPredicateOperator::Matches });
    });
}
