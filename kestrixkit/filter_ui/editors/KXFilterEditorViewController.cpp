#include <kestrixkit/filter_ui/editors/KXFilterEditorViewController.h>

#include <QAbstractButton>
#include <QApplication>
#include <QKeyEvent>

#include <kestrixkit/context/KXManagedObjectContext.h>
#include <kestrixkit/foundation/KXMainQueue.h>
#include <kestrixkit/foundation/KXObserver.h>
#include <kestrixkit/foundation/KXUndoManager.h>
#include <kestrixkit/toolkit/KXPopoverController.h>

KXFilterEditorViewController::KXFilterEditorViewController(KXRef<KXFilter> filter, QObject *parent)
    : KXViewController(parent)
    , m_filter(std::move(filter))
{
    if (m_filter)
        setTitle(m_filter->name().value_or(m_filter->label()));
}

KXFilterEditorViewController::~KXFilterEditorViewController() = default;

bool KXFilterEditorViewController::canEdit() const
{
    return m_filter && !m_filter->isDeleted() && m_filter->managedObjectContext();
}

void KXFilterEditorViewController::commitTyping() { }

void KXFilterEditorViewController::viewDidLoad()
{
    const QStringList keys = editedKeys();
    for (const QString &key : keys) {
        m_observers.append(KXObserver::observerFor(m_filter.get(), key, {}, [this](const KXKeyValueChange &) {
            if (!m_isChanging && canEdit())
                filterDidChange();
        }));
    }
    m_changes = KXManagedObjectContext::onChange(
        m_filter ? m_filter->managedObjectContext() : nullptr, [this](const KXObjectsDidChange &) {
            if (KXPopoverController *const popover = canEdit() ? nullptr : popoverController())
                popover->close();
        });
    if (canEdit())
        filterDidChange();
}

void KXFilterEditorViewController::change(const std::function<void()> &set)
{
    if (!canEdit())
        return;
    const KXManagedObjectContext::Ref context = m_filter->managedObjectContext()->shared_from_this();
    const QPointer<KXFilterEditorViewController> alive(this);
    m_isChanging = true;
    {
        const KXUndoRegistrationOff unrecorded(context->undoManager());
        set();
        context->save();
    }
    if (!alive)
        return;
    m_isChanging = false;
    if (canEdit() && isViewLoaded())
        filterDidChange(); // whoever was told may have set something else
}

void KXFilterEditorViewController::revert()
{
    change([this] {
        for (auto entry = m_before.cbegin(); entry != m_before.cend(); ++entry) {
            if (m_filter->valueForKey(entry.key()) != entry.value())
                m_filter->setValueForKey(entry.key(), entry.value());
        }
    });
}

void KXFilterEditorViewController::popoverWillShow()
{
    KXViewController::popoverWillShow();
    m_before.clear();
    const QStringList keys = canEdit() ? editedKeys() : QStringList();
    for (const QString &key : keys)
        m_before.insert(key, m_filter->valueForKey(key));
}

void KXFilterEditorViewController::popoverDidShow()
{
    KXViewController::popoverDidShow();
    m_isShown = true;
    qApp->installEventFilter(this); // before the popover, which closes by Escape
    KXMainQueue::async(this, [this] {
        if (QWidget *const first = m_isShown ? firstResponder() : nullptr)
            first->setFocus(Qt::PopupFocusReason);
    });
}

void KXFilterEditorViewController::popoverWillClose()
{
    if (std::exchange(m_isShown, false)) {
        qApp->removeEventFilter(this);
        commitTyping();
    }
    KXViewController::popoverWillClose();
}

/// Sees all of the application's events while its popover is shown.
bool KXFilterEditorViewController::eventFilter(QObject *object, QEvent *event)
{
    const bool isKey = event->type() == QEvent::ShortcutOverride || event->type() == QEvent::KeyPress;
    if (!isKey || !m_isShown || !object->isWidgetType() || !isViewLoaded())
        return KXViewController::eventFilter(object, event);
    const auto *const widget = static_cast<QWidget *>(object);
    const auto *const key = static_cast<QKeyEvent *>(event);
    if (widget != view() && !view()->isAncestorOf(widget) && widget != view()->window())
        return KXViewController::eventFilter(object, event);
    if (event->type() == QEvent::ShortcutOverride && key->matches(QKeySequence::Cancel)) {
        m_isShown = false;
        qApp->removeEventFilter(this);
        revert(); // and the popover closes
        return false;
    }
    const bool isReturn = key->key() == Qt::Key_Return || key->key() == Qt::Key_Enter;
    const bool isPlain = !(key->modifiers() & ~Qt::KeypadModifier);
    if (event->type() == QEvent::KeyPress && isReturn && isPlain && !qobject_cast<const QAbstractButton *>(object)) {
        if (KXPopoverController *const popover = popoverController())
            popover->close(); // takes over what is typed
        return true;
    }
    return KXViewController::eventFilter(object, event);
}
