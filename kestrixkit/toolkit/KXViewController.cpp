#include <kestrixkit/toolkit/KXViewController.h>

#include <QVBoxLayout>

#include <kestrixkit/foundation/KXLog.h>
#include <kestrixkit/toolkit/KXNavigationStack.h>
#include <kestrixkit/toolkit/KXPopoverController.h>

using namespace Qt::StringLiterals;

KXNavigationStack::~KXNavigationStack() = default;

KXViewController *KXNavigationStack::visibleViewController() const
{
    const QList<KXViewController *> controllers = viewControllers();
    return controllers.isEmpty() ? nullptr : controllers.last();
}

KXViewController::KXViewController(QObject *parent)
    : KXObject(parent)
{
}

KXViewController::~KXViewController() { delete m_view.data(); }

void KXViewController::setTitle(const QString &title)
{
    if (title == m_title)
        return;
    willChangeValueForKey(u"title");
    m_title = title;
    didChangeValueForKey(u"title");
    Q_EMIT titleChanged();
}

KXPopoverController *KXViewController::popoverController() const
{
    return static_cast<KXPopoverController *>(m_popover.data());
}

void KXViewController::setPopoverController(KXPopoverController *popover) { m_popover = popover; }

QWidget *KXViewController::view()
{
    if (m_view)
        return m_view;
    m_hasAppeared = false; // an earlier one ended with its window
    loadView();
    if (!m_view)
        setView(new QWidget);
    viewDidLoad();
    return m_view;
}

void KXViewController::setView(QWidget *view)
{
    if (m_view != view)
        delete m_view.data();
    m_view = view;
}

void KXViewController::loadView()
{
    QStringList names;
    for (const QMetaObject *meta = metaObject(); meta != &KXViewController::staticMetaObject;
         meta = meta->superClass()) {
        QString name = QString::fromLatin1(meta->className()).section(u"::"_s, -1);
        if (name.endsWith("ViewController"_L1))
            name.chop(qsizetype(sizeof("ViewController")) - 1);
        if (const QString path = KXInterfaceLoader::pathForInterface(name); !path.isEmpty()) {
            setView(KXInterfaceLoader::shared().load(path));
            return;
        }
        names.append(name);
    }
    KXLogError(toolkit, "There is no interface file for %s: \"%@\"", metaObject()->className(), names.join(u"\", \""));
}

void KXViewController::appearIn(QWidget *container, const QMargins &margins)
{
    QWidget *const ours = view();
    if (!container || container == ours || (m_hasAppeared && ours->parentWidget() == container))
        return;
    const QPointer<KXViewController> alive(this); // it may end whenever it is told something
    const QPointer<QWidget> place(container);
    const quint32 request = ++m_requests; // whoever is told something may ask for another place, or none
    leave();
    if (alive && m_requests == request)
        viewWillAppear();
    if (!alive || m_requests != request || !place || !m_view)
        return;
    QLayout *layout = container->layout();
    if (!layout)
        layout = new QVBoxLayout(container);
    layout->setContentsMargins(margins);
    layout->addWidget(ours);
    m_isLeaving = false;
    ours->show();
    viewDidAppear();
}

void KXViewController::disappear()
{
    ++m_requests;
    leave();
}

void KXViewController::leave()
{
    if (!m_view || !m_hasAppeared || m_isLeaving)
        return;
    const QPointer<KXViewController> alive(this);
    m_isLeaving = true;
    viewWillDisappear();
    if (!alive || !std::exchange(m_isLeaving, false))
        return; // it has been put somewhere else
    if (m_view) {
        if (QWidget *parent = m_view->parentWidget(); parent && parent->layout())
            parent->layout()->removeWidget(m_view);
        m_view->hide();
        m_view->setParent(nullptr);
    }
    viewDidDisappear();
}
