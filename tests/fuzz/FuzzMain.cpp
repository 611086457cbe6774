// Stands in for libFuzzer: runs the files it is given, or else the seeds, cut off and changed at random.

#include "Fuzz.h"

#include <fstream>
#include <iterator>
#include <vector>

#include <support/KXTestRandom.h>

namespace {

constexpr int fuzzRounds = 20'000;

void run(const std::string &input)
{
    LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t *>(input.data()), input.size());
}

}

int main(int argc, char **argv)
{
    LLVMFuzzerInitialize(&argc, &argv);
    for (int i = 1; i < argc; ++i) {
        std::ifstream file(argv[i], std::ios::binary);
        run({ std::istreambuf_iterator<char>(file), {} });
    }
    if (argc > 1)
        return 0;
    const std::vector<std::string> seeds = fuzzSeeds();
    for (const std::string &seed : seeds)
        run(seed);
    KXTestRandom random;
    for (int round = KXTestRandom::scaled(fuzzRounds); round > 0; --round) {
        std::string input = random.oneOf(seeds);
        if (random.chance(0.2))
            input.resize(random.between<size_t>(0, input.size()));
        // Most changes near the start, where headers are.
        for (int changes = random.between(1, 8); changes > 0 && !input.empty(); --changes)
            input[random.between<size_t>(
                0, std::min<size_t>(input.size(), random.chance(0.7) ? 128 : input.size()) - 1)]
                = char(random.chance(0.3) ? random.oneOf(std::vector<int> { 0, 1, 0x7f, 0x80, 0xff })
                                          : random.between(0, 255));
        run(input);
    }
    return 0;
}
