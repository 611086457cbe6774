#pragma once

#include <optional>

#include <QList>
#include <QPoint>

#include <kestrixkit/foundation/KXGlobal.h>

/// Where something dragged over the filter bar would go: nowhere, before a view, or after the last one. A value.
class KXFilterBarDropPosition
{
public:
    constexpr KXFilterBarDropPosition() = default;
    [[nodiscard]] static constexpr KXFilterBarDropPosition end() { return KXFilterBarDropPosition(Kind::End, 0); }
    [[nodiscard]] static constexpr KXFilterBarDropPosition before(qsizetype index)
    {
        return KXFilterBarDropPosition(Kind::Before, index);
    }

    [[nodiscard]] constexpr bool isNone() const { return m_kind == Kind::None; }
    [[nodiscard]] constexpr bool isEnd() const { return m_kind == Kind::End; }
    /// Of the view; nothing for the other two.
    [[nodiscard]] constexpr std::optional<qsizetype> index() const
    {
        return m_kind == Kind::Before ? std::optional(m_index) : std::nullopt;
    }
    friend constexpr bool operator==(const KXFilterBarDropPosition &, const KXFilterBarDropPosition &) = default;

private:
    enum class Kind { None, Before, End };
    constexpr KXFilterBarDropPosition(Kind kind, qsizetype index)
        : m_kind(kind)
        , m_index(index)
    {
    }
    Kind m_kind = Kind::None;
    qsizetype m_index = 0;
};

/// Where filters stand in the bar, and in what order a drop leaves them: functions of numbers. Any thread.
namespace KXFilterBarLayout {

/// The places of views of these widths, from the leading edge of the bar, in rows of that height. One that is wider
/// than what is left of its row begins another: the first one, too.
[[nodiscard]] KX_UI_EXPORT QList<QPoint> places(const QList<int> &widths, int barWidth, int rowHeight);
/// How many rows that makes; 1 without views.
[[nodiscard]] KX_UI_EXPORT int rows(const QList<int> &widths, int barWidth);
/// The old places of `count` views in their new order; empty where the drop is refused: onto itself, nowhere, or of
/// something that is no view. What is dragged is taken out and put before the view that was dropped on.
[[nodiscard]] KX_UI_EXPORT QList<qsizetype> orderAfterDrop(
    qsizetype count, qsizetype dragged, KXFilterBarDropPosition position);

}
