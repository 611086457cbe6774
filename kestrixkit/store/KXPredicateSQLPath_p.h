#pragma once

#include <vector>

#include <QByteArray>
#include <QStringList>

#include <kestrixkit/entity/KXEntityDescription.h>
#include <kestrixkit/predicate/KXPredicateValue_p.h>
#include <kestrixkit/store/KXPredicateSQL_p.h>

/// Thrown inside the compiler when a predicate has no SQL.
struct KXPredicateSQLRefusal
{
    KXPredicateSQL::Status status;
    QString reason;

    [[noreturn]] static void refuse(const QString &reason)
    {
        throw KXPredicateSQLRefusal { KXPredicateSQL::NotInSQL, reason };
    }
};

/// One key of a key path, looked up in the model.
struct KXPredicateSQLStep
{
    enum Kind : quint8 { Attribute, ToOne, ToMany, Count, Absent };
    Kind kind = Absent;
    const KXPropertyDescription *property = nullptr; ///< for Count the to-many relationship whose members are counted
};

/// A place in a query where a path may start: a row's key, and its table's alias where the table is open.
struct KXPredicateSQLRow
{
    QByteArray key;
    QByteArray alias;
    const KXEntityDescription *entity = nullptr;
};

/// A key path over an entity as SQL sees it.
class KXPredicateSQLPath
{
public:
    using Step = KXPredicateSQLStep;

    /// No keys name the object itself. Throws KXPredicateSQLRefusal.
    KXPredicateSQLPath(const QStringList &keys, const KXEntityDescription &entity);

    [[nodiscard]] qsizetype size() const { return qsizetype(m_steps.size()); }
    [[nodiscard]] const Step &operator[](qsizetype i) const { return m_steps[size_t(i)]; }
    /// Place of the first to-many step from `from` on, or size().
    [[nodiscard]] qsizetype toMany(qsizetype from) const;
    [[nodiscard]] bool isToMany() const { return toMany(0) < size(); }

    /// Adds the entities that the path leads to, unless they are there.
    void collectEntities(std::vector<const KXEntityDescription *> &entities) const;

    /// What the path's values are; Null for a path that reaches nothing, Other for variants.
    [[nodiscard]] KXPredicateValue::Kind kind() const;
    /// Of objects: their entity.
    [[nodiscard]] const KXEntityDescription *destination() const;

    /// The value of the steps from `from` up to `to`, none of them to-many, as an expression without parameters.
    [[nodiscard]] QByteArray scalar(const KXPredicateSQLRow &row, qsizetype from, qsizetype to, int &aliases) const;

private:
    std::vector<Step> m_steps;
    const KXEntityDescription *m_entity;
};
