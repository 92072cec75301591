-- Where a fleet's calls lie: each server of the cluster "fleet" holds a part of the uploads.
--
--     clickhouse-client --host=SERVER --multiquery <schema.sql      # on each server, after its <remote_servers> names the
--                                                                   # shards of "fleet"; a second time harms nothing
--
-- An upload is what one run on one host called: one CSV of ordwell-import. It has to count whole and once, though
-- clients, servers and connections die in the middle and are tried again. So nothing is ever taken back or overwritten:
-- each attempt to load an upload writes its rows to "calls" under an ID of its own, and when all of them are stored, one
-- row to "uploads", which cannot be stored by half. Of an upload with several such rows (two clients at a time) the first
-- attempt counts. Rows of attempts without a row in "uploads" are never read, and go with their day.
--
--     calls                                                   uploads
--     upload  attempt              caller  callee  calls      upload  attempt              rows  calls
--     7c4e..  20261124T0610..9f    main    parse   12         7c4e..  20261124T0655..03    2     19
--         (the client was killed here)
--     7c4e..  20261124T0655..03    main    parse   12
--     7c4e..  20261124T0655..03    parse   next    7
--
-- A day is a partition: ALTER TABLE ordwell.uploads DROP PARTITION '2026-11-24' on each server, then the same of calls,
-- ends its keeping.

CREATE DATABASE IF NOT EXISTS ordwell;

-- One row for each row of an uploaded CSV. What is the same in all rows of an attempt costs next to nothing, because
-- they lie together.
CREATE TABLE IF NOT EXISTS ordwell.calls
(
    build_id String,   -- of the program, as ordwell-import --build-id prints it
    host     String,
    run      String,   -- tells the runs of a host apart
    day      Date,     -- UTC
    upload   String,   -- hash of build ID, host, run and content: the same for a retry
    attempt  String,   -- starts with its time
    caller   String,   -- as the linker knows it, any bytes
    callee   String,
    calls    UInt64    -- 1 to 4294967295
)
ENGINE = MergeTree PARTITION BY day ORDER BY (build_id, attempt, caller, callee);

-- The attempts that are complete.
CREATE TABLE IF NOT EXISTS ordwell.uploads
(
    build_id String,
    host     String,
    run      String,
    day      Date,
    upload   String,
    attempt  String,
    rows     UInt64,   -- of the attempt in calls
    calls    UInt64    -- their sum
)
ENGINE = MergeTree PARTITION BY day ORDER BY (build_id, upload, attempt);

-- The same over all shards. An upload lies on one of them.
CREATE TABLE IF NOT EXISTS ordwell.calls_all AS ordwell.calls
ENGINE = Distributed(fleet, ordwell, calls, cityHash64(upload));

CREATE TABLE IF NOT EXISTS ordwell.uploads_all AS ordwell.uploads
ENGINE = Distributed(fleet, ordwell, uploads, cityHash64(upload));

-- Each upload once, with the attempt that counts.
CREATE VIEW IF NOT EXISTS ordwell.uploads_counted AS
SELECT build_id, upload, first_attempt AS attempt, its_host AS host, its_day AS day, its_rows AS rows, its_calls AS calls
FROM
(
    SELECT
        build_id,
        upload,
        min(attempt)           AS first_attempt,
        any(host)              AS its_host, -- the same in all attempts, as are rows and calls
        argMin(day, attempt)   AS its_day,
        any(rows)              AS its_rows,
        any(calls)             AS its_calls
    FROM ordwell.uploads_all
    GROUP BY build_id, upload
);
