#pragma once

#include <QLocale>
#include <QString>

#include <kestrixkit/foundation/KXClock.h>
#include <kestrixkit/foundation/KXGlobal.h>

/// Loads translations into the application, in the language that its user prefers. English needs none: it is what
/// the sources say, and whoever prefers it to a language that is there keeps it.
///
///     QApplication application(argc, argv);
///     KXTranslation::install();                                            // the framework's texts and Qt's own
///     KXTranslation::install(u"shop"_s, u":/shop/translations"_s);          // the host's: shop_de.qm
///
/// Before the first view is made: views that are there keep their texts. Main thread; needs an application object,
/// which owns what is loaded.
class KX_CORE_EXPORT KXTranslation
{
public:
    /// The framework's texts and, where they are installed, Qt's own. Answers whether the framework's are translated.
    static bool install(const QLocale &locale = KXClock::locale());

    /// The file NAME_LANGUAGE.qm of a folder, which may be one of Qt's resources. What was loaded under this name
    /// before is replaced. False where there is no file in a language that the locale prefers to English.
    static bool install(const QString &name, const QString &folder, const QLocale &locale = KXClock::locale());
};
