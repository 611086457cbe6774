#include <kestrixkit/foundation/KXModule_p.h>

#include <climits>

#include <dlfcn.h>
#include <link.h>

#include <QByteArray>

#include <kestrixkit/foundation/KXLog.h>

namespace {

/// Modules lie in a folder beside the libraries, and each version has its own: one that is installed while an older one
/// runs is none of that one's business.
QByteArray modulePath(const char *module)
{
    static const char anchor = 0; // of this library
    Dl_info info;
    link_map *library = nullptr;
    char folder[PATH_MAX];
    if (!dladdr1(&anchor, &info, reinterpret_cast<void **>(&library), RTLD_DL_LINKMAP)
        || dlinfo(library, RTLD_DI_ORIGIN, folder) != 0)
        return {};
    return QByteArray(folder) + "/" KX_MODULE_FOLDER "/kestrixkit-" + module + ".so";
}

}

QFunctionPointer KXModule::function(const char *module, const char *name)
{
    const QByteArray path = modulePath(module);
    void *const loaded = dlopen(path.constData(), RTLD_LAZY | RTLD_LOCAL | RTLD_NODELETE);
    void *const found = loaded ? dlsym(loaded, name) : nullptr;
    if (!found)
        KXLogError(foundation, "A part of the installation cannot be used: %s", dlerror());
    return reinterpret_cast<QFunctionPointer>(found);
}
