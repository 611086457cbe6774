#pragma once

#include <kestrixkit/filters/KXFilterSetPreset.h>
#include <kestrixkit/source_list/KXSourceListCell.h>

/// One row of the presets library while it is set up: writes what a preset shows into the list's cell. Main thread.
class KX_UI_EXPORT KXFilterSetPresetCellView
{
public:
    /// The cell is borrowed. The list has given it title, image and count already.
    explicit KXFilterSetPresetCellView(KXSourceListCell &cell)
        : m_cell(cell)
    {
    }

    /// Of the place whose counts are shown; the next preset that is set shows its own. A null one takes the count away.
    [[nodiscard]] const QString &countsContextIdentifier() const { return m_identifier; }
    void setCountsContextIdentifier(const QString &identifier);
    [[nodiscard]] qint64 count() const { return m_cell.count; }
    void setCount(qint64 count) { m_cell.count = count; }
    /// What the badge says. Empty: there is none, and the title has its room.
    [[nodiscard]] QString badgeButton() const { return KXCountBadgeText(m_cell.count); }
    /// A title can be edited where the preset may be overwritten; one that cannot be used here is pale and says why.
    void setFilterSetPreset(const KXFilterSetPreset &preset, bool isAvailable);

private:
    KXSourceListCell &m_cell;
    QString m_identifier;
};
