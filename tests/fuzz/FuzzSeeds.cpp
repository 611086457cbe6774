#include "Fuzz.h"

#include <cstdlib>
#include <fstream>

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    if (const char *folder = std::getenv("KX_FUZZ_SEEDS")) {
        int number = 0;
        for (const std::string &seed : fuzzSeeds())
            std::ofstream(std::string(folder) + "/seed-" + std::to_string(++number), std::ios::binary) << seed;
    }
    return 0;
}
