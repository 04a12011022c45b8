"use strict";

// What is known of a camera from its messages. It knows no page: places are fractions of the frame,
// `now` is a clock in ms that does not jump, and what a message says is checked before it counts.

const SHOWN_FOR = 1000;    // ms: objects until the next frame, a crossing
const TRAIL_FOR = 2000;    // ms
const STILL_FRESH = 15000; // ms
const OBJECTS_KEPT = 100;  // of a frame; the others are counted
const SHAPES_KEPT = 100;
const STREAMS_KEPT = 4;
const TRAILS_KEPT = 500;
const RULES_KEPT = 32;
const EVENTS_KEPT = 100;
const KINDS_KEPT = 20;     // of what cannot be read
const FULL_SCALE = 10000;  // of the places in a scene

// The name of a camera and what stands behind it, or null for a topic that is none of ours.
function splitTopic(topic) {
  const found = /^(.+?)\/(va|onvif-mj|onvif-ej)\/(.+)$/.exec(topic);
  return found && { camera: found[1], room: found[2], path: found[3].split("/") };
}

// "line 0" of "CrossLine-C0".
function ruleName(rule) {
  const found = /^(CrossLine-C|ObjectDetection-O)(\d+)$/.exec(rule);
  return found ? `${found[1] === "CrossLine-C" ? "line" : "area"} ${found[2]}` : rule.slice(0, 40);
}

function numberOf(value, least, most) {
  if (!Number.isFinite(value) || value < least || value > most)
    throw new Error(`${value} is no number for this`);
  return value;
}

function textOf(value, longest = 60) {
  if (typeof value !== "string") throw new Error(`${value} is no text`);
  return value.slice(0, longest);
}

function listOf(value) {
  if (!Array.isArray(value)) throw new Error(`${value} is no list`);
  return value;
}

function timeOf(value) {
  const time = Date.parse(value);
  if (!Number.isFinite(time)) throw new Error(`${value} is no time`);
  return time;
}

function flagOf(value) {
  if (typeof value !== "boolean") throw new Error(`${value} is neither true nor false`);
  return value;
}

// Parts of the frame, of which a box may stick out.
function boxOf(box, width, height) {
  const part = (side, length) => numberOf(box[side] / length, -1, 2);
  const [x, y] = [part("@left", width), part("@top", height)];
  return { x, y, width: part("@right", width) - x, height: part("@bottom", height) - y };
}

// "face" of "HumanFace".
function kindOf(word) {
  const kind = textOf(word).toLowerCase();
  return kind === "humanface" ? "face" : kind;
}

function idOf(value) {
  return numberOf(value, 0, Number.MAX_SAFE_INTEGER);
}

function objectOf(object, width, height) {
  const { Shape, Class } = object.Appearance;
  const type = listOf(Class.Type)[0];
  return {
    kind: kindOf(type?.["#text"] ?? type),
    number: idOf(object["@ObjectId"]),
    box: boxOf(Shape.BoundingBox, width, height),
    centre: {
      x: numberOf(Shape.CenterOfGravity["@x"] / width, -1, 2),
      y: numberOf(Shape.CenterOfGravity["@y"] / height, -1, 2),
    },
  };
}

function sizeOf(scale) {
  return { width: numberOf(2 / scale["@x"], 1, 1e5), height: numberOf(-2 / scale["@y"], 1, 1e5) };
}

function shapeOf(shape) {
  const points = listOf(shape.Points).slice(0, 8).map(([x, y]) => ({
    x: numberOf(x, 0, FULL_SCALE) / FULL_SCALE, y: numberOf(y, 0, FULL_SCALE) / FULL_SCALE,
  }));
  if (points.length < 2) throw new Error("a shape has no points");
  return {
    kind: textOf(shape.Kind), number: numberOf(shape.Number, 0, 1000), points, used: flagOf(shape.Used),
    rule: shape.Rule === undefined ? null : textOf(shape.Rule),
    crossing: shape.Crossing === undefined ? "" : textOf(shape.Crossing),
  };
}

function participantText(data) {
  const names = listOf(data.Objects ?? []).slice(0, 5)
    .map(({ Class, ObjectId }) => `${kindOf(Class)} ${idOf(ObjectId)}`);
  const side = data.Objects?.[0]?.Crossing;
  return (names.length ? ` by ${names.join(", ")}` : "") +
    (side ? ` ${textOf(side).replace(/^to /, "to the ")}` : "");
}

class Camera {
  constructor(name) {
    this.name = name;
    this.wasKnown = false;      // whether it was online or offline
    this.isCurrent = true;      // messages arrive; else nothing is known of it now
    this.online = null;         // not known
    this.since = null;          // ms since 1970: when that changed, or the last message before it did
    this.why = "";
    this.newestTime = null;     // ms since 1970: the newest time in a message
    this.frame = { width: 16, height: 9 }; // in any unit
    this.scene = null;          // the message, which an editor takes
    this.shapes = [];
    this.frames = new Map();    // by stream: the newest one's objects, how many more it had
    this.trails = new Map();    // by kind and number: places with their times
    this.crossed = new Map();   // by rule: when it last was
    this.counts = new Map();    // by rule: how often it was, as the camera counts
    this.inside = new Set();    // rules of areas
    this.tampered = false;
    this.still = null;          // {url, at}
    this.seenAt = -Infinity;    // when the newest frame came
    this.watchedAt = -Infinity; // since when its frames are asked for
    this.events = [];           // newest first: {time, text}
    this.eventCount = 0;        // how many there were
    this.alarms = 0;            // since they were acknowledged
    this.offlineAcknowledged = false;
    this.unreadable = new Set(); // kinds of message
    this.version = 0;           // of what is drawn below the objects
  }

  // A message: its value or JSON text, null or "" for one that takes a state back. One that is
  // retained is a state, not an event; an event that is past is listed, and alarms nobody. Returns
  // the alarm that it raises, for people, or null.
  take({ room, path }, message, { retained, isPast = false }, now) {
    const kind = (room === "va" ? `va/${path[0]}` : path.slice(-4).join("/")).slice(0, 80);
    try {
      const value = typeof message === "string" && message ? JSON.parse(message) : message || null;
      const alarm = this.dispatch(room, path, value, retained, now) ?? null;
      this.unreadable.delete(kind);
      if (alarm === null || isPast) return null;
      ++this.alarms;
      return alarm;
    } catch (fault) {
      if (this.unreadable.size < KINDS_KEPT) this.unreadable.add(kind);
      return null;
    }
  }

  dispatch(room, path, value, retained, now) {
    if (room === "onvif-mj") return this.takeFrame(path.at(-1), value, now);
    if (room === "onvif-ej") return this.takeEvent(path, value, retained, now);
    if (path[0] === "available") return this.takeAvailable(value, retained);
    if (path[0] === "scene") return this.takeScene(value);
    if (path[0] === "track" && value) return this.takeTrack(value, retained);
    return null;
  }

  takeFrame(stream, { Frame }, now) {
    const frame = listOf(Frame)[0];
    const time = timeOf(frame["@UtcTime"]);
    const all = listOf(frame.Object ?? []); // none: all are gone
    // Their own frame's size: a scene may come later, or be of other settings.
    const { width, height } = all.length ? sizeOf(frame.Transformation.Scale) : this.frame;
    const objects = all.slice(0, OBJECTS_KEPT).map(object => objectOf(object, width, height));
    if (this.frames.size >= STREAMS_KEPT && !this.frames.has(stream))
      throw new Error("too many streams");
    if (!this.scene) this.frame = { width, height };
    this.frames.set(stream, { objects, more: all.length - objects.length, at: now });
    this.seenAt = now;
    this.newestTime = Math.max(this.newestTime, time);
    this.takeTrails(objects, now);
  }

  takeTrails(objects, now) {
    for (const { kind, number, centre } of objects) {
      const key = `${kind} ${number}`;
      const trail = this.trails.get(key) ?? [];
      if (kind === "moving" && trail.at(-1)?.at !== now) trail.push({ ...centre, at: now });
      if (trail.length && (this.trails.has(key) || this.trails.size < TRAILS_KEPT))
        this.trails.set(key, trail);
    }
    for (const [key, trail] of this.trails) {
      while (trail.length && now - trail[0].at > TRAIL_FOR) trail.shift();
      if (!trail.length) this.trails.delete(key);
    }
  }

  takeEvent(path, value, retained, now) {
    const rule = path.at(-1);
    const detector = path[1];
    if (!value) { // it is no longer in force
      this.inside.delete(rule);
      if (detector === "CountAggregation") this.counts.delete(rule);
      if (detector === "GlobalSceneChange") this.tampered = false;
      ++this.version;
      return null;
    }
    const time = timeOf(value.UtcTime);
    if (!retained) this.newestTime = Math.max(this.newestTime, time);
    const event = { time, retained, name: ruleName(rule), rule, data: value.Data, now };
    switch (detector) {
    case "LineDetector": return this.takeCrossing(event);
    case "CountAggregation": return this.takeCount(event);
    case "FieldDetector": return this.takeArea(event);
    case "GlobalSceneChange": return this.takeTampering(event);
    }
    return null;
  }

  keep(map, rule, value) {
    if (map.has(rule) || map.size < RULES_KEPT) map.set(rule, value);
  }

  takeCrossing({ time, retained, name, rule, data, now }) {
    const text = `${name} crossed${participantText(data)}`;
    this.keep(this.crossed, rule, now);
    return this.alarm(time, text, retained);
  }

  takeCount({ rule, data }) {
    this.keep(this.counts, rule, numberOf(data.Count, 0, 2 ** 53));
    ++this.version;
  }

  takeArea({ time, retained, name, rule, data }) {
    const text = `${name} entered${participantText(data)}`;
    const was = this.inside.has(rule);
    if (flagOf(data.IsInside)) {
      if (this.inside.size < RULES_KEPT) this.inside.add(rule);
      return this.alarm(time, text, retained || was);
    }
    this.inside.delete(rule);
    if (!retained && was) this.addEvent(time, `${name} left`);
  }

  takeTampering({ time, retained, data }) {
    const was = this.tampered;
    this.tampered = flagOf(data.State);
    if (this.tampered) return this.alarm(time, "tampering began", retained || was);
    if (!retained && was) this.addEvent(time, "tampering ended");
  }

  alarm(time, text, isKnown) {
    return !isKnown && this.addEvent(time, text) ? text : null;
  }

  takeTrack(track, retained) {
    const name = `${kindOf(track.Class)} ${idOf(track.ObjectId)}`;
    const isBegin = track.State === "Began";
    const time = timeOf((isBegin ? track.First : track.Last).UtcTime);
    const text = isBegin ? "appeared" : `left after ${numberOf(track.Seconds, 0, 1e9).toFixed(1)} s`;
    if (!isBegin) this.trails.delete(name);
    if (!retained) this.addEvent(time, `${name} ${text}`);
  }

  takeAvailable(value, retained) {
    const online = { __proto__: null, online: true, offline: false }[value?.State];
    if (value && online === undefined) throw new Error(`${value.State} is no state`);
    // A last will does not know when it was.
    const since = value?.Since === undefined ? this.newestTime : timeOf(value.Since);
    const why = value?.Why === undefined ? "" : textOf(value.Why, 200);
    // What is online again behind a connection that broke has been so for longer than that.
    const text = online ? "online" : `offline${why && `: ${why}`}`;
    if (value && this.online !== null && online !== this.online && !retained)
      this.addEvent(since > this.since ? since : Date.now(), text);
    if (online !== this.online) this.offlineAcknowledged = false;
    Object.assign(this, { online: online ?? null, since, why, wasKnown: true });
  }

  takeScene(value) {
    const shapes = listOf(value?.Shapes ?? []).slice(0, SHAPES_KEPT).map(shapeOf);
    if (value) {
      const { Width, Height } = value.Frame;
      this.frame = { width: numberOf(Width, 1, 1e5), height: numberOf(Height, 1, 1e5) };
    }
    this.scene = value;
    this.shapes = shapes;
    ++this.version;
  }

  // For who was away meanwhile: a state that has been taken back since does not come again.
  forgetStates() {
    this.inside.clear();
    this.counts.clear();
    this.tampered = false;
    ++this.version;
  }

  takeStill(url, now) {
    this.still = url && { url, at: now };
  }

  // By time; one that comes twice is one. Returns whether it is new.
  addEvent(time, text) {
    const place = this.events.findIndex(event => event.time <= time);
    const at = place < 0 ? this.events.length : place;
    for (let i = at; this.events[i]?.time === time; ++i)
      if (this.events[i].text === text) return false;
    this.events.splice(at, 0, { time, text });
    ++this.eventCount;
    this.events.length = Math.min(this.events.length, EVENTS_KEPT);
    return true;
  }

  // Its states were taken back: nobody speaks for it any more.
  isRetired() {
    return this.wasKnown && this.online === null && this.scene === null;
  }

  acknowledge() {
    this.alarms = 0;
    this.offlineAcknowledged = this.online === false;
  }

  // Of what the newest frames show: at most so many, and how many more there were.
  objects(now) {
    const live = [...this.frames.values()].filter(frame => now - frame.at < SHOWN_FOR);
    const all = live.flatMap(frame => frame.objects);
    const objects = all.slice(0, OBJECTS_KEPT);
    return { objects, more: live.reduce((sum, { more }) => sum + more, all.length - objects.length) };
  }

  isLit(rule, now) {
    return this.isCurrent && this.online !== false &&
      (this.inside.has(rule) || now - (this.crossed.get(rule) ?? -Infinity) < SHOWN_FOR);
  }

  // What alarms just now.
  alarmsNow(now) {
    if (!this.isCurrent || this.online === false) return [];
    const rules = [...this.inside, ...this.crossed.keys()].filter(rule => this.isLit(rule, now));
    return [...(this.tampered ? ["tampering"] : []), ...[...new Set(rules)].map(ruleName)];
  }

  // For whoever puts alarms first: 2 for one that is not acknowledged, 1 for an offline camera.
  attention() {
    return this.online === false ? Number(!this.offlineAcknowledged) : this.alarms ? 2 : 0;
  }

  hasFreshStill(now) {
    return this.still !== null && now - this.still.at < STILL_FRESH;
  }

  // For how long no frame came, although they were asked for, in ms; 0 when none ever did, and when
  // the last ones were empty, behind which none have to come.
  silence(now) {
    const isEmpty = [...this.frames.values()].every(({ objects }) => !objects.length);
    return isEmpty ? 0 : now - Math.max(this.seenAt, this.watchedAt);
  }

  // When it looks different although nothing arrives.
  nextChange(now) {
    const ends = [...this.frames.values()].map(({ at }) => at + SHOWN_FOR)
      .concat([...this.crossed.values()].map(at => at + SHOWN_FOR),
              this.still ? this.still.at + STILL_FRESH : []);
    return Math.min(...ends.filter(at => at > now));
  }
}
