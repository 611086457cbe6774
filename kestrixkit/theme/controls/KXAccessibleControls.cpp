// What assistive technology is told of the controls.

#include <kestrixkit/theme/controls/KXControlAccessibility_p.h>

#include <functional>
#include <mutex>
#include <numeric>

#include <QAbstractItemView>
#include <QAccessibleWidget>
#include <QSplitter>
#include <QToolButton>

#include <kestrixkit/foundation/KXStringWithFormat.h>
#include <kestrixkit/theme/controls/KXAccessibleWrapping_p.h>
#include <kestrixkit/theme/controls/KXBadge.h>
#include <kestrixkit/theme/controls/KXHyperlinkButton.h>
#include <kestrixkit/theme/controls/KXItemViewAccessibility_p.h>
#include <kestrixkit/theme/controls/KXPopoverFrame.h>
#include <kestrixkit/theme/controls/KXStarRating.h>
#include <kestrixkit/theme/controls/KXThemeableOutlineView.h>
#include <kestrixkit/theme/controls/KXThemeablePopUpButton.h>
#include <kestrixkit/theme/controls/KXThemeableSegmentedControl.h>
#include <kestrixkit/theme/controls/KXThemeableSpinningProgressIndicator.h>
#include <kestrixkit/theme/controls/KXThemeableTableView.h>
#include <kestrixkit/theme/controls/KXThemeableTextField.h>

using namespace Qt::StringLiterals;

namespace {

using SegmentedControl = KXThemeableSegmentedControl;

/// One segment: a radio button, check box or push button, by the control's mode.
class AccessibleSegment : public QAccessibleInterface, public QAccessibleActionInterface
{
public:
    AccessibleSegment(SegmentedControl *control, int index)
        : m_control(control)
        , m_index(index)
    {
    }

    bool isValid() const override { return m_control && m_index < m_control->segments().size(); }
    QObject *object() const override { return nullptr; }
    QAccessibleInterface *parent() const override { return QAccessible::queryAccessibleInterface(m_control); }
    QAccessibleInterface *child(int) const override { return nullptr; }
    QAccessibleInterface *childAt(int, int) const override { return nullptr; }
    int childCount() const override { return 0; }
    int indexOfChild(const QAccessibleInterface *) const override { return -1; }
    QString text(QAccessible::Text kind) const override
    {
        return isValid() && kind == QAccessible::Name ? m_control->segments()[m_index].label : QString();
    }
    void setText(QAccessible::Text, const QString &) override { }
    QRect rect() const override
    {
        return isValid() ? m_control->segmentRect(m_index).translated(m_control->mapToGlobal(QPoint())) : QRect();
    }
    QAccessible::Role role() const override
    {
        if (!m_control || m_control->trackingMode() == SegmentedControl::Momentary)
            return QAccessible::Button;
        return m_control->trackingMode() == SegmentedControl::SelectOne ? QAccessible::RadioButton
                                                                        : QAccessible::CheckBox;
    }
    QAccessible::State state() const override
    {
        QAccessible::State state;
        if (!isValid()) {
            state.invalid = true;
            return state;
        }
        const KXSegment &segment = m_control->segments()[m_index];
        state.disabled = !segment.enabled || !m_control->isEnabled();
        state.checkable = m_control->trackingMode() != SegmentedControl::Momentary;
        state.checked = segment.selected;
        state.focusable = true;
        state.focused = m_control->hasFocus() && m_control->currentSegment() == m_index;
        return state;
    }
    void *interface_cast(QAccessible::InterfaceType type) override
    {
        return type == QAccessible::ActionInterface ? static_cast<QAccessibleActionInterface *>(this) : nullptr;
    }
    QStringList actionNames() const override { return { pressAction() }; }
    void doAction(const QString &action) override
    {
        if (isValid() && action == pressAction())
            m_control->click(m_index);
    }
    QStringList keyBindingsForAction(const QString &) const override { return {}; }

private:
    QPointer<SegmentedControl> m_control;
    int m_index;
};

class AccessibleSegmentedControl : public QAccessibleWidget
{
public:
    explicit AccessibleSegmentedControl(SegmentedControl *control)
        : QAccessibleWidget(control, QAccessible::Grouping)
    {
    }
    ~AccessibleSegmentedControl() override
    {
        for (const QAccessible::Id id : std::as_const(m_children))
            QAccessible::deleteAccessibleInterface(id);
    }
    int childCount() const override { return int(control()->segments().size()); }
    QAccessibleInterface *child(int index) const override
    {
        if (index < 0 || index >= childCount())
            return nullptr;
        while (m_children.size() <= index) {
            m_children.append(
                QAccessible::registerAccessibleInterface(new AccessibleSegment(control(), int(m_children.size()))));
        }
        return QAccessible::accessibleInterface(m_children[index]);
    }
    int indexOfChild(const QAccessibleInterface *wanted) const override
    {
        for (int i = 0; i < childCount(); ++i) {
            if (child(i) == wanted)
                return i;
        }
        return -1;
    }
    QAccessibleInterface *childAt(int x, int y) const override
    {
        return child(control()->segmentAt(control()->mapFromGlobal(QPoint(x, y))));
    }
    QAccessibleInterface *focusChild() const override
    {
        return control()->hasFocus() ? child(control()->currentSegment()) : nullptr;
    }
    QString text(QAccessible::Text kind) const override
    {
        if (kind != QAccessible::Value)
            return QAccessibleWidget::text(kind);
        QStringList selected;
        for (const KXSegment &segment : control()->segments()) {
            if (segment.selected)
                selected.append(segment.label);
        }
        return selected.join(u", "_s);
    }

private:
    SegmentedControl *control() const { return static_cast<SegmentedControl *>(widget()); }
    mutable QList<QAccessible::Id> m_children; // one for each segment asked for; given back with the control
};

class AccessibleStarRating : public QAccessibleWidget, public QAccessibleValueInterface
{
public:
    explicit AccessibleStarRating(KXStarRating *rating)
        : QAccessibleWidget(rating, QAccessible::Slider)
    {
    }
    void *interface_cast(QAccessible::InterfaceType type) override
    {
        return type == QAccessible::ValueInterface ? static_cast<QAccessibleValueInterface *>(this)
                                                   : QAccessibleWidget::interface_cast(type);
    }
    QString text(QAccessible::Text kind) const override
    {
        return kind == QAccessible::Value ? QString::number(rating()->rating()) : QAccessibleWidget::text(kind);
    }
    QVariant currentValue() const override { return rating()->rating(); }
    void setCurrentValue(const QVariant &value) override { rating()->rate(value.toInt()); }
    QVariant maximumValue() const override { return KXStarRating::maximum; }
    QVariant minimumValue() const override { return 0; }
    QVariant minimumStepSize() const override { return 1; }

private:
    KXStarRating *rating() const { return static_cast<KXStarRating *>(widget()); }
};

/// A widget with a role and a value that are read alone.
class AccessibleShown : public QAccessibleWidget
{
public:
    AccessibleShown(QWidget *widget, QAccessible::Role role, std::function<QString()> value)
        : QAccessibleWidget(widget, role)
        , m_value(std::move(value))
    {
    }
    QString text(QAccessible::Text kind) const override
    {
        return kind == QAccessible::Value ? m_value() : QAccessibleWidget::text(kind);
    }

private:
    std::function<QString()> m_value;
};

/// What stands between two panes, with the place of the first one's end in points.
class AccessibleDivider : public QAccessibleWidget, public QAccessibleValueInterface
{
public:
    explicit AccessibleDivider(QSplitterHandle *handle)
        : QAccessibleWidget(handle, QAccessible::Splitter)
    {
    }
    void *interface_cast(QAccessible::InterfaceType type) override
    {
        return type == QAccessible::ValueInterface ? static_cast<QAccessibleValueInterface *>(this)
                                                   : QAccessibleWidget::interface_cast(type);
    }
    QVariant currentValue() const override
    {
        const QList<int> sizes = splitter()->sizes();
        return std::accumulate(sizes.begin(), sizes.begin() + index(), 0);
    }
    void setCurrentValue(const QVariant &value) override
    {
        QList<int> sizes = splitter()->sizes();
        const int by = value.toInt() - currentValue().toInt();
        sizes[index() - 1] += by;
        sizes[index()] -= by;
        if (sizes[index() - 1] >= 0 && sizes[index()] >= 0)
            splitter()->setSizes(sizes);
    }
    QVariant minimumValue() const override { return 0; }
    QVariant maximumValue() const override
    {
        const QList<int> sizes = splitter()->sizes();
        return std::accumulate(sizes.begin(), sizes.end(), 0);
    }
    QVariant minimumStepSize() const override { return 1; }

private:
    QSplitter *splitter() const { return static_cast<QSplitterHandle *>(widget())->splitter(); }
    int index() const { return std::max(1, splitter()->indexOf(widget())); }
};

class AccessibleLink : public QAccessibleWidget
{
public:
    explicit AccessibleLink(KXHyperlinkButton *link)
        : QAccessibleWidget(link, QAccessible::Link)
    {
        addControllingSignal(QLatin1String("clicked(bool)"));
    }
    QString text(QAccessible::Text kind) const override
    {
        const auto *const link = static_cast<KXHyperlinkButton *>(widget());
        const QString own = QAccessibleWidget::text(kind);
        return kind == QAccessible::Name && own.isEmpty() ? link->text() : own;
    }
    QStringList actionNames() const override { return { pressAction() }; }
    void doAction(const QString &action) override
    {
        if (action == pressAction())
            static_cast<KXHyperlinkButton *>(widget())->click();
    }
};

/// A field that shows a text and cannot be edited. It moves its cursor all the same, of which only texts may tell.
class AccessibleLabel : public KXAccessibleWrapping
{
public:
    using KXAccessibleWrapping::KXAccessibleWrapping;

    QAccessible::Role role() const override { return QAccessible::StaticText; }
    QString text(QAccessible::Text kind) const override
    {
        const QString own = m_own->text(kind);
        const auto *const field = static_cast<const QLineEdit *>(m_widget.data());
        return kind == QAccessible::Name && own.isEmpty() && field ? field->text() : own;
    }
};

/// Qt names it by its choice alone, which does not say what is chosen.
class AccessibleChoice : public KXAccessibleWrapping
{
public:
    using KXAccessibleWrapping::KXAccessibleWrapping;

    QString text(QAccessible::Text kind) const override
    {
        const QString own = m_own->text(kind);
        if (kind != QAccessible::Name || !m_widget)
            return own;
        QStringList parts { m_widget->accessibleName(), own };
        parts.removeAll(QString());
        parts.removeDuplicates();
        return parts.join(u", "_s);
    }
};

/// Those that Qt puts into bars and fields have no names.
void nameButtonOfQt(QToolButton &button)
{
    if (!button.accessibleName().isEmpty() || !button.text().isEmpty())
        return;
    if (button.objectName() == "qt_toolbar_ext_button"_L1)
        button.setAccessibleName(KXLocalizedString("More"));
    else if (const auto *const field = qobject_cast<QLineEdit *>(button.parentWidget());
             field && field->isClearButtonEnabled())
        button.setAccessibleName(KXLocalizedString("Clear"));
}

QAccessibleInterface *controlInterface(const QString &, QObject *object)
{
    if (auto *const segmented = qobject_cast<KXThemeableSegmentedControl *>(object))
        return new AccessibleSegmentedControl(segmented);
    if (auto *const rating = qobject_cast<KXStarRating *>(object))
        return new AccessibleStarRating(rating);
    if (auto *const link = qobject_cast<KXHyperlinkButton *>(object))
        return new AccessibleLink(link);
    if (auto *const handle = qobject_cast<QSplitterHandle *>(object); handle && handle->splitter()->count() > 1)
        return new AccessibleDivider(handle);
    if (auto *const field = qobject_cast<KXThemeableTextField *>(object); field && field->isLabel())
        return KXAccessibleWrapping::describe<AccessibleLabel>(field);
    if (qobject_cast<KXThemeableTableView *>(object) || qobject_cast<KXThemeableOutlineView *>(object))
        return KXDescribeItemView(static_cast<QAbstractItemView *>(object));
    if (auto *const choice = qobject_cast<KXThemeablePopUpButton *>(object))
        return KXAccessibleWrapping::describe<AccessibleChoice>(choice);
    auto *const widget = qobject_cast<QWidget *>(object);
    if (widget && widget->isWindow() && (widget->windowType() == Qt::Dialog || qobject_cast<KXPopoverFrame *>(object)))
        return new QAccessibleWidget(widget, QAccessible::Dialog, widget->windowTitle());
    if (auto *const button = qobject_cast<QToolButton *>(object))
        nameButtonOfQt(*button);
    if (auto *const badge = qobject_cast<KXBadge *>(object))
        return new AccessibleShown(badge, QAccessible::StaticText, [badge] { return badge->text(); });
    if (auto *const spinner = qobject_cast<KXThemeableSpinningProgressIndicator *>(object)) {
        return new AccessibleShown(spinner, QAccessible::Indicator,
            [spinner] { return spinner->isAnimating() ? KXLocalizedString("Busy") : QString(); });
    }
    return nullptr;
}

}

void KXInstallControlAccessibility()
{
    static std::once_flag once;
    std::call_once(once, [] { QAccessible::installFactory(controlInterface); });
}

void KXForgetAccessibility(QWidget *control)
{
    if (QAccessibleInterface *const described = QAccessible::queryAccessibleInterface(control))
        QAccessible::deleteAccessibleInterface(QAccessible::uniqueId(described));
}

void KXAccessibleValueChanged(QWidget *control)
{
    QAccessibleEvent event(control, QAccessible::NameChanged);
    QAccessible::updateAccessibility(&event);
}
