#include <kestrixkit/toolkit/KXTreeController.h>

#include <algorithm>

#include <QItemSelectionModel>

#include <kestrixkit/context/KXLiveList.h>
#include <kestrixkit/entity/KXModelPath.h>
#include <kestrixkit/foundation/KXException.h>
#include <kestrixkit/foundation/KXStringWithFormat.h>
#include <kestrixkit/store/KXStoreChange.h>

using namespace Qt::StringLiterals;

using Object = KXManagedObject;

namespace {

qint64 treeKey(const KXRef<Object> &object) { return object ? object->objectID().key() : 0; }

/// Which of the places form a longest rising run; -1 is no place.
std::vector<bool> treeLongestRise(const std::vector<int> &places)
{
    std::vector<size_t> ends; // of the runs of each length, the one with the lowest last place
    std::vector<size_t> before(places.size());
    for (size_t i = 0; i < places.size(); ++i) {
        if (places[i] < 0)
            continue;
        const auto longer = std::lower_bound(
            ends.begin(), ends.end(), places[i], [&](size_t end, int place) { return places[end] < place; });
        before[i] = longer == ends.begin() ? i : *(longer - 1);
        if (longer == ends.end())
            ends.push_back(i);
        else
            *longer = i;
    }
    std::vector<bool> rises(places.size());
    if (ends.empty())
        return rises;
    for (size_t i = ends.back();; i = before[i]) {
        rises[i] = true;
        if (before[i] == i)
            return rises;
    }
}

}

KXTreeController::KXTreeController(QObject *parent)
    : QAbstractItemModel(parent)
    , m_root(new KXTreeNode)
    , m_selection(new QItemSelectionModel(this, this))
{
    connect(m_selection, &QItemSelectionModel::selectionChanged, this, [this] {
        if (!m_rearranging)
            updateSelection();
    });
}

KXTreeController::KXTreeController(
    const KXManagedObjectContext::Ref &context, const KXTreeRequest &request, QObject *parent)
    : KXTreeController(parent)
{
    setRequest(context, request);
}

KXTreeController::~KXTreeController() = default;

void KXTreeController::setRequest(const KXManagedObjectContext::Ref &context, const KXTreeRequest &request)
{
    const KXPersistentStoreCoordinator::Ref coordinator = context ? context->persistentStoreCoordinator() : nullptr;
    const KXEntityDescription *entity = nullptr;
    QString parentKey;
    if (context) {
        entity = coordinator->model() ? coordinator->model()->entity(request.entityName) : nullptr;
        if (!entity)
            throw KXException(KXInvalidArgumentException,
                KXStringWithFormat("There is no entity \"%@\" to make a tree of", request.entityName));
        const KXPropertyDescription *children = entity->property(request.childrenKeyPath);
        const KXPropertyDescription *inverse = children && children->isToMany() ? children->inverse() : nullptr;
        if (!request.childrenKeyPath.isEmpty() && (!inverse || !inverse->isToOne()))
            throw KXException(KXInvalidArgumentException,
                KXStringWithFormat(
                    "\"%@\" of \"%@\" are no children: no tree", request.childrenKeyPath, request.entityName));
        parentKey = inverse ? inverse->name() : QString();
    }

    m_token = {};
    m_rootList.reset();
    m_context = context;
    m_coordinator = coordinator;
    m_request = request;
    m_entity = entity;
    m_parentKey = parentKey;
    m_positionKey.clear();
    m_sortKeys.clear();
    m_remoteRoots.clear();
    m_levels.clear();
    m_rootKeys.clear();
    if (context) {
        for (const KXSortDescriptor &descriptor : request.sortDescriptors) {
            m_sortKeys.insert(descriptor.key.section(u'.', 0, 0));
            for (const KXModelPath::Step &step : KXModelPath(*entity, descriptor.key).steps()) {
                if (step.property->isRelationship())
                    m_remoteRoots.insert(step.property->destinationEntity()->root());
            }
        }
        if (!request.sortDescriptors.isEmpty() && request.sortDescriptors.first().ascending) {
            const KXPropertyDescription *first = entity->property(request.sortDescriptors.first().key);
            if (first && first->isAttribute() && first->type() <= KXAttributeType::Integer64)
                m_positionKey = first->name();
        }
        KXPredicate roots = request.rootPredicate;
        if (!roots && !parentKey.isEmpty())
            roots = KXPredicate::predicateWithFormat(u"%K == nil"_s, parentKey);
        m_rootList = std::make_unique<KXLiveList>(
            context, KXFetchRequest(request.entityName, roots).setSortDescriptors(request.sortDescriptors));
        // After the list's own observer, so that the list is up to date in ours.
        m_token
            = KXManagedObjectContext::onChange(context.get(), [this](const KXObjectsDidChange &did) { follow(did); });
        m_rootKeys = m_rootList->keys();
    }
    rearrange();
    updateSelection();
}

// Following the context

void KXTreeController::follow(const KXObjectsDidChange &did)
{
    if (forgetChangedLevels(did))
        rearrange();
    for (const auto *list : { &did.updated, &did.refreshed }) {
        for (const KXRef<Object> &object : *list) {
            if (const QModelIndex index = indexForNode(node(object.get())); index.isValid())
                Q_EMIT dataChanged(index, index.siblingAtColumn(columnCount(index.parent()) - 1));
        }
    }
    updateSelection();
}

/// Whether any level has to be read again.
bool KXTreeController::forgetChangedLevels(const KXObjectsDidChange &did)
{
    bool any = !m_complete;
    const auto forgetLevel = [&](qint64 key) { any |= m_levels.erase(key) > 0; };
    const auto touch = [&](const KXRef<Object> &object, const QSet<QString> *keys) {
        const KXEntityDescription *root = object->entity()->root();
        if (m_remoteRoots.contains(root)) {
            m_levels.clear();
            any = true;
        }
        if (root != m_entity->root())
            return;
        if (!keys || keys->contains(m_request.childrenKeyPath))
            forgetLevel(treeKey(object));
        if (!keys || keys->intersects(m_sortKeys) || keys->contains(m_parentKey)) {
            if (const KXRef<Object> parent = parentOf(object.get()))
                forgetLevel(treeKey(parent));
            if (const KXTreeNode *present = node(object.get()))
                forgetLevel(present->m_parent->m_key);
        }
    };
    for (const auto *list : { &did.inserted, &did.deleted }) {
        for (const KXRef<Object> &object : *list)
            touch(object, nullptr);
    }
    for (const auto *list : { &did.updated, &did.refreshed }) {
        for (const KXRef<Object> &object : *list) {
            const QSet<QString> keys = did.changedKeys.value(object.get());
            touch(object, &keys);
        }
    }
    if (did.merged) {
        for (const KXEntityChange &change : did.merged->entities()) {
            if (change.entity->root() == m_entity->root() || m_remoteRoots.contains(change.entity->root())) {
                m_levels.clear();
                any = true;
            }
        }
    }
    if (m_rootList->keys() != m_rootKeys) {
        m_rootKeys = m_rootList->keys();
        m_levels.erase(0);
        any = true;
    }
    return any;
}

KXRef<Object> KXTreeController::parentOf(const Object *object) const
{
    return m_parentKey.isEmpty() || !object ? KXRef<Object>() : object->valueForKey(m_parentKey).value<KXRef<Object>>();
}

/// Where nothing is known yet and every object has its place in the tree: all levels by one fetch, those of leaves
/// included. False where that fails.
bool KXTreeController::readTree()
{
    const KXManagedObjectContext::Ref context = m_context.lock();
    if (!context || !m_levels.empty() || m_request.rootPredicate || m_parentKey.isEmpty())
        return true;
    constexpr int objectsAtOnce = 20'000;
    KXFetchRequest request(m_entity->name());
    const KXFetchedList all
        = context->fetch(request.setSortDescriptors(m_request.sortDescriptors).setFetchBatchSize(objectsAtOnce));
    if (all.isNull())
        return false;
    m_levels.reserve(size_t(all.size()) + 1);
    for (const KXRef<Object> &object : all) {
        m_levels.try_emplace(treeKey(object));
        if (const KXRef<Object> parent = parentOf(object.get()))
            m_levels[treeKey(parent)].push_back(object);
    }
    return true;
}

/// Adds what lies below the parents and is not known yet; a fetch for all of them. False where that fails.
bool KXTreeController::readLevels(std::span<const KXRef<Object>> parents)
{
    QVariantList unread;
    for (const KXRef<Object> &parent : parents) {
        const auto [level, isNew] = m_levels.try_emplace(treeKey(parent));
        if (isNew && parent && !m_parentKey.isEmpty())
            unread.append(KXVariantFromRef(parent));
        for (qsizetype i = 0; isNew && !parent && m_rootList && i < m_rootList->size(); ++i)
            level->second.push_back(m_rootList->at(i));
    }
    const KXManagedObjectContext::Ref context = m_context.lock();
    constexpr qsizetype parentsAtOnce = 500;
    for (qsizetype from = 0; context && from < unread.size(); from += parentsAtOnce) {
        KXFetchRequest request(m_entity->name(),
            KXPredicate::predicateWithFormat(u"%K IN %@"_s, m_parentKey,
                QVariant(unread.sliced(from, std::min(parentsAtOnce, unread.size() - from)))));
        const KXFetchedList children = context->fetch(request.setSortDescriptors(m_request.sortDescriptors));
        if (children.isNull())
            return false;
        for (const KXRef<Object> &child : children) {
            if (const KXRef<Object> parent = parentOf(child.get()))
                m_levels[treeKey(parent)].push_back(child);
        }
    }
    return true;
}

/// Makes the nodes what the levels say. What the tree is to be is known before the first row changes, and nothing is
/// read any more until the last one has.
void KXTreeController::rearrange()
{
    m_due = true;
    if (m_rearranging)
        return;
    m_rearranging = true;
    while (std::exchange(m_due, false)) {
        std::vector<std::pair<qint64, Objects>> wanted;
        std::unordered_set<qint64> living;
        Objects depth { {} };
        m_complete = readTree();
        while (m_complete && !depth.empty()) {
            m_complete = readLevels(depth);
            Objects next;
            for (const KXRef<Object> &parent : depth) {
                Objects &placed = wanted.emplace_back(treeKey(parent), Objects()).second;
                for (const KXRef<Object> &object : m_levels[treeKey(parent)]) {
                    if (object && living.insert(treeKey(object)).second)
                        placed.push_back(object);
                }
                next.insert(next.end(), placed.begin(), placed.end());
            }
            depth = std::move(next);
        }
        if (!m_complete) {
            m_levels.clear(); // the tree stays as it is until the store can be read again
            break;
        }
        std::erase_if(m_levels, [&](const auto &level) { return level.first != 0 && !living.contains(level.first); });
        removeDead(living);
        // From the top down: whoever gets children stands in place already, so it cannot be below one of them.
        for (const auto &[key, objects] : wanted)
            arrange(key == 0 ? *m_root : *m_nodes.at(key), objects);
        removeDead(living);
    }
    m_rearranging = false;
}

/// Takes out what has nothing living in it; what stays for a while are dead nodes above living ones. Without recursion,
/// as all of it: a stored tree may be deeper than the stack.
void KXTreeController::removeDead(const std::unordered_set<qint64> &living)
{
    struct Place
    {
        KXTreeNode *node;
        size_t parent;
        bool lives;
    };
    std::vector<Place> places { { m_root.get(), 0, true } };
    for (size_t i = 0; i < places.size(); ++i) {
        for (const auto &child : places[i].node->m_children)
            places.push_back({ child.get(), i, living.contains(child->m_key) });
    }
    for (size_t i = places.size(); i-- > 0;) {
        if (places[i].lives)
            places[places[i].parent].lives = true;
    }
    // From the bottom up; a node's children lie one after the other in the list, the last of them at `end`.
    size_t end = places.size();
    for (size_t i = places.size(); i-- > 0;) {
        const size_t first = end - places[i].node->m_children.size();
        if (places[i].lives)
            removeDeadChildren(*places[i].node, [&](int row) { return !places[first + size_t(row)].lives; });
        end = first;
    }
}

void KXTreeController::removeDeadChildren(KXTreeNode &node, const std::function<bool(int row)> &isDead)
{
    for (int end = node.childCount(); end > 0; --end) {
        int first = end;
        while (first > 0 && isDead(first - 1))
            --first;
        if (first == end)
            continue;
        beginRemoveRows(indexForNode(&node), first, end - 1);
        // They end after the views have heard.
        const auto from = node.m_children.begin() + first, to = node.m_children.begin() + end;
        std::vector<std::unique_ptr<KXTreeNode>> gone(std::make_move_iterator(from), std::make_move_iterator(to));
        node.m_children.erase(from, to);
        node.renumberFrom(first);
        std::vector<const KXTreeNode *> below;
        for (const auto &child : gone)
            below.push_back(child.get());
        while (!below.empty()) {
            const KXTreeNode *const each = below.back();
            below.pop_back();
            m_nodes.erase(each->m_key);
            for (const auto &child : each->m_children)
                below.push_back(child.get());
        }
        endRemoveRows();
        end = first + 1;
    }
}

/// Brings the wanted objects below the node, in order. What else is there (it will be moved, or is dead) stays among
/// them.
void KXTreeController::arrange(KXTreeNode &parent, const Objects &wanted)
{
    std::vector<int> rows;
    for (const KXRef<Object> &object : wanted) {
        const KXTreeNode *present = node(object.get());
        rows.push_back(present && present->m_parent == &parent ? present->m_row : -1);
    }
    const std::vector<bool> stays = treeLongestRise(rows);
    int row = 0; // where the next one goes
    for (size_t i = 0; i < wanted.size(); ++i) {
        const KXTreeNode *present = node(wanted[i].get());
        if (stays[i]) {
            row = present->m_row + 1;
        } else if (present) {
            const bool isAbove = present->m_parent == &parent && present->m_row < row;
            moveNode(*present->m_parent, present->m_row, parent, row);
            row += isAbove ? 0 : 1;
        } else {
            size_t end = i + 1;
            while (end < wanted.size() && !node(wanted[end].get()))
                ++end;
            insertNodes(parent, row, std::span(wanted).subspan(i, end - i));
            row += int(end - i);
            i = end - 1;
        }
    }
}

void KXTreeController::insertNodes(KXTreeNode &parent, int row, std::span<const KXRef<Object>> objects)
{
    beginInsertRows(indexForNode(&parent), row, row + int(objects.size()) - 1);
    std::vector<std::unique_ptr<KXTreeNode>> nodes;
    for (const KXRef<Object> &object : objects) {
        auto made = std::unique_ptr<KXTreeNode>(new KXTreeNode);
        made->m_object = object;
        made->m_key = treeKey(object);
        made->m_parent = &parent;
        m_nodes.emplace(made->m_key, made.get());
        nodes.push_back(std::move(made));
    }
    parent.m_children.insert(
        parent.m_children.begin() + row, std::make_move_iterator(nodes.begin()), std::make_move_iterator(nodes.end()));
    parent.renumberFrom(row);
    endInsertRows();
}

void KXTreeController::moveNode(KXTreeNode &from, int row, KXTreeNode &to, int toRow)
{
    if (&from == &to && (toRow == row || toRow == row + 1))
        return;
    beginMoveRows(indexForNode(&from), row, row, indexForNode(&to), toRow);
    auto moved = std::move(from.m_children[size_t(row)]);
    from.m_children.erase(from.m_children.begin() + row);
    moved->m_parent = &to;
    const int place = &from == &to && toRow > row ? toRow - 1 : toRow;
    to.m_children.insert(to.m_children.begin() + place, std::move(moved));
    from.renumberFrom(&from == &to ? std::min(row, place) : row);
    to.renumberFrom(place);
    endMoveRows();
}
