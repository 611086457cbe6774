#pragma once

#include <QIcon>
#include <QVariant>

#include <kestrixkit/toolkit/KXViewController.h>

class KXPreferences;

/// A section of the preferences window. Its view has the size that it is loaded with, or else the one that it asks for.
/// Main thread.
class KX_UI_EXPORT KXPreferencesViewController : public KXViewController
{
    Q_OBJECT
    Q_PROPERTY(QVariant identifier READ identifier WRITE setIdentifier)
    Q_PROPERTY(QString preferencesSectionName READ preferencesSectionName WRITE setPreferencesSectionName)
    Q_PROPERTY(QIcon preferencesSectionImage READ preferencesSectionImage WRITE setPreferencesSectionImage)
public:
    explicit KXPreferencesViewController(QObject *parent = nullptr);
    ~KXPreferencesViewController() override;

    /// By which the section is asked for; invalid unless set.
    [[nodiscard]] const QVariant &identifier() const { return m_identifier; }
    void setIdentifier(const QVariant &identifier) { m_identifier = identifier; }
    /// The window's controller; nullptr until it has been given to one.
    [[nodiscard]] KXPreferences *preferences() const;
    /// The window that shows it; one that had it before lets go of it.
    void setPreferences(KXPreferences *preferences);
    /// For the toolbar, and the window's title. To be set before the section is given to the window.
    [[nodiscard]] const QString &preferencesSectionName() const { return m_sectionName; }
    void setPreferencesSectionName(const QString &name) { m_sectionName = name; }
    [[nodiscard]] const QIcon &preferencesSectionImage() const { return m_sectionImage; }
    void setPreferencesSectionImage(const QIcon &image) { m_sectionImage = image; }

private:
    QVariant m_identifier;
    QPointer<KXObject> m_preferences;
    QString m_sectionName;
    QIcon m_sectionImage;
};
