#include "window/PreferencePanes.h"

#include <algorithm>

#include <QCheckBox>
#include <QFile>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QListWidget>
#include <QPlainTextEdit>

#include <kestrixkit/foundation/KXNotificationCenter.h>
#include <kestrixkit/theme/KXThemeManager.h>
#include <kestrixkit/theme/KXThemeStyleNames.h>
#include <kestrixkit/theme/controls/KXThemeableButton.h>
#include <kestrixkit/theme/controls/KXThemeablePopUpButton.h>
#include <kestrixkit/util/views/KXPreferences.h>

#include "import/FileDialogs.h"
#include "player/SoundPane.h"
#include "shop/ShopPreferences.h"
#include "window/Analytics.h"
#include "window/BrowserStyle.h"
#include "window/Settings.h"

using namespace Qt::StringLiterals;

QLabel *PreferencePanes::note(const QString &text)
{
    auto *note = new QLabel(text);
    note->setTextFormat(Qt::PlainText);
    note->setWordWrap(true);
    note->setForegroundRole(QPalette::PlaceholderText);
    return note;
}

void PreferencePanes::show(std::function<void(const std::string &folder)> importFolder, Preview *preview)
{
    KXPreferences &preferences = KXPreferences::sharedPreferences();
    if (preferences.viewControllers().isEmpty()) {
        QList<KXPreferencesViewController *> panes { new GeneralPane(&preferences), new SoundPane(&preferences),
            new ShopPreferences(&preferences) };
        if (Analytics::isAvailable())
            panes.append(new PrivacyPane(&preferences));
        preferences.setViewControllers(panes);
    }
    static_cast<GeneralPane *>(preferences.viewControllers().constFirst())->setImportFolder(std::move(importFolder));
    static_cast<SoundPane *>(preferences.viewControllers().at(1))->setPreview(preview);
    preferences.showWindow();
}

GeneralPane::GeneralPane(QObject *parent)
    : KXPreferencesViewController(parent)
{
    setIdentifier(u"general"_s);
    setPreferencesSectionName(tr("General"));
    setPreferencesSectionImage(QIcon(u":/kestrixkit/icons/library.svg"_s));
}

void GeneralPane::loadView()
{
    auto *view = new QWidget;
    auto *form = new QFormLayout(view);
    form->setContentsMargins(PreferencePanes::margins);
    form->setFieldGrowthPolicy(QFormLayout::AllNonFixedFieldsGrow);
    m_folders = new QListWidget;
    m_folders->setAccessibleName(tr("Music folders"));
    m_folders->setTextElideMode(Qt::ElideMiddle);
    m_folders->setMinimumWidth(360);
    m_folders->setFixedHeight(6 * m_folders->fontMetrics().height());
    form->addRow(tr("Music folders:"), m_folders);
    auto *buttons = new QHBoxLayout;
    auto *choose = new KXThemeableButton(tr("&Add…"));
    choose->setAccessibleName(tr("Add a music folder"));
    connect(choose, &QPushButton::clicked, this, &GeneralPane::chooseFolder);
    auto *remove = new KXThemeableButton(tr("&Remove"));
    remove->setAccessibleName(tr("Remove the music folder"));
    m_remove = remove;
    connect(m_remove, &QPushButton::clicked, this, &GeneralPane::removeFolder);
    for (KXThemeableButton *button : { choose, remove }) {
        button->setThemeStyleName(KXButtonStyles);
        buttons->addWidget(button);
    }
    buttons->addStretch();
    form->addRow(QString(), buttons);
    form->addRow(QString(),
        PreferencePanes::note(tr("Imported at once, and looked through whenever the browser starts. A folder that is "
                                 "removed here is looked through no more; its tracks stay.")));
    connect(m_folders, &QListWidget::currentRowChanged, this, [this](int row) { m_remove->setEnabled(row >= 0); });
    showFolders();

    auto *theme = new KXThemeablePopUpButton;
    theme->addItems({ tr("Dark"), tr("Light") });
    theme->setThemeStyleName(KXPopUpButtonStyles);
    theme->setAccessibleName(tr("Theme"));
    theme->setCurrentIndex(BrowserStyle::isDark() ? 0 : 1);
    connect(theme, &QComboBox::currentIndexChanged, this, [](int index) { Settings::setDarkTheme(index == 0); });
    m_theme = KXNotificationCenter::defaultCenter().addObserver(KXThemeDidChangeNotification,
        &KXThemeManager::sharedManager(), [shown = QPointer(theme)](const KXNotification &) {
            if (shown)
                shown->setCurrentIndex(BrowserStyle::isDark() ? 0 : 1);
        });
    form->addRow(tr("Theme:"), theme);
    setView(view);
}

void GeneralPane::showFolders()
{
    if (!m_folders)
        return;
    m_folders->clear();
    for (const std::string &folder : Settings::musicFolders()) {
        const QByteArray bytes = QByteArray::fromStdString(folder);
        auto *const item = new QListWidgetItem(QFile::decodeName(bytes), m_folders);
        item->setData(Qt::UserRole, bytes); // a name need not be text
        item->setToolTip("<qt>"_L1 + item->text().toHtmlEscaped() + "</qt>"_L1);
    }
    m_remove->setEnabled(m_folders->currentRow() >= 0);
}

void GeneralPane::removeFolder()
{
    const QListWidgetItem *const item = m_folders ? m_folders->currentItem() : nullptr;
    if (!item)
        return;
    Settings::removeMusicFolder(item->data(Qt::UserRole).toByteArray().toStdString());
    showFolders();
}

void GeneralPane::chooseFolder()
{
    FileDialogs::ask(view(),
        { .title = tr("Add Music Folder"),
            .button = tr("Add"),
            .purpose = u"add"_s,
            .startIn = QFile::decodeName(QByteArray::fromStdString(Settings::musicFolder())) },
        this, [this](const std::vector<std::string> &paths) { setFolder(paths.front()); });
}

void GeneralPane::setFolder(const std::string &folder)
{
    Settings::addMusicFolders({ folder });
    showFolders();
    const std::vector<std::string> known = Settings::musicFolders();
    if (m_importFolder && std::find(known.begin(), known.end(), folder) != known.end())
        m_importFolder(folder);
}

PrivacyPane::PrivacyPane(QObject *parent)
    : KXPreferencesViewController(parent)
{
    setIdentifier(u"privacy"_s);
    setPreferencesSectionName(tr("Privacy"));
    setPreferencesSectionImage(QIcon(u":/kestrixkit/icons/privacy.svg"_s));
}

void PrivacyPane::loadView()
{
    auto *view = new QWidget;
    auto *column = new QVBoxLayout(view);
    column->setContentsMargins(PreferencePanes::margins);
    auto *consent = new QCheckBox(tr("&Send usage statistics"));
    consent->setChecked(Settings::analyticsConsent());
    connect(consent, &QCheckBox::toggled, this, [](bool on) { Analytics::setConsent(on); });
    column->addWidget(consent);
    column->addWidget(PreferencePanes::note(
        tr("Which views are opened and how many tracks an import adds; never names of tracks, files or "
           "people. Nothing is sent unless this is on. What was sent, or would have been, stands below.")));
    m_lines = new QPlainTextEdit;
    m_lines->setReadOnly(true);
    m_lines->setTabChangesFocus(true);
    m_lines->setLineWrapMode(QPlainTextEdit::NoWrap);
    m_lines->setAccessibleName(tr("Usage statistics"));
    m_lines->setMinimumHeight(140);
    column->addWidget(m_lines);
    const auto fill = [lines = m_lines] {
        if (lines)
            lines->setPlainText(Analytics::lines().join(u'\n'));
    };
    fill();
    Analytics::onLine(m_lines, fill);
    setView(view);
}
