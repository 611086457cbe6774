#pragma once

#include <QAbstractListModel>
#include <QVariantList>

#include <kestrixkit/foundation/KXObservable.h>

QT_BEGIN_NAMESPACE
class QItemSelectionModel;
QT_END_NAMESPACE

/// An array of values as an item model, with its selection. The values may be objects (as KXVariantFromRef or pointers
/// to QObjects make them), of which rows show a key path. Main thread.
class KX_UI_EXPORT KXListController : public QAbstractListModel, public KXObservable
{
    Q_OBJECT
    Q_PROPERTY(QVariantList arrangedObjects READ arrangedObjects WRITE setArrangedObjects NOTIFY arrangedObjectsChanged)
    Q_PROPERTY(QVariantList selectedObjects READ selectedObjects NOTIFY selectionChanged)
public:
    enum Role { ObjectRole = Qt::UserRole }; ///< the value itself

    explicit KXListController(QObject *parent = nullptr);
    ~KXListController() override;

    /// Observable under "arrangedObjects".
    [[nodiscard]] const QVariantList &arrangedObjects() const { return m_objects; }
    /// Rows at both ends that stay the same keep their selection.
    void setArrangedObjects(const QVariantList &objects);
    /// False, and nothing changes, for rows that are not there.
    bool insertObject(const QVariant &object, int atRow);
    bool removeObjects(int fromRow, int count = 1);
    /// To in front of the row that is there now, or to the end.
    bool moveObject(int fromRow, int toRow);

    /// What rows show of objects; where it is empty, the values themselves are shown.
    [[nodiscard]] const QString &titleKeyPath() const { return m_titleKeyPath; }
    void setTitleKeyPath(const QString &keyPath);

    [[nodiscard]] QItemSelectionModel *selectionModel() const { return m_selection; }
    /// From top to bottom. Observable under "selectedObjects".
    [[nodiscard]] const QVariantList &selectedObjects() const { return m_selected; }
    [[nodiscard]] QList<int> selectedRows() const;
    /// Rows that are not there are skipped.
    void setSelectedRows(const QList<int> &rows);

    [[nodiscard]] int rowCount(const QModelIndex &parent = {}) const override;
    [[nodiscard]] QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;
    [[nodiscard]] QVariant valueForKey(const QString &key) const override;

Q_SIGNALS:
    void arrangedObjectsChanged();
    void selectionChanged();

private:
    void change(const std::function<void()> &rows);
    void updateSelection();

    QVariantList m_objects;
    QVariantList m_selected;
    QString m_titleKeyPath;
    QItemSelectionModel *m_selection;
    bool m_changing = false;
};
