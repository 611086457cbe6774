#include <kestrixkit/filter_ui/editors/KXRangeFilterViewController.h>

#include <QLabel>

#include <kestrixkit/foundation/KXClock.h>
#include <kestrixkit/foundation/KXStringWithFormat.h>
#include <kestrixkit/theme/controls/KXThemeablePopUpButton.h>
#include <kestrixkit/theme/controls/KXThemeableTextField.h>

using namespace Qt::StringLiterals;

namespace {

void rangeFillOperators(KXThemeablePopUpButton *button)
{
    const std::pair<const char *, KXPredicateOperator> operators[] { { QT_TRANSLATE_NOOP("KestrixKit", "at least"),
                                                                         KXPredicateOperator::GreaterThanOrEqual },
        { QT_TRANSLATE_NOOP("KestrixKit", "more than"), KXPredicateOperator::GreaterThan },
        { QT_TRANSLATE_NOOP("KestrixKit", "at most"), KXPredicateOperator::LessThanOrEqual },
        { QT_TRANSLATE_NOOP("KestrixKit", "less than"), KXPredicateOperator::LessThan },
        { QT_TRANSLATE_NOOP("KestrixKit", "exactly"), KXPredicateOperator::Equal },
        { QT_TRANSLATE_NOOP("KestrixKit", "anything but"), KXPredicateOperator::NotEqual } };
    for (const auto &[title, code] : operators)
        button->addItem(KXLocalizedString(title), int(code));
}

/// A code that is not offered shows nothing.
void rangeSelectOperator(KXThemeablePopUpButton *button, KXPredicateOperator code)
{
    if (button)
        button->setCurrentIndex(button->findData(int(code)));
}

KXPredicateOperator rangeOperatorOf(const KXThemeablePopUpButton *button, KXPredicateOperator otherwise)
{
    const QVariant code = button ? button->currentData() : QVariant();
    return code.isValid() ? KXPredicateOperator(code.toInt()) : otherwise;
}

}

KXRangeFilterViewController::KXRangeFilterViewController(KXRef<KXRangeFilter> filter, QObject *parent)
    : KXFilterEditorViewController(filter, parent)
    , m_filter(std::move(filter))
{
}

KXThemeableTextField *KXRangeFilterViewController::startValueField() const { return m_startValueField; }
KXThemeableTextField *KXRangeFilterViewController::endValueField() const { return m_endValueField; }
KXThemeablePopUpButton *KXRangeFilterViewController::startValueOperatorTypeButton() const
{
    return m_startOperatorButton;
}
KXThemeablePopUpButton *KXRangeFilterViewController::endValueOperatorTypeButton() const { return m_endOperatorButton; }
QWidget *KXRangeFilterViewController::firstResponder() const { return m_startValueField; }

QStringList KXRangeFilterViewController::editedKeys() const
{
    return { u"startValue"_s, u"endValue"_s, u"startValueOperatorType"_s, u"endValueOperatorType"_s };
}

void KXRangeFilterViewController::setUnitText(const QString &text)
{
    m_unitText = text;
    if (!isViewLoaded())
        return;
    for (const QString &name : { u"startUnitLabel"_s, u"endUnitLabel"_s }) {
        if (auto *const label = view()->findChild<QLabel *>(name)) {
            label->setText(text);
            label->setVisible(!text.isEmpty());
        }
    }
}

void KXRangeFilterViewController::viewDidLoad()
{
    m_startValueField = outlet<KXThemeableTextField>(u"startValueField"_s);
    m_endValueField = outlet<KXThemeableTextField>(u"endValueField"_s);
    m_startOperatorButton = outlet<KXThemeablePopUpButton>(u"startValueOperatorTypeButton"_s);
    m_endOperatorButton = outlet<KXThemeablePopUpButton>(u"endValueOperatorTypeButton"_s);
    for (KXThemeablePopUpButton *const button : { m_startOperatorButton.data(), m_endOperatorButton.data() }) {
        if (!button)
            continue;
        rangeFillOperators(button);
        connect(button, &QComboBox::activated, this, &KXRangeFilterViewController::rangeValuesChanged);
    }
    for (KXThemeableTextField *const field : { m_startValueField.data(), m_endValueField.data() }) {
        if (!field)
            continue;
        connect(field, &QLineEdit::textEdited, this,
            [this] { m_takeOverSoon.start(typingDelay, [this] { rangeValuesChanged(); }); });
        connect(field, &QLineEdit::editingFinished, this, &KXRangeFilterViewController::commitTyping);
    }
    setUnitText(m_unitText);
    KXFilterEditorViewController::viewDidLoad();
}

void KXRangeFilterViewController::filterDidChange()
{
    m_takeOverSoon.cancel();
    const auto show = [](KXThemeableTextField *field, const std::optional<KXDecimal> &value) {
        if (field && numberOfText(field->text()) != value)
            field->setText(textOfNumber(value));
    };
    show(m_startValueField, m_filter->startValue());
    show(m_endValueField, m_filter->endValue());
    rangeSelectOperator(m_startOperatorButton, m_filter->startValueOperatorType());
    rangeSelectOperator(m_endOperatorButton, m_filter->endValueOperatorType());
}

void KXRangeFilterViewController::commitTyping()
{
    const auto differs = [](const KXThemeableTextField *field, const std::optional<KXDecimal> &value) {
        return field && field->text() != textOfNumber(value) && numberOfText(field->text()) != value;
    };
    const QPointer<KXRangeFilterViewController> alive(this);
    // Assistive technology sets a text without typing it.
    if (m_takeOverSoon.isPending()
        || (canEdit()
            && (differs(m_startValueField, m_filter->startValue()) || differs(m_endValueField, m_filter->endValue()))))
        rangeValuesChanged();
    if (!alive)
        return;
    // What is no number was taken for an open end, and shows as one.
    for (KXThemeableTextField *const field : { m_startValueField.data(), m_endValueField.data() }) {
        if (field && !numberOfText(field->text()))
            field->clear();
    }
}

void KXRangeFilterViewController::rangeValuesChanged()
{
    m_takeOverSoon.cancel();
    if (!m_startValueField || !m_endValueField)
        return;
    change([this] {
        m_filter->setStartValue(numberOfText(m_startValueField->text()));
        m_filter->setEndValue(numberOfText(m_endValueField->text()));
        m_filter->setStartValueOperatorType(rangeOperatorOf(m_startOperatorButton, m_filter->startValueOperatorType()));
        m_filter->setEndValueOperatorType(rangeOperatorOf(m_endOperatorButton, m_filter->endValueOperatorType()));
    });
}

std::optional<KXDecimal> KXRangeFilterViewController::numberOfText(const QString &text)
{
    return KXDecimal::fromLocalText(text, KXClock::locale());
}

QString KXRangeFilterViewController::textOfNumber(const std::optional<KXDecimal> &number)
{
    QString text = number ? number->toString() : QString();
    return text.replace(u"."_s, KXClock::locale().decimalPoint());
}
