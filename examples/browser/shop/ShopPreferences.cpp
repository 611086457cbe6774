#include "shop/ShopPreferences.h"

#include <QFormLayout>
#include <QLabel>
#include <QLineEdit>

#include <kestrixkit/foundation/KXClock.h>
#include <kestrixkit/theme/KXThemeStyleNames.h>
#include <kestrixkit/theme/controls/KXThemeableTextField.h>

#include "window/PreferencePanes.h"
#include "window/Settings.h"

using namespace Qt::StringLiterals;

ShopPreferences::ShopPreferences(QObject *parent)
    : KXPreferencesViewController(parent)
{
    setIdentifier(u"shop"_s);
    setPreferencesSectionName(tr("Shop"));
    setPreferencesSectionImage(QIcon(u":/browser/icons/shop.svg"_s));
}

void ShopPreferences::loadView()
{
    auto *view = new QWidget;
    auto *form = new QFormLayout(view);
    form->setContentsMargins(PreferencePanes::margins);
    form->setFieldGrowthPolicy(QFormLayout::AllNonFixedFieldsGrow);
    auto *field = new KXThemeableTextField(Settings::shopAddress());
    field->setThemeStyleName(KXTextFieldStyles);
    field->setPlaceholderText(u"postgresql://shop.example/music"_s);
    field->setAccessibleName(tr("Address of the shop"));
    field->setMinimumWidth(380);
    field->setClearButtonEnabled(true);
    m_field = field;
    connect(field, &QLineEdit::editingFinished, this, &ShopPreferences::take);
    form->addRow(tr("Catalogue:"), field);
    m_answer = PreferencePanes::note({});
    m_answer->setAccessibleDescription(tr("About the address"));
    form->addRow(QString(), m_answer);
    form->addRow(QString(),
        PreferencePanes::note(tr("A shop's catalogue in PostgreSQL, shown beside the library. Who asks, and with which "
                                 "password, stands in the file ~/.pgpass; parts of a catalogue are separated by “;”, "
                                 "servers that hold the same part by “|”. Empty: there is no shop.")));
    setView(view);
}

QLineEdit *ShopPreferences::field() const { return m_field; }

QString ShopPreferences::answer() const { return m_answer ? m_answer->text() : QString(); }

void ShopPreferences::say(const QString &text)
{
    if (m_answer)
        m_answer->setText(text);
}

void ShopPreferences::take()
{
    const QString before = Settings::shopAddress();
    KXError error;
    if (!Settings::setShopAddress(m_field->text(), &error))
        return say(error.localizedDescription());
    if (Settings::shopAddress() != before || answer().isEmpty())
        check();
}

void ShopPreferences::check()
{
    m_ticket.cancel();
    m_asked.reset();
    say({});
    const auto servers = Settings::shopServers();
    if (!servers)
        return;
    say(tr("Asking…"));
    m_asked = std::make_unique<KXPostgreSQLCatalogue>(*servers, KXCatalogueSchema::standard());
    m_ticket = m_asked->estimate({}, [this](const KXCatalogueCounts &counts) {
        if (counts.error)
            say(counts.error.localizedDescription());
        else if (!counts.missing.isEmpty())
            say(counts.missing.first());
        else
            say(tr("The shop answers: it has about %1 tracks.", nullptr, int(counts.count))
                    .arg(KXClock::locale().toString(counts.count)));
    });
}
