// Runs a fuzz target without a fuzzer: every file of a corpus, then a number of mutations of them, the same every time.
//
//   replay_file CORPUS_FOLDER MUTATIONS
//
// When an input breaks something, it is left in the file "failing-input" of the current directory.
#include "tests/fuzz/fuzz.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

namespace {

void try_input(const std::string& input) {
    std::ofstream("failing-input", std::ios::binary) << input;
    LLVMFuzzerTestOneInput(reinterpret_cast<const unsigned char*>(input.data()), input.size());
}

std::string mutated(std::string input, const std::vector<std::string>& corpus, std::mt19937& random) {
    const auto below = [&](std::size_t bound) { return bound == 0 ? 0 : random() % bound; };
    for (std::size_t edits = 1 + below(8); edits > 0; --edits) {
        const std::size_t at = below(input.size() + 1);
        const std::string& donor = corpus[below(corpus.size())];
        switch (below(5)) {
        case 0: // a byte, often one that means something
            input.insert(at, 1, random() % 2 == 0 ? ",\n\"-= \r0"[below(9)] : static_cast<char>(random()));
            break;
        case 1:
            input.erase(at, below(10));
            break;
        case 2:
            if (at < input.size()) {
                input[at] = static_cast<char>(input[at] ^ (1 << below(8)));
            }
            break;
        case 3: // a piece of this or another input
            input.insert(at, donor.substr(below(donor.size()), below(60)));
            break;
        default: // a number
            input.insert(at, std::to_string(random() >> below(32)));
        }
    }
    return input;
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: %s CORPUS_FOLDER MUTATIONS\n", argv[0]);
        return 2;
    }
    std::vector<std::filesystem::path> files(std::filesystem::directory_iterator(argv[1]), {});
    std::sort(files.begin(), files.end());
    std::vector<std::string> corpus;
    for (const std::filesystem::path& file : files) {
        std::ifstream bytes(file, std::ios::binary);
        corpus.emplace_back(std::istreambuf_iterator<char>(bytes), std::istreambuf_iterator<char>());
        try_input(corpus.back());
    }
    require(!corpus.empty(), "the corpus has files");
    std::mt19937 random(1);
    for (long i = std::strtol(argv[2], nullptr, 10); i > 0; --i) {
        try_input(mutated(corpus[random() % corpus.size()], corpus, random));
    }
    std::filesystem::remove("failing-input");
    return 0;
}
