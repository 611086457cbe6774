/// What else is done to very many tracks while the window is open: a third of the library removed at once, and a folder
/// of 20,000 files that are known already looked through again. The whole, and the longest pause of the main thread.
#pragma once

namespace MassBench {

void add();

}
