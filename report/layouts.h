// Layouts that nobody has linked yet: the controls, and candidates.
//
// Two controls show what is due to the order and what to mere collecting: the called functions packed in random order, and
// the bound that no order can beat, the bytes that they cover, rounded up to blocks. A candidate is what linking with another
// order file would give: the functions of the order one behind the other, then the called ones that it does not name.
//
// Functions that overlap cannot be moved apart; they move as one piece. Each piece has one place:
//
//     functions  f [0x1000, 0x1080)   g [0x1040, 0x1100)   h [0x1100, 0x1180)        pieces  f and g; h
//     in the order h, f              h at 0, f at 0x80, g at 0xc0
#pragma once

#include "report/figures.h"
#include "report/name_list.h"

#include <cstdint>
#include <vector>

/// A control of many layouts: the mean of each figure, and its sample standard deviation.
struct random_control {
    figures mean;
    figures deviation;
};

/// 20 random orders of the called functions, packed from a page boundary on, each piece aligned to 16 bytes. No order of one
/// seed is made from the numbers of another. `first_run` are numbers of called functions, in the order in which they first
/// ran.
random_control measure_random(const called_code& code, layout_meter& meter, const std::vector<std::uint32_t>& first_run,
                              std::uint64_t seed);

/// The blocks that no order can go below; all other figures are none.
figures bound_of(const figures& layout);

/// Where linking with an order would put the called functions: from a page boundary on, each piece at the alignment that
/// its address shows, 16 at most. `first_run` may be null.
placed_code predict(const called_code& code, const name_list& order, const name_list* first_run);
