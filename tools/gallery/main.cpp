// gallery OUT: writes a picture of every page of controls for each theme, scale, direction and language into a folder.

#include <cstdio>

#include <QApplication>
#include <QDir>
#include <QImage>
#include <QStyleFactory>

#include <kestrixkit/theme/KXDarkTheme.h>
#include <kestrixkit/theme/KXLightTheme.h>
#include <kestrixkit/theme/KXThemeManager.h>

#include "Pages.h"

using namespace Qt::StringLiterals;

int main(int argc, char **argv)
{
    QApplication application(argc, argv);
    QApplication::setStyle(QStyleFactory::create(u"Fusion"_s));
    const QStringList arguments = QApplication::arguments();
    if (arguments.size() != 2 || !QDir().mkpath(arguments[1])) {
        std::fputs("usage: gallery OUT (a folder that can be made)\n", stderr);
        return 2;
    }
    const QDir out(arguments[1]);
    const std::pair<QString, std::shared_ptr<KXTheme>> themes[] { { u"dark"_s, std::make_shared<KXDarkTheme>() },
        { u"light"_s, std::make_shared<KXLightTheme>() } };
    const std::pair<QString, gallery::Texts> languages[] { { u"en"_s, gallery::english },
        { u"stretched"_s, gallery::stretched } };
    int failed = 0;
    for (const auto &[themeName, theme] : themes) {
        KXThemeManager::sharedManager().setTheme(theme);
        for (const auto &[language, text] : languages) {
            for (const gallery::Page &page : gallery::pages()) {
                for (const int scale : { 1, 2 }) {
                    for (const auto direction : { Qt::LeftToRight, Qt::RightToLeft }) {
                        const QString name = u"%1-%2-%3-%4-%5x.png"_s.arg(page.name, themeName, language,
                            direction == Qt::LeftToRight ? u"ltr"_s : u"rtl"_s, QString::number(scale));
                        if (!gallery::picture(page, text, direction, scale).save(out.filePath(name))) {
                            std::fprintf(stderr, "cannot write %s\n", qPrintable(name));
                            ++failed;
                        }
                    }
                }
            }
        }
    }
    return failed == 0 ? 0 : 1;
}
