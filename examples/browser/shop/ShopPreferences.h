#pragma once

#include <kestrixkit/catalogue/KXPostgreSQLCatalogue.h>
#include <kestrixkit/util/views/KXPreferencesViewController.h>

class QLabel;
class QLineEdit;

/// Where the shop's catalogue is. An address that cannot be used is refused with the reason, and nothing changes; one
/// that can is asked whether somebody answers there.
class ShopPreferences : public KXPreferencesViewController
{
    Q_OBJECT
public:
    explicit ShopPreferences(QObject *parent = nullptr);

    [[nodiscard]] QLineEdit *field() const;
    /// What was found out about the address.
    [[nodiscard]] QString answer() const;

protected:
    void loadView() override;

private:
    void take();
    void check();
    void say(const QString &text);

    QPointer<QLineEdit> m_field;
    QPointer<QLabel> m_answer;
    std::unique_ptr<KXPostgreSQLCatalogue> m_asked;
    KXCatalogueTicket m_ticket; // goes before the catalogue
};
