/// A million rows in the order of a folded text, beside SQLite in the order of a stored, indexed folded column.
#pragma once

namespace SortBench {

void add();
/// After BenchLibrary::prepare().
void prepare();

}
