#include "demo/DemoHint.h"

#include <QBoxLayout>
#include <QUrl>

#include <kestrixkit/foundation/KXFileManager.h>
#include <kestrixkit/theme/KXThemeStyleNames.h>
#include <kestrixkit/theme/controls/KXThemeableButton.h>
#include <kestrixkit/theme/controls/KXThemeableTextField.h>

#include "window/BrowserStyle.h"
#include "window/Settings.h"

using namespace Qt::StringLiterals;

DemoHint::DemoHint(QWidget *parent)
    : KXSelectionBar(parent)
    , m_demoMusic(KXFileManager::cachesFolderPath() + u'/')
{
    auto *const label = new KXThemeableTextField(
        tr("This is demo music. Add a folder of your own, or drop folders and files on the window."));
    label->setLabel(true);
    label->setThemeStyleName(KXLabelStyles);
    auto *const add = new KXThemeableButton(tr("Add Music Folder…"));
    add->setThemeStyleName(KXDefaultButtonStyles);
    connect(add, &QPushButton::clicked, this, &DemoHint::folderRequested);
    auto *const close = new KXThemeableButton;
    close->setIcon(QIcon(u":/kestrixkit/icons/close.svg"_s));
    close->setThemeStyleName(KXToolbarButtonStyles);
    close->setAccessibleName(tr("Close the hint"));
    close->setToolTip(close->accessibleName());
    connect(close, &QPushButton::clicked, this, [this] {
        Settings::setHidesDemoHint(true);
        hide();
    });
    auto *const row = new QHBoxLayout(this);
    row->setContentsMargins(BrowserStyle::margin, 4, BrowserStyle::margin, 4);
    row->addWidget(label, 1);
    row->addWidget(add);
    row->addWidget(close);
    hide();
}

void DemoHint::follow(const QUrl &track)
{
    setVisible(
        !Settings::hidesDemoHint() && track.toLocalFile().startsWith(m_demoMusic) && Settings::musicFolders().empty());
}
