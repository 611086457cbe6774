#include <kestrixkit/filter_ui/KXFilterSetPresetCellView.h>

#include <kestrixkit/foundation/KXStringWithFormat.h>

void KXFilterSetPresetCellView::setCountsContextIdentifier(const QString &identifier)
{
    m_identifier = identifier;
    if (identifier.isNull())
        m_cell.count = 0;
}

void KXFilterSetPresetCellView::setFilterSetPreset(const KXFilterSetPreset &preset, bool isAvailable)
{
    if (!m_identifier.isNull() && !preset.isFolder()) // a folder's is the sum that the list has made
        m_cell.count = preset.countForContextIdentifier(m_identifier).value_or(0);
    m_cell.isEditable = preset.isOverwritable();
    m_cell.isExpandable = preset.isFolder();
    m_cell.isEnabled = preset.isFolder() || isAvailable;
    if (!m_cell.isEnabled)
        m_cell.toolTip = KXLocalizedString("This preset is not available in the current selected section.");
}
