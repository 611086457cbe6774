#pragma once

#include <string_view>
#include <unordered_map>

#include <QString>

/// Hash of a text, for maps that are asked with every change: some nanoseconds for a name, where the one of QHash has
/// been seen to take a hundred. Not made against texts that somebody chooses to collide.
struct KXTextHash
{
    using is_transparent = void;
    [[nodiscard]] size_t operator()(QStringView text) const noexcept
    {
        return std::hash<std::u16string_view>()({ text.utf16(), size_t(text.size()) });
    }
};

/// Equal characters, as QString compares.
struct KXTextEqual
{
    using is_transparent = void;
    [[nodiscard]] bool operator()(QStringView a, QStringView b) const noexcept
    {
        return std::u16string_view(a.utf16(), size_t(a.size())) == std::u16string_view(b.utf16(), size_t(b.size()));
    }
};

/// Values by names. Is asked with views as well, and its values stay where they are.
template <typename Value> using KXTextMap = std::unordered_map<QString, Value, KXTextHash, KXTextEqual>;
