-- Which function called which how often, in all uploads of a build: the CSV that ordwell reads.
--
--     ask -o app.csv call-graph.sql build=5c0f...e1 first_day=2026-11-01
--
-- Say two hosts loaded the rows on the left:
--
--     host a              host b            gives                         with weight=hosts
--     main,parse,900      main,parse,20     "caller","callee","weight"    "caller","callee","weight"
--     parse,next,100      log,log,5         main,parse,920                main,parse,1700000
--                                           parse,next,100                log,log,200000
--                                           log,log,5                     parse,next,100000
--
-- Host a has most of the calls, so it decides alone; with weight=hosts each host has 1,000,000 to give to its rows. With
-- min_hosts=2 only main,parse is left, since one host alone saw the others. A row of a function with itself stands for
-- executions whose caller is not known; it is left out where the function has another row.
--
-- Costs a pass over the rows of the build and days, and memory in proportion to the distinct pairs of functions; with
-- weight=hosts or min_hosts above 1, to the pairs of each host, which goes to disk where memory gets short.
--
-- parameter build Build,...
-- parameter first_day Date 1970-01-01
-- parameter last_day Date 2105-12-31
-- parameter min_hosts UInt64>0 1
-- parameter weight calls|hosts calls

SELECT if(is_header, '"caller","callee","weight"', concat(caller, ',', callee, ',', toString(weight))) AS line
FROM
(
    -- 5. Lines: the header first, then all rows, divided by the one power of two that brings the largest to 32 bits.
    SELECT
        row.1 AS is_header,
        row.2 AS caller,
        row.3 AS callee,
        greatest(intDiv(row.4, greatest(intDiv(roundToExp2(largest), 2147483648), 1)), 1) AS weight
    FROM
    (
        -- 4. All rows in one array, so that the largest is known. Without any, it depends on whether some upload fits.
        SELECT
            max(pair_weight) AS largest,
            arrayPushFront(groupArray((0, from, to, pair_weight)), (1, '', '', toUInt64(0))) AS graph
        FROM
        (
            -- 3. What lies between two functions marks the rows that each has with itself; what is marked goes.
            SELECT row.1 AS from, row.2 AS to, sum(row.3) AS pair_weight
            FROM
            (
                SELECT arrayJoin(if(caller = callee,
                    [(caller, callee, pair_weight, 0)],
                    [(caller, callee, pair_weight, 0), (caller, caller, toUInt64(0), 1), (callee, callee, toUInt64(0), 1)])) AS row
                FROM
                (
                    -- 2. The hosts together: their calls, or each one's share of its 1,000,000. The share is rounded, and
                    --    found three digits at a time, so that no product exceeds 64 bits.
                    SELECT
                        caller,
                        callee,
                        sum(if((SELECT weight FROM parameters) = 'hosts', greatest(share, 1), host_calls)) AS pair_weight
                    FROM
                    (
                        SELECT
                            caller,
                            callee,
                            host_calls,
                            intDiv(host_calls * 1000, all_host_calls) AS thousandths,
                            (host_calls * 1000) % all_host_calls AS rest,
                            thousandths * 1000 + intDiv(rest * 1000 + intDiv(all_host_calls, 2), all_host_calls) AS share
                        FROM
                        (
                            -- 1. What each host called; where hosts make no difference, "" stands for all of them.
                            SELECT caller, callee, sum(calls) AS host_calls, any(all_calls) AS all_host_calls
                            FROM ordwell.calls_all
                            GLOBAL ALL INNER JOIN
                            (
                                SELECT attempt, counted_host, all_calls
                                FROM
                                (
                                    SELECT
                                        if((SELECT weight = 'hosts' OR min_hosts > 1 FROM parameters), host, '') AS counted_host,
                                        sum(calls) AS all_calls,
                                        groupArray(attempt) AS attempts
                                    FROM ordwell.uploads_counted
                                    WHERE build_id IN (SELECT arrayJoin(splitByChar(',', build)) FROM parameters)
                                        AND day BETWEEN (SELECT first_day FROM parameters) AND (SELECT last_day FROM parameters)
                                    GROUP BY counted_host
                                )
                                ARRAY JOIN attempts AS attempt
                            ) AS counted USING (attempt)
                            WHERE build_id GLOBAL IN (SELECT arrayJoin(splitByChar(',', build)) FROM parameters)
                                AND day BETWEEN (SELECT first_day FROM parameters) AND (SELECT last_day FROM parameters)
                            GROUP BY counted_host, caller, callee
                        )
                    )
                    GROUP BY caller, callee
                    HAVING count() >= (SELECT min_hosts FROM parameters)
                )
            )
            GROUP BY from, to
            HAVING max(row.4) = 0
        )
    )
    ARRAY JOIN graph AS row
    WHERE length(graph) > 1 OR
    (
        SELECT count()
        FROM ordwell.uploads_counted
        WHERE build_id IN (SELECT arrayJoin(splitByChar(',', build)) FROM parameters)
            AND day BETWEEN (SELECT first_day FROM parameters) AND (SELECT last_day FROM parameters)
    ) > 0
)
ORDER BY is_header DESC, weight DESC, caller, callee
FORMAT TSVRaw
