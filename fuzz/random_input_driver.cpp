// Runs a fuzz target without libFuzzer: seeded random inputs of many lengths,
// and random mutations of the inputs the target offers as seeds. Deterministic,
// so a failure reproduces with the same count.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size);

// A target may offer well-formed inputs to mutate; weak, so targets without seeds link.
extern "C" __attribute__((weak)) void zelmorFuzzSeeds(std::vector<std::vector<uint8_t>>& seeds);

int main(int argc, char** argv) {
    unsigned long const iterations = argc > 1 ? std::strtoul(argv[1], nullptr, 10) : 100000;
    std::vector<std::vector<uint8_t>> seeds;
    if (zelmorFuzzSeeds) zelmorFuzzSeeds(seeds);
    std::mt19937_64 rng(1);
    std::vector<uint8_t> input;
    for (unsigned long i = 0; i < iterations; ++i) {
        if (!seeds.empty() && (i & 1)) {
            input = seeds[rng() % seeds.size()];
            unsigned const flips = 1 + rng() % 4;
            for (unsigned f = 0; f < flips && !input.empty(); ++f) {
                switch (rng() % 4) {
                    case 0: input[rng() % input.size()] ^= static_cast<uint8_t>(1u << (rng() % 8)); break;
                    case 1: input[rng() % input.size()] = static_cast<uint8_t>(rng()); break;
                    case 2: input.resize(rng() % (input.size() + 1)); break;
                    default: input.push_back(static_cast<uint8_t>(rng())); break;
                }
            }
        } else {
            size_t const length = (i % 16 == 0) ? rng() % 4096 : rng() % 160;
            input.resize(length);
            for (auto& b : input) b = static_cast<uint8_t>(rng());
        }
        LLVMFuzzerTestOneInput(input.data(), input.size());
    }
    std::printf("%lu inputs, no failure\n", iterations);
    return 0;
}
