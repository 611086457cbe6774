/// All 300,000 tracks of a library rated while its window is open: how long the main thread is busy at a time, and the
/// whole beside one plain UPDATE.
#pragma once

namespace EditBench {

void add();

}
