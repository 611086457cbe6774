/// The columns of live counts filled from a store of a million tracks that was closed, beside one plain scan of the
/// same columns.
#pragma once

namespace LoadBench {

/// They use the plain store of BenchLibrary.
void add();

}
