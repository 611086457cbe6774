#include <kestrixkit/web/KXWebEngine.h>

#include <unistd.h>

#include <QCoreApplication>

#include <kestrixkit/web/KXWebModule_p.h>

using namespace Qt::StringLiterals;

// The engine needs this, and needs it before there is an application object, when nobody knows yet whether there will
// be a page.
static void webShareContexts()
{
    if (!QCoreApplication::instance())
        QCoreApplication::setAttribute(Qt::AA_ShareOpenGLContexts);
}
Q_CONSTRUCTOR_FUNCTION(webShareContexts)

bool KXWebEngine::canStart(QString *reason)
{
    QString obstacle;
    if (geteuid() == 0 && qEnvironmentVariableIntValue("QTWEBENGINE_DISABLE_SANDBOX") == 0)
        obstacle = u"The web engine does not run as root"_s;
    else if (!QCoreApplication::testAttribute(Qt::AA_ShareOpenGLContexts))
        obstacle = u"The application object was made before the library of web views was loaded"_s;
    if (reason)
        *reason = obstacle;
    return obstacle.isEmpty();
}

QString KXWebEngine::version() { return KXWebModule::shared() ? KXWebModule::shared()->version() : QString(); }
