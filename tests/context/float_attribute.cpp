// Does not compile: a test looks at what the compiler says.

#include <kestrixkit/context/KXManagedObjectOf.h>

class Fader : public KXManagedObjectOf<Fader>
{
public:
    static constexpr QLatin1StringView entityName { "Fader" };
    KX_ATTRIBUTE(float, gain, setGain)
};
