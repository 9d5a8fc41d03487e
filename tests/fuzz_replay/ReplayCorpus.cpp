// Replays fuzz inputs through a fuzz target's entry point, built with the
// normal compiler and without libFuzzer, so every build checks the library
// against the target's reference model on the stored corpus. A disagreement
// aborts with the target's own report; a file that cannot be read fails.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

bool readWhole(const char* path, std::vector<uint8_t>& bytes) {
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        return false;
    }
    bytes.assign(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    return !file.bad();
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: %s INPUT...\n", argv[0]);
        return 2;
    }
    for (int index = 1; index < argc; ++index) {
        std::vector<uint8_t> bytes;
        if (!readWhole(argv[index], bytes)) {
            std::fprintf(stderr, "cannot read %s\n", argv[index]);
            return 1;
        }
        LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
        std::printf("replayed %s (%zu bytes)\n", argv[index], bytes.size());
    }
    return 0;
}
