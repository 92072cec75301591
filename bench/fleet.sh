# shellcheck shell=sh
# What a fleet's database costs, on servers of its own: rows per second loaded, and the call graph's time and memory, on one
# and on two shards, beside ordwell-import of the same rows in one process. To be sourced by scripts/bench:
#
#   bench_fleet [ROWS ...]      1000000 10000000 100000000
#
# Rows are made by a generator: uploads of 10,000 rows from 1,000 hosts, with 100,000 distinct pairs of functions. The first
# million is loaded as a fleet does, by examples/fleet/load; the rest is inserted by the servers themselves. Memory is the peak
# of all servers together, what they hold besides the query among it.

# calls_of FIRST COUNT: a statement for those rows, and what tells the upload of each.
calls_of() {
    echo "SELECT intDiv(number, 10000) AS place, concat('host', toString(place % 1000)) AS host,
        (place * 7919 + number % 10000 * 13) % 100000 AS pair,
        concat('function_of_the_program_', toString(intDiv(pair, 10))) AS caller,
        concat('function_of_the_program_', toString(pair * 7 % 10007)) AS callee, number % 1000 + 1 AS calls
        FROM (SELECT number + $1 AS number FROM system.numbers LIMIT $2)"
}

# fill SHARD FIRST COUNT: these rows, and their uploads, on a shard.
fill() {
    client "$1" --max_insert_block_size=1048576 --query "INSERT INTO ordwell.calls (build_id, host, run, day, upload, attempt, caller, callee, calls)
        SELECT 'bench', host, '1', toDate('2026-11-01') + place % 10, concat('upload', toString(place)),
            concat('attempt', toString(place)), caller, callee, calls FROM ($(calls_of "$2" "$3"))"
    client "$1" --query "INSERT INTO ordwell.uploads (build_id, host, run, day, upload, attempt, rows, calls)
        SELECT build_id, any(host), '1', any(day), upload, attempt, count(), sum(calls) FROM ordwell.calls
        WHERE attempt NOT IN (SELECT attempt FROM ordwell.uploads) GROUP BY build_id, upload, attempt"
}

# seconds COMMAND...: its wall time.
seconds() {
    start=$(date +%s%N)
    "$@" >"$fleet_data/out"
    echo "$start $(date +%s%N)" | awk '{ printf "%.1f", ($2 - $1) / 1e9 }'
}

# peak_memory: of all servers since the last forget_peak, in MiB.
server_processes() { for shard in $(seq "$shards"); do eval "echo \$pid_$shard"; done; }
forget_peak() { for pid in $(server_processes); do echo 5 >"/proc/$pid/clear_refs"; done; }
peak_memory() { for pid in $(server_processes); do awk '/VmHWM/ { print $2 }' "/proc/$pid/status"; done | awk '{ s += $1 } END { printf "%.0f", s / 1024 }'; }

bench_fleet() {
    scripts/setup fleet
    . scripts/fleet-servers
    [ $# -gt 0 ] || set -- 1000000 10000000 100000000
    printf '%-8s %10s %14s %12s %10s %18s\n' shards rows 'loaded rows/s' 'call graph s' 'peak MiB' 'ordwell-import s'
    for count in 1 2; do
        fleet_data=$(mktemp -d)
        trap 'stop_servers; rm -rf "$fleet_data"' EXIT
        start_servers "$fleet_data" "$count"
        # shellcheck disable=SC2154  # port_1 is set by start_servers
        server=127.0.0.1:$port_1
        client 1 --query "SELECT place, concat(caller, ',', callee, ',', toString(calls)) FROM ($(calls_of 900000000 1000000)) FORMAT TSVRaw" |
            awk -F '\t' -v folder="$fleet_data" '{ csv = folder "/" $1 ".csv" }
                csv != last { if (last) close(last); print "\"caller\",\"callee\",\"weight\"" >csv; last = csv } { print $2 >csv }'
        loading=$(seconds examples/fleet/load --server "$server" --build-id loaded --host one --run 1 "$fleet_data"/*.csv)
        rm "$fleet_data"/*.csv
        have=0
        for rows; do
            for shard in $(seq "$count"); do
                fill "$shard" $((have + (rows - have) / count * (shard - 1))) $(((rows - have) / count)) &
                [ "$shard" -lt "$count" ] || wait $!
            done
            wait_for_rows "$rows"
            have=$rows
            forget_peak
            asking=$(seconds examples/fleet/ask --server "$server" examples/fleet/call-graph.sql build=bench)
            memory=$(peak_memory)
            import=-
            if [ "$count" -eq 1 ]; then
                { echo '"caller","callee","weight"'; client 1 --query "SELECT concat(caller, ',', callee, ',', toString(calls)) FROM ($(calls_of 0 "$rows")) FORMAT TSVRaw"; } >"$fleet_data/rows.csv"
                import=$(seconds "$bin/ordwell-import" --quiet "$fleet_data/rows.csv")
                rm "$fleet_data/rows.csv"
            fi
            printf '%-8s %10s %14s %12s %10s %18s\n' "$count" "$rows" "$(awk -v s="$loading" 'BEGIN { printf "%.0f", 1000000 / s }')" "$asking" "$memory" "$import"
        done
        bytes=$(client 1 --query "SELECT round(sum(bytes_on_disk) / sum(rows), 1) FROM system.parts WHERE active AND database = 'ordwell' AND table = 'calls'")
        echo "$bytes bytes a row on disk, compressed"
        stop_servers
        rm -rf "$fleet_data"
        trap - EXIT
    done
}

# wait_for_rows ROWS: until the shards hold them all.
wait_for_rows() {
    for _ in $(seq 6000); do
        [ "$(client 1 --query "SELECT count() FROM ordwell.calls_all WHERE build_id = 'bench'")" -lt "$1" ] || return 0
        sleep 0.1
    done
    echo "the servers do not get $1 rows" >&2
    return 1
}
