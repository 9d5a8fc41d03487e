// Writes the hand-made seed inputs of both fuzz targets into a corpus
// directory, as corpus/<target>/seed-<name>, or with --check compares the
// stored ones with what the encoding makes now (exit status 1 on any
// difference). Run it after changing a seed or the input layout:
//
//   zyn_ts_fuzz_seeds fuzz/corpus
//   zyn_ts_fuzz_seeds --check fuzz/corpus
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "SeedInputs.h"

namespace {

using zyn_fuzz::SeedInput;

std::string readWhole(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

bool writeWhole(const std::string& path, const std::string& bytes) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    return static_cast<bool>(file);
}

/// Writes or checks one target's seeds; false on any problem, reported.
bool handleSeeds(const std::string& directory, const std::vector<SeedInput>& seeds, bool check) {
    bool good = true;
    for (const SeedInput& seed : seeds) {
        const std::string path = directory + "/seed-" + seed.name;
        if (seed.bytes.empty()) {
            std::fprintf(stderr, "%s: the encoding does not decode back to the scenario\n", path.c_str());
            good = false;
        } else if (check && readWhole(path) != seed.bytes) {
            std::fprintf(stderr, "%s: differs from what the seed writer makes now; rewrite the seeds\n", path.c_str());
            good = false;
        } else if (!check && !writeWhole(path, seed.bytes)) {
            std::fprintf(stderr, "%s: cannot write\n", path.c_str());
            good = false;
        }
    }
    return good;
}

}  // namespace

int main(int argc, char** argv) {
    const bool check = argc == 3 && std::strcmp(argv[1], "--check") == 0;
    if (argc != 2 && !check) {
        std::fprintf(stderr, "usage: %s [--check] CORPUS_DIRECTORY\n", argv[0]);
        return 2;
    }
    const std::string corpus = argv[argc - 1];
    const bool scheduler = handleSeeds(corpus + "/scheduler", zyn_fuzz::schedulerSeeds(), check);
    const bool fast = handleSeeds(corpus + "/fast", zyn_fuzz::fastSeeds(), check);
    if (scheduler && fast) {
        std::printf("%s %zu + %zu seeds\n", check ? "checked" : "wrote", zyn_fuzz::schedulerSeeds().size(),
                    zyn_fuzz::fastSeeds().size());
        return 0;
    }
    return 1;
}
