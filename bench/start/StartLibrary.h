/// The library with which the browser is started: 300,000 tracks (a million with --full) with artists, albums, genres,
/// labels and keys as an import makes them, and 500 presets in 40 folders.
#pragma once

#include <QString>

namespace StartLibrary {

/// Of the library that path() names.
[[nodiscard]] int tracks();
[[nodiscard]] QString path();
/// The folder of everything that the benchmarks keep.
[[nodiscard]] QString folder();
/// Makes it where it is not there.
void prepare();

}
