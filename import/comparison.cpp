#include "import/comparison.h"

#include "import/profile_format.h"

#include <algorithm>
#include <cstdio>
#include <map>
#include <set>
#include <utility>

namespace {

using name_pair = std::pair<std::string_view, std::string_view>;

/// The rows of a table by name.
struct named_calls {
    explicit named_calls(const call_table& calls) {
        calls.visit_rows([&](const call_table::row& row) {
            const name_pair names = {calls.name_of(row.caller), calls.name_of(row.callee)};
            functions.insert({names.first, names.second});
            if (row.caller != row.callee) {
                pairs.emplace(names, row.count);
                total += static_cast<double>(row.count);
            }
        });
    }

    double share(std::uint64_t count) const { return total == 0 ? 0 : static_cast<double>(count) / total; }

    std::set<std::string_view> functions;
    std::map<name_pair, std::uint64_t> pairs;
    double total = 0;
};

std::size_t missing_in(const std::set<std::string_view>& some, const std::set<std::string_view>& others) {
    return static_cast<std::size_t>(
        std::count_if(some.begin(), some.end(), [&](std::string_view name) { return !others.contains(name); }));
}

} // namespace

call_comparison::call_comparison(const std::string& old_csv) : old_(nullptr, {}) {
    profile_input profile(old_csv, false);
    old_.begin_profile();
    read_csv(profile, old_);
    old_.end_profile(profile.name());
}

std::string call_comparison::compare(const call_table& calls) const {
    const named_calls before(old_);
    const named_calls now(calls);
    double common = 0;
    for (const auto& [names, count] : now.pairs) {
        const auto earlier = before.pairs.find(names);
        common += earlier == before.pairs.end() ? 0 : std::min(before.share(earlier->second), now.share(count));
    }
    char text[32];
    std::snprintf(text, sizeof text, "common %.1f %% of calls", 100 * common);
    return text + (", " + std::to_string(missing_in(now.functions, before.functions))) + " functions new, " +
           std::to_string(missing_in(before.functions, now.functions)) + " gone";
}
