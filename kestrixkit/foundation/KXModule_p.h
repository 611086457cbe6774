#pragma once

#include <QtGlobal>

#include <kestrixkit/foundation/KXGlobal.h>

/// Parts of the libraries that are loaded when they are first needed, because what they link brings a hundred and more
/// files into the process with it: a program that starts should not wait for what nobody has asked for.
namespace KXModule {

/// The function of that name in a module, kestrixkit-NAME.so, of this very version; it is loaded where it was not yet,
/// and stays. nullptr with a line in the log where that cannot be. Any thread.
[[nodiscard]] KX_CORE_EXPORT QFunctionPointer function(const char *module, const char *name);

/// What that function answers, which lasts as long as the process. nullptr as above.
template <typename Offer> [[nodiscard]] const Offer *offer(const char *module, const char *name)
{
    const QFunctionPointer found = function(module, name);
    return found ? reinterpret_cast<const Offer *(*)()>(found)() : nullptr;
}

}
