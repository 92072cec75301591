#include "ORDWELL/fast_merge_chains.h"

#include <algorithm>
#include <utility>

namespace {

// The number, 0 to 3, of the arrangement with the best score.
unsigned int best_join(const chain& chain1, const chain& chain2, const calls_between& calls) {
    constexpr std::uint64_t saturated = 0x80000000U; // half of a score from which it saturates
    const std::uint64_t w = calls.weight;
    if (w >= saturated) {
        return 0;
    }
    const auto in_chain = [w](const chain& c, std::uint64_t sum) { // modulo 2^64, which the result fits
        return static_cast<std::uint64_t>(c.direction) * sum + static_cast<std::uint64_t>(c.offset) * w;
    };
    const std::uint64_t p = chain1.length;
    const std::uint64_t q = chain2.length;
    const std::uint64_t wi = in_chain(chain1, calls.sum1);
    const std::uint64_t wj = in_chain(chain2, calls.sum2);
    const std::uint64_t distances[4] = {q * w + wi - wj, wi + wj + w, p * w + wj - wi, (p + q - 1) * w - wi - wj};
    unsigned int best = 0;
    std::uint64_t best_score = 0;
    for (unsigned int join = 0; join < 4; ++join) {
        const std::uint64_t half_score = std::min((p + q) * w - distances[join], saturated);
        if (half_score > best_score) {
            best_score = half_score;
            best = join;
        }
    }
    return best;
}

} // namespace

void chain_links::join(chain& chain1, chain& chain2, const calls_between& calls) {
    const unsigned int join = best_join(chain1, chain2, calls);
    const bool in_front = join < 2; // chain 2 before chain 1
    if (join % 2 == 1) {            // reverse chain 2
        std::swap(chain2.head, chain2.tail);
        chain2.direction = -chain2.direction;
        chain2.offset = std::int64_t{chain2.length} - 1 - chain2.offset;
    }
    chain& front = in_front ? chain2 : chain1;
    chain& back = in_front ? chain1 : chain2;
    connect(front.tail, back.head);
    back.offset += front.length;
    front.length = back.length = front.length + back.length;
    front.tail = back.tail;
    back.head = front.head;
}

// Makes two names, each at an end of its chain, neighbours.
void chain_links::connect(std::uint32_t name1, std::uint32_t name2) {
    links_[name1][links_[name1][0] == no_index ? 0 : 1] = name2;
    links_[name2][links_[name2][0] == no_index ? 0 : 1] = name1;
}

// From both ends to the middle, since each step waits for memory.
void chain_links::append_names(const chain& whole, std::vector<std::uint32_t>& names) const {
    const std::size_t begin = names.size();
    names.resize(begin + whole.length);
    const auto step = [this](std::uint32_t& name, std::uint32_t& previous) {
        const std::array<std::uint32_t, 2>& neighbours = links_[name];
        const std::uint32_t next = neighbours[neighbours[0] == previous ? 1 : 0];
        previous = std::exchange(name, next);
    };
    std::uint32_t front = whole.head;
    std::uint32_t back = whole.tail;
    std::uint32_t before_front = no_index;
    std::uint32_t behind_back = no_index;
    for (std::size_t i = begin, j = names.size(); i < j;) {
        names[i++] = front;
        names[--j] = back;
        step(front, before_front);
        step(back, behind_back);
    }
}
