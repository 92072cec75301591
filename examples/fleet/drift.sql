-- How far the fleet's calls have drifted from those an order was made of: whether it is time for a new one.
--
--     ask drift.sql old=5c0f...e1 new=77a0...d3
--
-- Say these calls were loaded:
--
--     old                 new                    gives
--     main,parse,90       main,parse,60          common_percent  functions_new  functions_gone
--     parse,next,10       main,scan,40           60.0            1              1
--
-- Of the calls between two functions 60 % are the same: main,parse has a share of 90 % in the old ones and 60 % in the new
-- ones, of which the smaller counts; nothing else is in both. scan is new, next is gone. It is the figure of
-- ordwell-import --compare.
--
-- parameter old Build,...
-- parameter new Build,...
-- parameter old_first_day Date 1970-01-01
-- parameter old_last_day Date 2105-12-31
-- parameter new_first_day Date 1970-01-01
-- parameter new_last_day Date 2105-12-31

SELECT concat(toString(intDiv(tenths, 10)), '.', toString(tenths % 10)) AS common_percent, functions_new, functions_gone
FROM
(
    -- 4. The smaller shares, added up.
    SELECT
        toUInt64(round(1000 * sum(least(pair.1 / greatest(old_all, 1), pair.2 / greatest(new_all, 1))))) AS tenths,
        any(functions - functions_old) AS functions_new,
        any(functions - functions_now) AS functions_gone
    FROM
    (
        -- 3. All pairs in one array, so that the sums of both sides are known; the functions of either side and of both.
        SELECT
            groupArray((old_calls, new_calls)) AS pairs,
            sum(old_calls) AS old_all,
            sum(new_calls) AS new_all,
            uniqExactArray(ends) AS functions,
            uniqExactArrayIf(ends, is_old) AS functions_old,
            uniqExactArrayIf(ends, is_new) AS functions_now
        FROM
        (
            -- 2. Each pair with its calls on both sides; a row of a function with itself is no call between two.
            SELECT
                [caller, callee] AS ends,
                sum(calls_then) > 0 AS is_old,
                sum(calls_now) > 0 AS is_new,
                if(caller = callee, 0, sum(calls_then)) AS old_calls,
                if(caller = callee, 0, sum(calls_now)) AS new_calls
            FROM
            (
                -- 1. Both sides.
                SELECT caller, callee, sum(calls) AS calls_then, toUInt64(0) AS calls_now
                FROM ordwell.calls_all
                WHERE build_id GLOBAL IN (SELECT arrayJoin(splitByChar(',', old)) FROM parameters)
                    AND day BETWEEN (SELECT old_first_day FROM parameters) AND (SELECT old_last_day FROM parameters)
                    AND attempt GLOBAL IN
                    (
                        SELECT attempt
                        FROM ordwell.uploads_counted
                        WHERE build_id IN (SELECT arrayJoin(splitByChar(',', old)) FROM parameters)
                            AND day BETWEEN (SELECT old_first_day FROM parameters) AND (SELECT old_last_day FROM parameters)
                    )
                GROUP BY caller, callee
                UNION ALL
                SELECT caller, callee, toUInt64(0) AS calls_then, sum(calls) AS calls_now
                FROM ordwell.calls_all
                WHERE build_id GLOBAL IN (SELECT arrayJoin(splitByChar(',', new)) FROM parameters)
                    AND day BETWEEN (SELECT new_first_day FROM parameters) AND (SELECT new_last_day FROM parameters)
                    AND attempt GLOBAL IN
                    (
                        SELECT attempt
                        FROM ordwell.uploads_counted
                        WHERE build_id IN (SELECT arrayJoin(splitByChar(',', new)) FROM parameters)
                            AND day BETWEEN (SELECT new_first_day FROM parameters) AND (SELECT new_last_day FROM parameters)
                    )
                GROUP BY caller, callee
            )
            GROUP BY caller, callee
        )
    )
    ARRAY JOIN arrayPushBack(pairs, (toUInt64(0), toUInt64(0))) AS pair
    WHERE (
        SELECT count()
        FROM ordwell.uploads_counted
        WHERE build_id IN (SELECT arrayJoin(splitByChar(',', old)) FROM parameters)
            AND day BETWEEN (SELECT old_first_day FROM parameters) AND (SELECT old_last_day FROM parameters)
    ) > 0
    AND (
        SELECT count()
        FROM ordwell.uploads_counted
        WHERE build_id IN (SELECT arrayJoin(splitByChar(',', new)) FROM parameters)
            AND day BETWEEN (SELECT new_first_day FROM parameters) AND (SELECT new_last_day FROM parameters)
    ) > 0
    HAVING count() > 0
)
FORMAT TSVWithNames
