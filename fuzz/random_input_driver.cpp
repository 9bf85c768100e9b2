// Runs a fuzz target without libFuzzer: seeded random inputs of many lengths,
// and random mutations of the inputs the target offers as seeds. Deterministic,
// so a failure reproduces with the same count.
//
//   TARGET [COUNT]               COUNT random and mutated inputs (100000)
//   TARGET FILE...               each file once, e.g. the kept findings
//   TARGET --write-corpus DIR    the seeds as files seed-NNN, a fuzzer's first corpus
#include <cctype>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size);

// A target may offer well-formed inputs to mutate; weak, so targets without seeds link.
extern "C" __attribute__((weak)) void zelmorFuzzSeeds(std::vector<std::vector<uint8_t>>& seeds);

namespace {

std::vector<std::vector<uint8_t>> targetSeeds() {
    std::vector<std::vector<uint8_t>> seeds;
    if (zelmorFuzzSeeds) zelmorFuzzSeeds(seeds);
    return seeds;
}

int writeCorpus(std::filesystem::path const& directory) {
    std::filesystem::create_directories(directory);
    std::vector<std::vector<uint8_t>> const seeds = targetSeeds();
    for (size_t i = 0; i < seeds.size(); ++i) {
        char name[32];
        std::snprintf(name, sizeof name, "seed-%03zu", i);
        std::ofstream(directory / name, std::ios::binary)
            .write(reinterpret_cast<char const*>(seeds[i].data()), static_cast<std::streamsize>(seeds[i].size()));
    }
    std::printf("%zu seeds written to %s\n", seeds.size(), directory.c_str());
    return 0;
}

int runFiles(int count, char** paths) {
    for (int i = 0; i < count; ++i) {
        std::ifstream in(paths[i], std::ios::binary);
        if (!in) {
            std::fprintf(stderr, "%s: cannot be read\n", paths[i]);
            return 1;
        }
        std::vector<uint8_t> const input{std::istreambuf_iterator<char>(in), {}};
        LLVMFuzzerTestOneInput(input.data(), input.size());
    }
    std::printf("%d files, no failure\n", count);
    return 0;
}

int runRandom(unsigned long iterations) {
    std::vector<std::vector<uint8_t>> const seeds = targetSeeds();
    std::mt19937_64 rng(1);
    std::vector<uint8_t> input;
    for (unsigned long i = 0; i < iterations; ++i) {
        if (!seeds.empty() && (i & 1)) {
            input = seeds[rng() % seeds.size()];
            unsigned const flips = 1 + rng() % 4;
            for (unsigned f = 0; f < flips && !input.empty(); ++f) {
                switch (rng() % 4) {
                    case 0:
                        input[rng() % input.size()] ^= static_cast<uint8_t>(1u << (rng() % 8));
                        break;
                    case 1:
                        input[rng() % input.size()] = static_cast<uint8_t>(rng());
                        break;
                    case 2:
                        input.resize(rng() % (input.size() + 1));
                        break;
                    default:
                        input.push_back(static_cast<uint8_t>(rng()));
                        break;
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

bool isCount(char const* text) { return *text != '\0' && std::strspn(text, "0123456789") == std::strlen(text); }

}  // namespace

int main(int argc, char** argv) {
    if (argc == 3 && std::strcmp(argv[1], "--write-corpus") == 0) return writeCorpus(argv[2]);
    if (argc > 1 && !isCount(argv[1])) return runFiles(argc - 1, argv + 1);
    return runRandom(argc > 1 ? std::strtoul(argv[1], nullptr, 10) : 100000);
}
