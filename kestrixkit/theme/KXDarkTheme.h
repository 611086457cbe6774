#pragma once

#include <kestrixkit/theme/KXStandardTheme.h>

/// For dark rooms: near black, with one bright accent. Main thread.
class KX_CORE_EXPORT KXDarkTheme : public KXStandardTheme
{
public:
    KXDarkTheme();
};
