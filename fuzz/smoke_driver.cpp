// Runs a fuzz target without libFuzzer: every file of a seed corpus, then a
// fixed number of deterministic mutations of them. Used by the normal test
// suite so the targets' code paths run under the sanitizers of any compiler.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

struct Random {
    uint64_t state = 0x9E3779B97F4A7C15ULL;
    uint64_t next()
    {
        state ^= state << 13;
        state ^= state >> 7;
        state ^= state << 17;
        return state;
    }
    size_t below(size_t bound) { return bound ? size_t(next() % bound) : 0; }
};

// Headers sit near the start of a file; most mutations land there.
size_t position(Random& random, size_t size)
{
    const size_t head = size < 4096 ? size : 4096;
    return random.below(4) ? random.below(head) : random.below(size);
}

void putBigEndian(std::vector<uint8_t>& bytes, size_t at, uint32_t value)
{
    for (int i = 0; i < 4 && at + size_t(i) < bytes.size(); ++i)
        bytes[at + size_t(i)] = uint8_t(value >> (24 - 8 * i));
}

void mutate(std::vector<uint8_t>& bytes, Random& random)
{
    static const uint32_t kInteresting[] = {0, 1, 7, 8, 16, 24, 0x7F, 0x80, 0xFF, 0x100, 0xFFFF, 0x7FFFFFFF,
                                            0x80000000, 0xFE363C80, 0xFFFFFFFF};
    if (bytes.empty()) {
        bytes.push_back(uint8_t(random.next()));
        return;
    }
    const size_t at = position(random, bytes.size());
    switch (random.below(7)) {
    case 0:
        bytes[at] ^= uint8_t(1u << random.below(8));
        break;
    case 1:
        bytes[at] = uint8_t(random.next());
        break;
    case 2:  // a size or length field, either byte order
        putBigEndian(bytes, at, kInteresting[random.below(std::size(kInteresting))]);
        if (random.below(2))
            for (size_t i = 0; i < 2 && at + 3 - i < bytes.size() && at + i < bytes.size(); ++i)
                std::swap(bytes[at + i], bytes[at + 3 - i]);
        break;
    case 3:
        bytes.resize(at);
        break;
    case 4:
        bytes.insert(bytes.begin() + std::ptrdiff_t(at), size_t(1 + random.below(16)), uint8_t(random.next()));
        break;
    case 5:
        bytes.erase(bytes.begin() + std::ptrdiff_t(at),
                    bytes.begin() + std::ptrdiff_t(std::min(bytes.size(), at + 1 + random.below(16))));
        break;
    default: {  // copy a chunk of the file over another place
        const size_t from = position(random, bytes.size());
        const size_t length = std::min({size_t(1 + random.below(32)), bytes.size() - from, bytes.size() - at});
        std::copy(bytes.begin() + std::ptrdiff_t(from), bytes.begin() + std::ptrdiff_t(from + length),
                  bytes.begin() + std::ptrdiff_t(at));
        break;
    }
    }
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 3) {
        std::fprintf(stderr, "usage: %s CORPUS-FOLDER MUTATIONS\n", argv[0]);
        return 2;
    }
    std::vector<std::vector<uint8_t>> seeds;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(argv[1], error)) {
        std::ifstream in(entry.path(), std::ios::binary);
        seeds.emplace_back(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }
    if (seeds.empty()) {
        std::fprintf(stderr, "no seeds in %s\n", argv[1]);
        return 1;
    }
    for (const auto& seed : seeds)
        LLVMFuzzerTestOneInput(seed.data(), seed.size());

    const long mutations = std::strtol(argv[2], nullptr, 10);
    Random random;
    for (long i = 0; i < mutations; ++i) {
        std::vector<uint8_t> input = seeds[size_t(i) % seeds.size()];
        const size_t rounds = 1 + random.below(4);
        for (size_t r = 0; r < rounds; ++r)
            mutate(input, random);
        LLVMFuzzerTestOneInput(input.data(), input.size());
    }
    std::printf("%zu seeds and %ld mutations ran\n", seeds.size(), mutations);
    return 0;
}
