// The weighted call graph and the Pettis-Hansen ordering of its functions.
//
// Method: K. Pettis, R. C. Hansen, "Profile Guided Code Positioning" (1990). Every function starts as a vertex of its
// own; an undirected edge carries all calls between two functions. While edges are left, the heaviest edge's
// two ends become one vertex, whose chain joins the two chains in the arrangement that brings calling functions
// closest together. The chains that remain, in vertex order, are the layout.
//
//     read (ORDWELL/pettis_hansen_read)     rows of the input files become vertices and edges
//     merge (ORDWELL/pettis_hansen_merge)   the graph shrinks to chains, join by join, asking
//     oracle (ORDWELL/pettis_hansen_oracle) which of the four arrangements of two chains scores best
//     write (ORDWELL/pettis_hansen_write)   the chains become linker options
//     dump (ORDWELL/pettis_hansen_dump)     the graph as text, for the developers of this tool
//
// The words: the *orig graph* is the unmerged copy against which joins are scored. Of a merged edge, the *first end*
// *survives* and the *second end* is removed; an edge's first end is the caller of the row, or the survivor of
// the merge, that created it. To *fold* an edge of the removed vertex is to move it to the survivor, onto the edge
// that the survivor already has with that neighbour or as a new one. *Creation order* is the order of the edge
// list: a folded edge that is new goes to the back. It breaks ties, so it is part of the result.
//
// A graph has one of three forms, so that a run on a large profile never pays for what it does not use:
//   as read   a call_profile, compact and indexed. Copies share it until one of them changes.
//   stepwise  a Boost adjacency list, which every operation can change. graph() leads here, and so does
//             whatever does not fit the other forms; there is no way back.
//   laid out  the functions of a profile arranged in chains, without edges: what fast merging leaves
//             (ORDWELL/fast_merge).
// All operations give the same answers in every form.
#pragma once

#include "ORDWELL/fast_merge.h"
#include "ORDWELL/phnode.h"

#include <boost/graph/adjacency_list.hpp>
#include <boost/unordered/unordered_flat_map.hpp>

#include <fstream>
#include <list>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

class call_profile;
struct call_row;

class PETTIS_HANSEN_GRAPH {
public:
    /// Vertices in a vector, so that a descriptor is an index; edges in one list in creation order; the weight is a
    /// call count of at most 4294967295 whatever the width of its type.
    using adjacency =
        boost::adjacency_list<boost::vecS, boost::vecS, boost::undirectedS, PHNODE,
                              boost::property<boost::edge_weight_t, unsigned long>, boost::no_property, boost::listS>;

    /// What find_highest_weight_edge() chose.
    struct highest_weight_edge {
        unsigned int first_end;  ///< vertex index; meaningless unless found
        unsigned int second_end; ///< vertex index; meaningless unless found
        bool found;              ///< false when no edge has a weight above 0
    };

    /// What add_edge_with_weight() did.
    struct added_edge {
        unsigned int u;
        unsigned int v;
        std::optional<adjacency::edge_descriptor> edge; ///< the edge between u and v; none when u equals v
        bool existed;                                   ///< whether it existed before
        bool done;                                      ///< whether an edge was created or changed
    };

    /// The edges of the orig graph between two chains, each recorded once from either end.
    using edge_records = std::list<adjacency::edge_descriptor>;

    /// A function order: chains in vertex order, the names of each from its front.
    using function_order = std::list<std::list<std::string>>;

    PETTIS_HANSEN_GRAPH();
    /// The same vertices, chains, edges and orders; `merged` is false. Later changes of either graph do not affect the
    /// other.
    PETTIS_HANSEN_GRAPH(const PETTIS_HANSEN_GRAPH& other);
    PETTIS_HANSEN_GRAPH& operator=(const PETTIS_HANSEN_GRAPH&) = delete;
    ~PETTIS_HANSEN_GRAPH();

    // Vertices and edges. Running out of memory throws std::bad_alloc.

    /// The vertex whose chain holds `name`, and true; 4294967295 and false when there is none.
    std::pair<unsigned int, bool> find_node(std::string name);
    /// Appends a vertex with the one-name chain `name`; false, changing nothing, when a chain holds the name already.
    bool add_node(std::string name);
    /// Appends a vertex with a copy of `chain`, without looking for duplicates, and returns its index.
    unsigned int add_node(const PHNODE& chain);
    /// Adds `weight` calls between two functions to their edge, created at the back when there is none. False, changing
    /// nothing, when both are in the same chain. Raises the internal fatal diagnostic 22005 for an unknown name.
    bool add_edge(std::string caller, std::string callee, unsigned long weight);
    /// The same for two existing vertices.
    added_edge add_edge_with_weight(unsigned long u, unsigned long v, unsigned long weight);
    /// The sum of two weights; 4294967295 when it would be more, or when either is that.
    static unsigned long saturated_add_edge_weights(unsigned long a, unsigned long b);
    /// The graph as an adjacency list, built on first use. It may be changed at will; from then on every look-up by
    /// name walks it, since an index could not notice the changes.
    adjacency& graph();

    // Reading (ORDWELL/pettis_hansen_read.cpp).

    /// Adds a weighted call graph file to this graph. Problems are reported as diagnostics 22100 to 22105; the rows
    /// before a bad row stay.
    void read(std::string& filename);
    /// Whether `line`, without its line feed, is an acceptable header: "caller","callee","weight".
    bool verify_csv_header(std::string& line);

    /// The header line of the file that was read last; empty when it could not be opened.
    const std::string& last_header() const { return last_header_; }

    /// The calls as read, for whoever wants no more than that; null once the graph has another form. Valid as long as
    /// the graph keeps its form and nothing is added.
    const call_profile* profile() const { return is_as_read() ? profile_.get() : nullptr; }

    // Merging (ORDWELL/pettis_hansen_merge.cpp).

    /// Merges until no edge is left, and sets `merged`. `orig` is the copy of this graph as read. Fast (see
    /// ORDWELL/fast_merge.h) where nothing is traced and both graphs are as read, else step by step. Without a copy, as
    /// with the graph itself for `orig`, joins are judged by the calls that are left.
    void merge_nodes(PETTIS_HANSEN_GRAPH& orig);
    /// The same with a copy that nobody will look at any more, which spares keeping the edges for it.
    void merge_nodes(PETTIS_HANSEN_GRAPH&& orig);
    /// Merges step by step, whatever the graph's form: the reference that fast merging is tested against.
    void merge_nodes_stepwise(PETTIS_HANSEN_GRAPH& orig);
    /// The heaviest edge, the first in creation order among equals.
    highest_weight_edge find_highest_weight_edge();
    /// Merges the vertex `second_end` into `first_end`. Later vertices move down one place.
    void merge_node(unsigned int first_end, unsigned int second_end, PETTIS_HANSEN_GRAPH& orig);

    // The oracle (ORDWELL/pettis_hansen_oracle.cpp).

    /// Where and in which direction to join chain 2 onto chain 1, judged by the calls in `orig`.
    std::pair<PH_push_fore_aft, PH_add_fwd_rev> merge_order_oracle(const PHNODE* chain1, const PHNODE* chain2,
                                                                   PETTIS_HANSEN_GRAPH& orig);
    /// The score of a candidate chain: over all records, weight times (names in the chain - distance of the two
    /// functions), saturating at 4294967295. High is good.
    static unsigned int score_calc(PHNODE& candidate, edge_records& records, adjacency& orig_graph);

    // Writing (ORDWELL/pettis_hansen_write.cpp).

    /// The function order of a merged graph; false, leaving `order` alone, when merging has not finished.
    bool get_ordering(function_order& order);
    /// Writes one linker option per function to `out`, flushing after each line, and closes it. Raises the internal
    /// fatal diagnostic 22008 for a graph that is not merged.
    void write_order(std::ofstream& out);
    /// The same to an open file, one write(2) a line, and closes it.
    void write_order(int file);

    // Dumps on standard output (ORDWELL/pettis_hansen_dump.cpp).

    /// Every vertex with its chain, neighbours and edge weights.
    void dump_graph();
    /// One line per vertex with its chain.
    void dump_nodes();

    bool merged = false; ///< whether merging has finished

private:
    bool can_merge_fast(const PETTIS_HANSEN_GRAPH& orig) const;
    bool is_as_read() const { return adjacency_ == nullptr && !layout_.has_value(); }
    std::unique_ptr<adjacency> build_adjacency() const;
    adjacency& stepwise();
    unsigned int append_vertex(const PHNODE& chain);
    call_profile& own_profile();
    std::uint32_t name_to_vertex(std::string_view name);
    void add_rows(const std::vector<call_row>& rows);
    template <typename Visit>
    void visit_order(Visit visit);

    std::shared_ptr<call_profile> profile_; ///< the graph as read, or the names of layout_; null when stepwise
    std::optional<function_layout> layout_; ///< set in the form laid out
    std::unique_ptr<adjacency> adjacency_;  ///< set in the form stepwise
    bool is_handed_out_ = false;            ///< whether graph() gave adjacency_ away, so that anyone may change it
    /// Stepwise: the first vertex whose chain holds a name; to be rebuilt when is_index_stale_, unused when
    /// is_handed_out_.
    boost::unordered_flat_map<std::string, std::uint32_t> name_index_;
    bool is_index_stale_ = true;
    std::string last_header_;
};
