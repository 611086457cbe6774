/// What-if counts of 12 facets with 40 values each over 200,000 tracks, beside a pass written by hand.
#pragma once

namespace WhatIfBench {

void add();
/// Makes the store that is kept between runs.
void prepare();

}
