"use strict";

// What is known of a camera from the messages below its prefix.

const SHOWN_FOR = 1000; // ms: objects until the next frame, a crossing, a place of a trail
const EVENTS_KEPT = 100;

// The name of a camera and what stands behind it, or null for a topic that is none of ours.
function split(topic) {
  const found = /^(.+?)\/(va|onvif-mj|onvif-ej)\/(.+)$/.exec(topic);
  return found && { camera: found[1], room: found[2], path: found[3].split("/") };
}

// "line 0" of "CrossLine.C0", as the picture calls it.
function ruleName(rule) {
  const found = /^(CrossLine\.C|ObjectDetection\.O)(\d+)$/.exec(rule);
  return found ? `${found[1] === "CrossLine.C" ? "line" : "area"} ${found[2]}` : rule;
}

function boxOf(box) {
  return {
    x: box["@left"], y: box["@top"],
    width: box["@right"] - box["@left"], height: box["@bottom"] - box["@top"],
  };
}

class Camera {
  constructor(name) {
    this.name = name;
    this.online = null;       // not known
    this.since = null;        // Date of the last change of that
    this.scene = null;
    this.seen = new Map();    // "od", "fd": objects of the newest frame
    this.seenAt = -Infinity;  // ms, when a frame came
    this.delay = null;        // ms from the record to here, by two clocks
    this.trails = new Map();  // by kind and number: places with their times
    this.crossed = new Map(); // by rule: when it was, how often
    this.inside = new Set();  // rules of areas
    this.tampered = false;
    this.events = [];         // newest first: {time, text}
  }

  // A message; `now` in ms. One that is retained tells of a state, not of an event.
  take({ room, path }, payload, retained, now) {
    if (room === "onvif-mj") this.takeFrame(path.at(-1), JSON.parse(payload).Frame[0], now);
    else if (room === "onvif-ej") this.takeEvent(path, payload, retained, now);
    else if (path[0] === "available") this.setOnline(payload === "online");
    else if (path[0] === "scene") this.scene = payload ? JSON.parse(payload) : null;
    else if (path[0] === "track") this.takeTrack(JSON.parse(payload));
  }

  takeFrame(stream, frame, now) {
    const objects = frame.Object.map(object => ({
      kind: object.Appearance.Class.Type.toLowerCase(),
      number: object["@ObjectId"],
      box: boxOf(object.Appearance.Shape.BoundingBox),
      centre: object.Appearance.Shape.CenterOfGravity,
    }));
    this.seen.set(stream, { objects, at: now });
    this.seenAt = now;
    this.delay = Date.now() - Date.parse(frame["@UtcTime"]);
    for (const { kind, number, centre } of objects.filter(object => object.kind === "moving")) {
      const key = `${kind} ${number}`;
      const trail = (this.trails.get(key) ?? []).filter(place => now - place.at < 2 * SHOWN_FOR);
      this.trails.set(key, [...trail, { x: centre["@x"], y: centre["@y"], at: now }]);
    }
  }

  takeEvent(path, payload, retained, now) {
    const rule = path.at(-1);
    if (!payload) return this.inside.delete(rule); // the area is no longer there
    const event = JSON.parse(payload);
    const name = ruleName(rule);
    const tell = text => { if (!retained) this.tell(event.UtcTime, text); };
    if (path[1] === "LineDetector") {
      this.crossed.set(rule, { at: now, times: (this.crossed.get(rule)?.times ?? 0) + 1 });
      tell(`${name} crossed`);
    } else if (path[1] === "FieldDetector") {
      const inside = event.Data.IsInside;
      if (inside) this.inside.add(rule); else this.inside.delete(rule);
      tell(`${name} ${inside ? "entered" : "left"}`);
    } else if (path[1] === "GlobalSceneChange") {
      this.tampered = event.Data.State;
      tell(`tamper ${this.tampered ? "began" : "ended"}`);
    }
  }

  takeTrack(track) {
    const name = `${track.Class.toLowerCase()} ${track.ObjectId}`;
    if (track.State === "Began") return this.tell(track.First.UtcTime, `${name} appeared`);
    this.trails.delete(name);
    this.tell(track.Last.UtcTime, `${name} left after ${track.Seconds.toFixed(1)} s`);
  }

  setOnline(online) {
    if (this.online === online) return;
    if (this.online !== null) this.tell(new Date().toISOString(), online ? "online" : "offline");
    this.online = online;
    this.since = new Date();
  }

  tell(time, text) {
    this.events.unshift({ time: new Date(time), text });
    this.events.length = Math.min(this.events.length, EVENTS_KEPT);
  }

  objects(now) {
    const live = [...this.seen.values()].filter(frame => now - frame.at < SHOWN_FOR);
    return live.flatMap(frame => frame.objects);
  }

  isLit(rule, now) {
    return this.inside.has(rule) || now - (this.crossed.get(rule)?.at ?? -Infinity) < SHOWN_FOR;
  }

  isAlarmed(now) {
    return this.inside.size > 0 || [...this.crossed.keys()].some(rule => this.isLit(rule, now));
  }
}
