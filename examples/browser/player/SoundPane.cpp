#include "player/SoundPane.h"

#include <QCheckBox>
#include <QFormLayout>
#include <QLabel>
#include <QSignalBlocker>

#include <kestrixkit/theme/KXThemeStyleNames.h>
#include <kestrixkit/theme/controls/KXThemeablePopUpButton.h>

#include "player/Preview.h"
#include "window/PreferencePanes.h"

using namespace Qt::StringLiterals;

SoundPane::SoundPane(QObject *parent)
    : KXPreferencesViewController(parent)
{
    setIdentifier(u"sound"_s);
    setPreferencesSectionName(tr("Sound"));
    setPreferencesSectionImage(QIcon(u":/kestrixkit/icons/sound.svg"_s));
}

void SoundPane::setPreview(Preview *preview)
{
    m_preview = preview;
    showChoices();
}

void SoundPane::viewWillAppear()
{
    KXPreferencesViewController::viewWillAppear();
    showChoices(); // devices come and go
}

void SoundPane::loadView()
{
    auto *view = new QWidget;
    auto *form = new QFormLayout(view);
    form->setContentsMargins(PreferencePanes::margins);
    form->setFieldGrowthPolicy(QFormLayout::AllNonFixedFieldsGrow);
    m_device = new KXThemeablePopUpButton;
    m_device->setThemeStyleName(KXPopUpButtonStyles);
    m_device->setAccessibleName(tr("Sound device"));
    connect(m_device, &QComboBox::activated, this, [this](int index) {
        if (m_preview)
            m_preview->setDevice(m_device->itemData(index).toString());
    });
    form->addRow(tr("Play through:"), m_device);
    m_equal = new QCheckBox(tr("Play all tracks &equally loud"));
    connect(m_equal, &QCheckBox::toggled, this, [this](bool on) {
        if (m_preview)
            m_preview->setLevelled(on);
    });
    form->addRow(QString(), m_equal);
    form->addRow(QString(), PreferencePanes::note(tr("Each track is measured once, together with its waveform.")));
    m_loudest = new QCheckBox(tr("Start at the &loudest part"));
    connect(m_loudest, &QCheckBox::toggled, this, [this](bool on) {
        if (m_preview)
            m_preview->setStartsLoudest(on);
    });
    form->addRow(QString(), m_loudest);
    setView(view);
    showChoices();
}

void SoundPane::showChoices()
{
    if (!m_device)
        return;
    const QSignalBlocker quiet[] { QSignalBlocker(m_device), QSignalBlocker(m_equal), QSignalBlocker(m_loudest) };
    m_device->clear();
    const QList<KXAudioDevice> devices = m_preview ? m_preview->devices() : QList<KXAudioDevice>();
    m_device->addItem(devices.isEmpty() ? tr("No sound card") : tr("The system's own"), QString());
    for (const KXAudioDevice &device : devices)
        m_device->addItem(device.identifier, device.identifier);
    const QString chosen = m_preview ? m_preview->device() : QString();
    if (m_device->findData(chosen) < 0) // not plugged in now
        m_device->addItem(tr("%1 (not there)").arg(chosen), chosen);
    m_device->setCurrentIndex(m_device->findData(chosen));
    m_device->setEnabled(!devices.isEmpty());
    m_equal->setChecked(m_preview && m_preview->isLevelled());
    m_loudest->setChecked(m_preview && m_preview->startsLoudest());
    m_equal->setEnabled(m_preview);
    m_loudest->setEnabled(m_preview);
}
