-- The tables of history.py, and what it does with a message.
BEGIN;

-- A message that comes twice has the same hash: it is stored once. The key serves a camera's day, too.
CREATE TABLE events (
    camera varchar(200) NOT NULL, -- its prefix
    time timestamptz NOT NULL, -- by the camera's clock
    hash bigint NOT NULL, -- of topic and payload
    kind varchar(40) NOT NULL, -- LineDetector, FieldDetector, GlobalSceneChange, ..., TrackBegan, TrackEnded
    rule varchar(100),
    object bigint, -- ObjectId
    data jsonb NOT NULL, -- the message's Data; of a track all of it
    PRIMARY KEY (camera, time, hash)
);
-- Rows come nearly in the order of their time: half a megabyte does for ten million of them.
CREATE INDEX events_time ON events USING brin (time) WITH (pages_per_range = 32);

-- What the counter of a line was at the first and the last message of an hour.
CREATE TABLE counts (
    camera varchar(200),
    rule varchar(100),
    hour timestamptz,
    time timestamptz NOT NULL, -- of the last one
    first bigint NOT NULL,
    last bigint NOT NULL,
    PRIMARY KEY (camera, rule, hour)
);

-- A row for each change of State.
CREATE TABLE availability (
    number bigint GENERATED ALWAYS AS IDENTITY PRIMARY KEY, -- orders them: since and seen are of two clocks
    camera varchar(200) NOT NULL,
    state varchar(20) NOT NULL,
    since timestamptz, -- a last will does not know
    seen timestamptz NOT NULL DEFAULT now(),
    why text
);
CREATE INDEX availability_camera ON availability (camera, number);

CREATE TABLE unreadable (
    seen timestamptz NOT NULL DEFAULT now(),
    topic text NOT NULL,
    payload bytea NOT NULL,
    why text NOT NULL
);

-- What is missing, or is no number or time, is an error of those for which history.py keeps the message.
-- No regular expression finds the topic's parts: that would take as long as all the rest.
CREATE FUNCTION store(topic text, payload bytea) RETURNS void LANGUAGE plpgsql AS $$
DECLARE
    camera_ text;
    kind text;
    words text;
    said jsonb;
BEGIN
    IF payload = '' THEN -- the end of a state
        RETURN;
    END IF;
    words := convert_from(payload, 'UTF8');
    said := words;

    IF topic LIKE '%/va/available' THEN
        camera_ := left(topic, -length('/va/available'));
        -- Retained, it comes at each connect.
        INSERT INTO availability (camera, state, since, why)
        SELECT camera_, said->>'State', (said->>'Since')::timestamptz, said->>'Why'
        WHERE said->>'State' IS DISTINCT FROM
            (SELECT state FROM availability WHERE camera = camera_ ORDER BY number DESC LIMIT 1);
        RETURN;
    END IF;

    IF topic LIKE '%/va/track/%' THEN
        camera_ := split_part(topic, '/va/track/', 1);
        kind := 'Track' || (said->>'State');
        said := jsonb_build_object('UtcTime', coalesce(said->'Last', said->'First')->'UtcTime', 'Data', said);
    ELSE
        camera_ := split_part(topic, '/onvif-ej/', 1);
        kind := nullif(split_part(split_part(topic, '/onvif-ej/', 2), '/', 2), '');
    END IF;

    IF kind = 'CountAggregation' THEN
        INSERT INTO counts
        SELECT camera_, said->'Source'->>'Rule', date_trunc('hour', time, 'UTC'), time, count, count
        FROM (SELECT (said->>'UtcTime')::timestamptz, (said->'Data'->>'Count')::bigint) AS s(time, count)
        ON CONFLICT (camera, rule, hour) DO UPDATE SET time = EXCLUDED.time, last = EXCLUDED.last
        WHERE EXCLUDED.time >= counts.time;
    ELSE
        INSERT INTO events
        VALUES (camera_, (said->>'UtcTime')::timestamptz, hashtextextended(topic || words, 0), kind,
            said->'Source'->>'Rule', (said->'Data'->>'ObjectId')::bigint, said->'Data')
        ON CONFLICT DO NOTHING;
    END IF;
END
$$;

COMMIT;
