#include <kestrixkit/web/KXWebEngine.h>

#include <unistd.h>

#include <QtWebEngineCoreVersion>
#include <qtwebenginecoreglobal.h>

using namespace Qt::StringLiterals;

bool KXWebEngine::canStart(QString *reason)
{
    if (geteuid() != 0 || qEnvironmentVariableIntValue("QTWEBENGINE_DISABLE_SANDBOX") != 0)
        return true;
    if (reason)
        *reason = u"The web engine does not run as root"_s;
    return false;
}

QString KXWebEngine::version() { return QString::fromLatin1(qWebEngineChromiumVersion()); }
