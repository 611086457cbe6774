/// 10,000 tracks dropped into a crate of 100,000, and saved, beside the same by plain SQL in the same tables.
#pragma once

#include <QString>

namespace CrateBench {

/// The library of 300,000 tracks.
[[nodiscard]] QString path();
void add();
/// Makes the library that is kept between runs.
void prepare();

}
