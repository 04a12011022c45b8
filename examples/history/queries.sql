-- psql -v camera=cameras/hall -v begin='2026-03-01' -v end='2026-03-02' -f queries.sql
-- Times are those of the session's time zone.

-- Who crossed which line of a camera when? One row for each object; none known: one row without.
SELECT time, rule, who->>'ObjectId' AS object, who->>'Class' AS class, who->>'Crossing' AS crossing
FROM events LEFT JOIN jsonb_array_elements(data->'Objects') AS who ON true
WHERE camera = :'camera' AND time >= :'begin' AND time < :'end' AND kind = 'LineDetector'
ORDER BY time, object;

-- How many crossed each line of a camera in each hour? "counted" is by the counters, which go on while
-- events are lost, the broker away, or this database down for longer than the broker keeps messages;
-- "stored" is by the events. A counter that starts again counts from zero.
WITH rises AS (
    SELECT camera, rule, hour, last, coalesce(lag(last) OVER line, first) AS before
    FROM counts WHERE camera = :'camera'
    WINDOW line AS (PARTITION BY camera, rule ORDER BY hour)
), stored AS (
    SELECT rule, date_trunc('hour', time, 'UTC') AS hour,
        sum(greatest(jsonb_array_length(data->'Objects'), 1)) AS stored -- one where nobody is known
    FROM events
    WHERE camera = :'camera' AND time >= :'begin' AND time < :'end' AND kind = 'LineDetector'
    GROUP BY rule, date_trunc('hour', time, 'UTC')
)
SELECT hour, rule, CASE WHEN last < before THEN last ELSE last - before END AS counted, stored
FROM rises FULL JOIN stored USING (rule, hour)
WHERE hour >= :'begin' AND hour < :'end'
ORDER BY hour, rule;

-- How many crossed in each hour of the 30 days before "end", for each camera?
WITH rises AS (
    SELECT camera, hour, last, coalesce(lag(last) OVER line, first) AS before
    FROM counts WHERE hour >= :'end'::timestamptz - interval '31 days' AND hour < :'end'
    WINDOW line AS (PARTITION BY camera, rule ORDER BY hour)
)
SELECT camera, hour, sum(CASE WHEN last < before THEN last ELSE last - before END) AS counted
FROM rises WHERE hour >= :'end'::timestamptz - interval '30 days'
GROUP BY camera, hour ORDER BY camera, hour;

-- When was which camera down, for how long, and why? Without an end: still is.
SELECT camera, began, ended, ended - began AS length, why
FROM (
    SELECT camera, state, why, coalesce(since, seen) AS began,
        -- A connection that is regained is online since before it was lost: it is back when it was seen.
        CASE WHEN lead(since) OVER changes > coalesce(since, seen) THEN lead(since) OVER changes
            ELSE lead(seen) OVER changes END AS ended
    FROM availability
    WINDOW changes AS (PARTITION BY camera ORDER BY number)
) AS states
WHERE state = 'offline' AND began < :'end' AND (ended IS NULL OR ended >= :'begin')
ORDER BY camera, began;

-- Who stayed longest?
SELECT camera, object, data->>'Class' AS class, time - make_interval(secs => seconds) AS came,
    time AS went, seconds
FROM events, CAST(data->>'Seconds' AS double precision) AS seconds
WHERE time >= :'begin' AND time < :'end' AND kind = 'TrackEnded'
ORDER BY seconds DESC LIMIT 10;
