// A chain of function names: what one vertex of the call graph stands for.
//
// Chain: functions in the order in which they will lie in memory, front first. After reading, every chain holds one
// name. Each merge joins the chain of the vertex that disappears onto the chain of its survivor, in front or
// behind, forward or reversed; with this chain a, b and the other chain c, d:
//
//     PH_FORE, PH_FWD   c d a b        PH_AFT, PH_FWD   a b c d
//     PH_FORE, PH_REV   d c a b        PH_AFT, PH_REV   a b d c
//
// A join copies the names of the other chain: its cost grows with their number.
#pragma once

#include <list>
#include <string>

/// Where a join puts the other chain: in front of this one or behind it.
enum PH_push_fore_aft { PH_FORE = 0, PH_AFT = 1 };

/// Whether a join adds the other chain in its own order or reversed.
enum PH_add_fwd_rev { PH_FWD = 0, PH_REV = 1 };

/// A chain of function names. It owns its strings.
class PHNODE {
public:
    PHNODE() = default;
    /// A chain of one name.
    explicit PHNODE(std::string name);

    /// Appends a name; always true.
    bool add_node(std::string name);

    /// Joins a copy of `other` onto this chain. Returns false, after printing this chain's names on standard output,
    /// when the two chains are equal: then nothing changes.
    bool add_node(const PHNODE& other, PH_push_fore_aft place, PH_add_fwd_rev direction);

    /// The names, front first; valid until the chain changes.
    const std::list<std::string>& get_list() const { return node_list; }

    /// Prints `prefix`, every name between two blanks, and `suffix` on standard output; null prints nothing.
    void dump_list(const char* prefix, const char* suffix) const;

private:
    std::list<std::string> node_list;
};

/// How far apart two functions lie in a chain: the difference of their positions, counted from 0 at the chain's front.
/// Raises the internal fatal diagnostic 22004 when they are not both there, and then returns 2147483647.
unsigned int PH_distance(PHNODE chain, std::string a, std::string b);
