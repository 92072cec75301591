// The order in which functions were first executed, from profiles that know it: what a start reads from disk in one direction.
//
// A profile in parts, one behind the other in time, tells for each part which functions ran and which called which, but not
// when. Inside a part the calls are followed: from functions that no other of the part calls, in depth, callees in the order
// of the file.
//
//     earlier    main -> f, main -> g, f -> h         main f h g
//     later      main -> g, g -> k                    main g k, of which k is new
//
// Time and memory are proportional to the functions and calls of a part.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

/// What a user is told of a profile without time. Callgrind looks whether a part is due where it translates code that is new,
/// and every 100,000 blocks of a steady run: smaller parts than these change nothing, and a long run's are no more.
inline constexpr const char* how_to_record_time =
    "record with valgrind --tool=callgrind --dump-every-bb=2000 --combine-dumps=yes";

/// The functions and calls of a part, by numbers from 0 that whoever uses it gives.
class part_calls {
public:
    /// Notes that a function has a place in the part; the first time counts.
    void add_function(std::uint32_t function);
    /// Notes a call between two functions, which have a place then.
    void add_call(std::uint32_t caller, std::uint32_t callee);
    /// The functions of the part in the order in which they ran, as far as the calls tell. Ends the part.
    std::vector<std::uint32_t> take_order();

private:
    struct call {
        std::uint32_t caller; ///< places in functions_
        std::uint32_t callee;
    };

    std::uint32_t place_of(std::uint32_t function);
    void follow(std::uint32_t root, std::span<const std::uint32_t> first_call, std::span<const std::uint32_t> callees,
                std::vector<bool>& has_run, std::vector<std::uint32_t>& order) const;

    std::vector<std::uint32_t> functions_; ///< of the part, in the order of the file
    std::vector<std::uint32_t> places_;    ///< by function, the place in functions_; no_index where it has none
    std::vector<call> calls_;              ///< in the order of the file
};
