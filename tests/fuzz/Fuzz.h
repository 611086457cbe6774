/// What a fuzz target consists of. Built with libFuzzer by scripts/fuzz, and with FuzzMain.cpp as a test that runs the
/// seeds and some changed ones.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

/// One input. Whatever it is, the program must not end, hang or take all memory.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

/// Good inputs to start from.
std::vector<std::string> fuzzSeeds();

/// With KX_FUZZ_SEEDS set, writes the seeds into that folder.
extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv);
