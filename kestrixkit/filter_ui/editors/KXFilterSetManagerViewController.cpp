#include <kestrixkit/filter_ui/editors/KXFilterSetManagerViewController.h>

#include <kestrixkit/foundation/KXStringWithFormat.h>
#include <kestrixkit/theme/controls/KXButtonMatrixView.h>
#include <kestrixkit/toolkit/KXPopoverController.h>

using namespace Qt::StringLiterals;

KXFilterSetManagerViewControllerDelegate::~KXFilterSetManagerViewControllerDelegate() = default;

KXFilterSetManagerViewController::KXFilterSetManagerViewController(QObject *parent)
    : KXViewController(parent)
{
    setTitle(KXLocalizedString("Add Filter"));
}

KXButtonMatrixView *KXFilterSetManagerViewController::filterTypeSelectionMatrix() const { return m_matrix; }

int KXFilterSetManagerViewController::columnsForTypes(qsizetype count)
{
    if (count <= 3)
        return qMax(1, int(count));
    return count % 4 == 0 ? 4 : 5;
}

void KXFilterSetManagerViewController::setAllowedFilterTypeItems(const QList<KXFilterTypeItem> &items)
{
    m_items = items;
    fill();
}

void KXFilterSetManagerViewController::viewDidLoad()
{
    m_matrix = outlet<KXButtonMatrixView>(u"filterTypeSelectionMatrix"_s);
    if (m_matrix)
        connect(m_matrix, &KXButtonMatrixView::selectionDidChange, this,
            &KXFilterSetManagerViewController::buttonMatrixViewSelectionDidChange);
    fill();
}

void KXFilterSetManagerViewController::fill()
{
    if (!m_matrix)
        return;
    QList<KXButtonMatrixItem> buttons;
    for (qsizetype i = 0; i < m_items.size(); ++i)
        buttons.append({ m_items[i].name, int(i) });
    m_matrix->setItems(buttons, columnsForTypes(m_items.size()));
    m_matrix->setButtonSize(buttonSize);
}

void KXFilterSetManagerViewController::popoverDidShow()
{
    KXViewController::popoverDidShow();
    if (m_matrix)
        m_matrix->focusSelection();
}

void KXFilterSetManagerViewController::buttonMatrixViewSelectionDidChange()
{
    if (!m_matrix || m_matrix->selectedIndex() < 0)
        return; // nothing is selected any more
    KXPopoverController *const popover = popoverController();
    if (!popover || !popover->isShown()) {
        addSelected();
        return;
    }
    // What is added opens a popover of its own: this one goes first.
    popover->setCloseAction([this, popover] {
        popover->setCloseAction({});
        addSelected();
    });
    popover->close();
}

void KXFilterSetManagerViewController::addSelected()
{
    const auto selected = m_matrix ? m_matrix->selectedItem() : std::nullopt;
    if (!selected)
        return;
    const KXFilterTypeItem type = m_items.value(selected->value.toInt());
    m_matrix->deselectAll();
    if (m_delegate)
        m_delegate->addFilterOfType(*this, type);
}
