#pragma once

#include <kestrixkit/util/views/KXPreferencesViewController.h>

class KXThemeablePopUpButton;
class Preview;
class QCheckBox;

/// Where previews are heard, and how. Off where there is no preview.
class SoundPane : public KXPreferencesViewController
{
    Q_OBJECT
public:
    explicit SoundPane(QObject *parent = nullptr);
    /// The one of the window that is in front.
    void setPreview(Preview *preview);
    void viewWillAppear() override;

protected:
    void loadView() override;

private:
    void showChoices();

    QPointer<Preview> m_preview;
    QPointer<KXThemeablePopUpButton> m_device;
    QPointer<QCheckBox> m_equal, m_loudest;
};
