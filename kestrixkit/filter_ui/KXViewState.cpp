#include <kestrixkit/filter_ui/KXViewState.h>

#include <algorithm>

#include <QCoreApplication>
#include <QHash>
#include <QSet>

#include <kestrixkit/context/KXManagedObjectContext.h>
#include <kestrixkit/source_list/KXSourceListItemController.h>
#include <kestrixkit/toolkit/KXNavigationStack.h>
#include <kestrixkit/toolkit/KXViewController.h>

using namespace Qt::StringLiterals;

namespace {

using ViewStateFactories = QHash<const QMetaObject *, std::function<QObject *()>>;

ViewStateFactories &viewStateFactories()
{
    static auto *const factories = new ViewStateFactories;
    return *factories;
}

QString viewStateSlug(const QString &title)
{
    QString slug;
    for (const char32_t c : title.normalized(QString::NormalizationForm_C).toLower().toUcs4()) {
        if (QChar::isLetter(c) || QChar::isDigit(c))
            slug += QStringView(QChar::fromUcs4(c));
    }
    return slug;
}

/// Ended at once: nobody calls it any more.
void viewStateEnd(QObject *controller)
{
    if (controller && !controller->parent())
        delete controller;
}

}

KXViewState::~KXViewState()
{
    if (auto *const conforming = dynamic_cast<KXSourceListItemController *>(m_controller.data()))
        conforming->setSourceItem(nullptr);
    viewStateEnd(m_controller);
}

template <typename Value> void KXViewState::setInMemory(QStringView key, Value &member, const Value &value)
{
    willChangeValueForKey(key);
    member = value;
    didChangeValueForKey(key);
}

void KXViewState::setImage(const QIcon &image) { setInMemory(u"image", m_image, image); }
void KXViewState::setCount(qint64 count) { setInMemory(u"count", m_count, count); }
QStringList KXViewState::badgeKeys() const { return { u"count"_s, u"inProgress"_s, u"image"_s }; }

void KXViewState::setInProgress(bool inProgress) { setInMemory(u"inProgress", m_inProgress, inProgress); }

QString KXViewState::trackingPath() const
{
    QString path;
    const auto add = [&path](const QString &title) {
        const QString slug = viewStateSlug(title);
        path.prepend(slug.isEmpty() ? slug : u'/' + slug);
    };
    add(title());
    for (const KXSourceListItem *above : ancestorItems())
        add(above->title());
    return path.isEmpty() ? u"/"_s : path;
}

// The controller

void KXViewState::registerControllerClass(const QMetaObject *controllerClass, std::function<QObject *()> make)
{
    viewStateFactories().insert(controllerClass, std::move(make));
}

void KXViewState::setControllerClass(const QMetaObject *controllerClass)
{
    setInMemory(u"controllerClass", m_controllerClass, controllerClass);
}

QObject *KXViewState::controllerObject() const
{
    if (m_controller || !m_controllerClass || isDeleted() || !managedObjectContext())
        return m_controller;
    const auto make = viewStateFactories().value(m_controllerClass);
    m_controller = make ? make() : m_controllerClass->newInstance();
    if (!m_controller)
        KXLogError(filter_ui, "No controller of the class %s can be made for \"%@\": it is not registered",
            m_controllerClass->className(), title());
    else if (auto *const conforming = dynamic_cast<KXSourceListItemController *>(m_controller.data()))
        conforming->setSourceItem(const_cast<KXViewState *>(this));
    return m_controller;
}

KXSourceListItemController *KXViewState::controller() const
{
    return dynamic_cast<KXSourceListItemController *>(controllerObject());
}

void KXViewState::setController(KXSourceListItemController *controller)
{
    auto *const object = dynamic_cast<QObject *>(controller);
    if (controller && !object)
        KXLogError(filter_ui, "The controller of \"%@\" is no QObject", title());
    else
        setControllerObject(object);
}

void KXViewState::setControllerObject(QObject *controller)
{
    if (controller != m_controller)
        takeController(controller);
}

void KXViewState::takeController(QObject *controller)
{
    const QPointer<QObject> before(m_controller);
    willChangeValueForKey(u"controller");
    m_controller = controller;
    if (auto *const conforming = dynamic_cast<KXSourceListItemController *>(controller))
        conforming->setSourceItem(this);
    didChangeValueForKey(u"controller");
    if (auto *const conforming = dynamic_cast<KXSourceListItemController *>(before.data()))
        conforming->setSourceItem(nullptr);
    if (before && !before->parent())
        before->deleteLater();
}

void KXViewState::tearDownController()
{
    if (!isControllerLoaded())
        return;
    const auto *const shown = qobject_cast<KXViewController *>(m_controller.data());
    if (KXNavigationStack *const stack = shown ? shown->navigationStack() : nullptr) {
        for (KXViewController *controller : stack->viewControllers())
            controller->setNavigationStack(nullptr);
        stack->removeAllViewControllers(); // which may have ended it
    }
    takeController(nullptr);
}

void KXViewState::prepareForDeletion()
{
    KXTreeObjectOf::prepareForDeletion();
    tearDownController();
}

// Copies

KXRef<KXViewState> KXViewState::duplicate() const
{
    KXManagedObjectContext *const context = managedObjectContext();
    const auto copy = [context](const KXViewState &state) {
        const KXRef<KXViewState> made
            = context ? cast(context->managedObjectForEntity(state.entity()->name())) : KXRef<KXViewState>();
        if (made)
            made->setTitle(state.title());
        return made;
    };
    KXRef<KXViewState> made = copy(*this);
    if (!made || !parent())
        return made;
    QSet<const KXViewState *> copied { this }; // a damaged tree may lead back
    QList<std::pair<const KXViewState *, KXRef<KXViewState>>> ahead { { this, made } };
    while (!ahead.isEmpty()) {
        const auto [state, copyOfState] = ahead.takeLast();
        QList<KXRef<KXViewState>> below = state->children();
        std::stable_sort(below.begin(), below.end(),
            [](const auto &one, const auto &other) { return one->position() < other->position(); });
        qint64 position = 0;
        for (const KXRef<KXViewState> &child : below) {
            if (copied.contains(child.get()))
                continue;
            copied.insert(child.get());
            if (const KXRef<KXViewState> copiedChild = copy(*child)) {
                copiedChild->setPosition(position++);
                copiedChild->setParent(copyOfState);
                ahead.append({ child.get(), copiedChild });
            }
        }
    }
    return made;
}

// By key

QVariant KXViewState::valueForKey(const QString &key) const
{
    if (key == "image"_L1)
        return m_image;
    if (key == "count"_L1)
        return m_count;
    if (key == "inProgress"_L1)
        return m_inProgress;
    if (key == "controllerClass"_L1)
        return QVariant::fromValue(m_controllerClass);
    if (key == "controller"_L1)
        return QVariant::fromValue(controllerObject());
    if (key == "controllerLoaded"_L1)
        return isControllerLoaded();
    if (key == "sourceURL"_L1)
        return sourceURL();
    if (key == "trackingPath"_L1)
        return trackingPath();
    return KXTreeObjectOf::valueForKey(key);
}

bool KXViewState::setValueForKey(const QString &key, const QVariant &value)
{
    if (key == "image"_L1)
        setImage(value.value<QIcon>());
    else if (key == "count"_L1)
        setCount(value.toLongLong());
    else if (key == "inProgress"_L1)
        setInProgress(value.toBool());
    else if (key == "controllerClass"_L1)
        setControllerClass(value.value<const QMetaObject *>());
    else if (key == "controller"_L1)
        setControllerObject(value.value<QObject *>());
    else
        return KXTreeObjectOf::setValueForKey(key, value);
    return true;
}

QStringList KXViewState::keyPathsForValuesAffectingKey(const QString &key) const
{
    if (key == "count"_L1)
        return { u"expanded"_s };
    if (key == "controllerLoaded"_L1)
        return { u"controller"_s };
    if (key == "trackingPath"_L1)
        return { u"title"_s, u"parent.trackingPath"_s };
    return KXTreeObjectOf::keyPathsForValuesAffectingKey(key);
}
