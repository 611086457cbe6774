#include <kestrixkit/foundation/KXTranslation.h>

#include <memory>

#include <QCoreApplication>
#include <QLibraryInfo>
#include <QTranslator>

#include <kestrixkit/foundation/KXLog.h>

using namespace Qt::StringLiterals;

namespace {

bool translationLoad(QTranslator &translator, const QString &name, const QString &folder, const QLocale &locale)
{
    for (QString language : locale.uiLanguages()) {
        language.replace(u'-', u'_');
        // Takes "de" where there is no "de_AT".
        if (translator.load(name + u'_' + language, folder))
            return true;
        // Else a user of English would get the language that comes next.
        if (language.section(u'_', 0, 0) == "en"_L1)
            return false;
    }
    return false;
}

}

bool KXTranslation::install(const QLocale &locale)
{
    install(u"qtbase"_s, QLibraryInfo::path(QLibraryInfo::TranslationsPath), locale);
    return install(u"kestrixkit"_s, u":/kestrixkit/translations"_s, locale);
}

bool KXTranslation::install(const QString &name, const QString &folder, const QLocale &locale)
{
    QCoreApplication *const application = QCoreApplication::instance();
    if (!application) {
        KXLogError(foundation, "The translation %@ is not loaded: there is no application yet", name);
        return false;
    }
    const QString objectName = "KXTranslation."_L1 + name;
    delete application->findChild<QTranslator *>(objectName, Qt::FindDirectChildrenOnly);
    auto translator = std::make_unique<QTranslator>();
    if (!translationLoad(*translator, name, folder, locale))
        return false;
    translator->setObjectName(objectName);
    translator->setParent(application);
    return QCoreApplication::installTranslator(translator.release());
}
