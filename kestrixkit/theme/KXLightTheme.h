#pragma once

#include <kestrixkit/theme/KXStandardTheme.h>

/// For daylight: the same roles on paper white. Main thread.
class KX_CORE_EXPORT KXLightTheme : public KXStandardTheme
{
public:
    KXLightTheme();
};
