# The tables of scripts/layout-bench. Input: lines "row:name", then lines of program, workload, row, profile and six costs.

function heading(first) {
    printf "\n| %s | L1I misses | iTLB misses | distance of a call | pages | for 90 %% | for 99 %% |\n|---|---|---|---|---|---|---|\n", first
}

# Geometric mean, relative to C3, over the programs and these workloads; relative errors add up as squares.
function relative(row, cost, these,    key, sum, error, n) {
    for (key in is_load) {
        if (index(these, substr(key, length(key)))) {
            sum += log(mean[key, row, cost] / mean[key, "c3", cost])
            error += (sem[key, row, cost] / mean[key, row, cost]) ^ 2 + (sem[key, "c3", cost] / mean[key, "c3", cost]) ^ 2
            ++n
        }
    }
    ratio = exp(sum / n)
    ratio_error = row == "c3" ? 0 : ratio * sqrt(error) / n
}

/:/ { rows[++row_count] = substr($0, 1, index($0, ":") - 1); name[rows[row_count]] = substr($0, index($0, ":") + 1); next }

{
    load = $1 ", workload " $2
    if (!(load in is_load)) loads[++load_count] = load
    is_load[load]
    for (cost = 1; cost <= 6; ++cost) {
        sum[load, $3, cost, $4] += $(cost + 4)
        square[load, $3, cost] += $(cost + 4) ^ 2
        total[load, $3, cost] += $(cost + 4)
    }
    ++samples[load, $3, $4]
    ++all[load, $3]
    if ($4 > profiles) profiles = $4
}

END {
    for (l = 1; l <= load_count; ++l) for (r = 1; r <= row_count; ++r) for (cost = 1; cost <= 6; ++cost) {
        key = loads[l] SUBSEP rows[r] SUBSEP cost
        mean[key] = total[key] / all[loads[l], rows[r]]
        of_profiles = 0
        for (p = 1; p <= profiles; ++p) of_profiles += (sum[key, p] / samples[loads[l], rows[r], p] - mean[key]) ^ 2
        sem[key] = sqrt(of_profiles / (profiles - 1) / profiles)
        # how far a single variant lies from the mean
        variance = square[key] / all[loads[l], rows[r]] - mean[key] ^ 2
        luck[key] = variance > 0 ? sqrt(variance) / mean[key] : 0
    }
    for (l = 1; l <= load_count; ++l) {
        heading(loads[l])
        for (r = 1; r <= row_count; ++r) {
            printf "| %s |", name[rows[r]]
            for (cost = 1; cost <= 6; ++cost) printf " %.0f ± %.0f |", mean[loads[l], rows[r], cost], sem[loads[l], rows[r], cost]
            print ""
        }
    }
    split("A B AB", groups, " ")
    for (g = 1; g <= 3; ++g) {
        heading(groups[g] == "AB" ? "relative to lld's C3, geometric mean" : "the same, workload " groups[g] " alone")
        for (r = 1; r <= row_count; ++r) {
            printf "| %s |", name[rows[r]]
            for (cost = 1; cost <= 6; ++cost) {
                relative(rows[r], cost, groups[g])
                printf " %.3f ± %.3f |", ratio, ratio_error
            }
            print ""
        }
    }
    print ""
    for (l = 1; l <= load_count; ++l)
        printf "%s: one layout in weighed order lies %.1f %% from the mean of L1I misses, %.1f %% of iTLB misses (standard deviation)\n",
            loads[l], 100 * luck[loads[l], "weighed", 1], 100 * luck[loads[l], "weighed", 2]
}
