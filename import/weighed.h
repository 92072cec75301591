// The weighed rows: the calls of a table, each with the weight that serves the layout best.
//
// Merging starts with the heaviest row and goes down from there, so the weights say which functions find each other first.
// Numbers of calls are a poor guide: a function that is called from everywhere goes to its first caller and tears apart what
// runs together, and a large function counts as much as a small one although it fills as many cache lines as ten of those.
// What serves better, on every program that was tried (scripts/layout-bench), is to let each function find its heaviest
// caller, the densest function first: calls per byte. All other rows stay as they are; they come later and decide
// which way chains are turned.
//
//     main -> f 10, 100 bytes      g -> f 4      main -> g 6, 36 bytes
//
//     "caller","callee","weight" weighed
//     main,f,1466574198       1024 x (10 + 4) / (100 + 64), the heaviest caller of f, times 2 to the power of 24
//     g,f,409200              4 / (100 + 64)
//     main,g,1030792151       1024 x 6 / (36 + 64)
//
// A function's calls, from all callers, are thus the numerator of its heaviest row; 64 bytes, a cache line, is what even the
// smallest function costs. The factor 1024 puts the heaviest callers before all others of alike density. The scale, a power of
// two, puts the largest weight just below 2 to the power of 31; it depends on all rows, so weighed files must not be
// added up, and the header says that these are no calls.
//
// Tried without use, by the same measure: factors from 16 to 65536, from 0 to 4096 bytes beside the size, powers of the size,
// the heaviest row's own count, a larger second caller, the caller's size or density as well, all rows by density alone.
//
// Cost: three passes over the rows, and 16 bytes for each function.
#pragma once

#include "binary/elf_file.h"
#include "import/call_table.h"
#include "support/output_file.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

/// The first line of a weighed file. The tool itself takes whatever stands behind the third name.
constexpr std::string_view weighed_header = "\"caller\",\"callee\",\"weight\" weighed";

/// How large functions are.
class function_sizes {
public:
    /// Adds the functions among these symbols. Of several of one name the largest counts.
    void add(const std::vector<elf_symbol>& symbols);
    /// Adds what an object, an archive or a list ("@FILE") defines. Throws `failure`.
    void add_objects(const std::string& argument);
    /// In bytes; 0 when it is not known.
    std::uint64_t of(std::string_view function) const;

private:
    struct name_hash {
        using is_transparent = void;
        std::size_t operator()(std::string_view name) const { return std::hash<std::string_view>()(name); }
    };
    std::unordered_map<std::string, std::uint64_t, name_hash, std::equal_to<>> sizes_;
};

/// Writes the rows of the CSV, in its order, with their weights for the layout.
void write_weighed(const call_table& calls, const function_sizes& sizes, output_file& out);
