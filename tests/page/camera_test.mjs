// node --test: what messages make of a camera, and what is drawn of it.
import assert from "node:assert/strict";
import { test } from "node:test";
import { load } from "./load.mjs";

const { Camera, splitTopic, drawScene, drawObjects } = load(["camera.js", "drawing.js"],
  ["Camera", "splitTopic", "drawScene", "drawObjects"]);
// Of plain objects alone, since those of the scripts are of another realm; numbers as they are meant.
const plain = value => JSON.parse(JSON.stringify(value, (_, part) =>
  typeof part === "number" ? Number(part.toFixed(6))
    : typeof part === "object" && part?.[Symbol.iterator] ? [...part] : part));
const same = (found, wanted) => assert.deepEqual(plain(found), wanted);

const SIZE = { Width: 1000, Height: 500 };
const EVENT = "onvif-ej/RuleEngine/";
const LINE = EVENT + "LineDetector/Crossed/&V/A/CrossLine.C0";
const COUNTER = EVENT + "CountAggregation/Counter/&V/A/CrossLine.C0";
const AREA = EVENT + "FieldDetector/ObjectsInside/&V/A/ObjectDetection.O0";
const TAMPER = "onvif-ej/VideoSource/GlobalSceneChange/AnalyticsService/&V";
const FRAME = "onvif-mj/VideoAnalytics/P/od";
const utc = second => new Date(1e12 + 1000 * second).toISOString();
const event = (second, Data) => ({ UtcTime: utc(second), Source: {}, Data });
const inside = (second, isInside) => event(second, { IsInside: isInside });
const object = (number, left = 100, type = "Moving") => ({
  "@ObjectId": number, Appearance: {
    Class: { Type: type },
    Shape: { BoundingBox: { "@left": left, "@top": 100, "@right": left + 50, "@bottom": 200 },
             CenterOfGravity: { "@x": left + 25, "@y": 150 } },
  },
});
const frame = (...objects) => ({ Frame: [{
  "@UtcTime": utc(0), "@Source": "V", Object: objects,
  Transformation: { Translate: { "@x": -1, "@y": 1 }, Scale: { "@x": 2 / 1000, "@y": -2 / 500 } },
}] });
const line = (crossing, ...points) => ({
  Kind: "line", Number: 0, Rule: "CrossLine.C0", Crossing: crossing, Used: true, Points: points });
const area = { Kind: "area", Number: 0, Rule: "ObjectDetection.O0", Used: true,
               Points: [[5000, 0], [5000, 9999], [9999, 9999], [9999, 0]] };

class Lab {
  constructor() {
    this.camera = new Camera("site/camera3");
    this.take("va/available", { State: "online", Since: utc(0) }, { retained: true });
  }

  take(topic, message, { now = 0, ...how } = {}) {
    return this.camera.take(splitTopic(`site/camera3/${topic}`), message, how, now);
  }

  texts() { return this.camera.events.map(({ text }) => text); }
}

test("topics: the shortest name in front of a room", () => {
  same(splitTopic("a/b/va/scene"), { camera: "a/b", room: "va", path: ["scene"] });
  same(splitTopic("a/va/track/va/7").camera, "a");
  for (const topic of ["va/scene", "a/b/c", "a/vax/scene"]) assert.equal(splitTopic(topic), null);
});

test("frames: parts of their own frame, for a second, the newest of each stream", () => {
  const lab = new Lab();
  lab.take(FRAME, frame(object(7), object(8, 700, "Static")), { now: 1000 });
  lab.take("onvif-mj/VideoAnalytics/P/fd", frame(object(3, 0, "Face")), { now: 1500 });
  same(lab.camera.objects(1999).objects.map(({ kind, number }) => [kind, number]),
       [["moving", 7], ["static", 8], ["face", 3]]);
  same(lab.camera.objects(1999).objects[0].box, { x: .1, y: .2, width: .05, height: .2 });
  same(lab.camera.objects(2001).objects.map(({ number }) => number), [3]);
  assert.equal(lab.camera.nextChange(1999), 2000);
  lab.take(FRAME, frame(), { now: 1600 });
  assert.equal(lab.camera.objects(1700).objects.length, 1);
});

test("trails: of moving objects, two seconds, one place a frame whatever it holds", () => {
  const lab = new Lab();
  for (let now = 0; now <= 3000; now += 500)
    lab.take(FRAME, frame(object(7, now / 10), object(7, 900), object(8, 0, "Static")), { now });
  same(lab.camera.trails.get("moving 7").map(({ at, x }) => [at, x]),
       [1000, 1500, 2000, 2500, 3000].map(at => [at, (at / 10 + 25) / 1000]));
  assert.equal(lab.camera.trails.size, 1);
  lab.take(FRAME, frame(object(9)), { now: 5100 });
  same([...lab.camera.trails.keys()], ["moving 9"]);
});

test("a thousand objects: a hundred are kept, the others counted", () => {
  const lab = new Lab();
  lab.take(FRAME, frame(...Array.from({ length: 1000 }, (_, i) => object(i))));
  lab.take("onvif-mj/VideoAnalytics/P/fd", frame(object(3)));
  const { objects, more } = lab.camera.objects(0);
  same([objects.length, more], [100, 901]);
});

test("alarms: raised by events, not by states; ended by their end and when nothing is known", () => {
  const lab = new Lab();
  const { camera } = lab;
  assert.equal(lab.take(AREA, inside(1, true), { retained: true }), null);
  same([camera.alarmsNow(0), lab.texts(), camera.alarms], [["area 0"], [], 0]);
  assert.equal(lab.take(AREA, inside(2, true)), null); // it was known
  lab.take(AREA, inside(3, false));
  same([camera.alarmsNow(0), camera.attention()], [[], 0]);
  assert.equal(lab.take(AREA, event(4, {
    IsInside: true, Objects: [{ ObjectId: 7, Class: "Moving" }] })), "area 0 entered by moving 7");
  lab.take(AREA, "", { retained: true }); // no longer in force
  same([camera.alarmsNow(0), camera.attention()], [[], 2]);

  assert.equal(lab.take(LINE, event(5, {
    Objects: [{ ObjectId: 7, Class: "Moving", Crossing: "to left" }], Count: 9 }), { now: 500 }),
    "line 0 crossed by moving 7 to the left");
  same([camera.isLit("CrossLine.C0", 1499), camera.isLit("CrossLine.C0", 1501)], [true, false]);
  lab.take(TAMPER, event(6, { State: true }));
  same(camera.alarmsNow(1000), ["tampering", "line 0"]);
  camera.isCurrent = false;
  same(camera.alarmsNow(1000), []);
  camera.isCurrent = true;
  lab.take("va/available", { State: "offline", Since: utc(7), Why: "the daemon has gone" });
  same([camera.alarmsNow(1000), camera.since, camera.attention()], [[], 1e12 + 7000, 1]);
  camera.acknowledge();
  assert.equal(camera.attention(), 0);
  lab.take("va/available", { State: "online", Since: utc(8) });
  lab.take(TAMPER, event(9, { State: false }));
  same(camera.alarmsNow(1000), ["line 0"]);
  same(lab.texts(), ["tampering ended", "online", "offline: the daemon has gone", "tampering began",
                     "line 0 crossed by moving 7 to the left", "area 0 entered by moving 7", "area 0 left"]);
  lab.take("va/available", { State: "offline" }, { retained: true }); // nobody acknowledged that
  assert.equal(camera.attention(), 1);
});

test("events: by their time, each once, the newest hundred", () => {
  const lab = new Lab();
  for (const second of [5, 3, 9, 3, 5]) lab.take(LINE, event(second, {}));
  same(lab.camera.events.map(({ time }) => (time - 1e12) / 1000), [9, 5, 3]);
  assert.equal(lab.camera.alarms, 3);
  for (let second = 10; second < 200; ++second) lab.take(LINE, event(second, {}));
  same([lab.camera.events.length, lab.camera.events.at(-1).time], [100, 1e12 + 100000]);
  assert.equal(lab.take(LINE, event(201, {}), { isPast: true }), null);
  same([lab.texts()[0], lab.camera.alarms], ["line 0 crossed", 193]);
  const place = second => ({ UtcTime: utc(second) });
  lab.take("va/track/7", { State: "Ended", ObjectId: 7, Class: "Moving", First: place(200),
                           Last: place(204), Seconds: 4 });
  same(lab.camera.events[0], { time: 1e12 + 204000, text: "moving 7 left after 4.0 s" });
});

test("a last will has no time: that of the last message stands for it", () => {
  const lab = new Lab();
  lab.take(LINE, event(42, {}));
  lab.take("va/available", { State: "offline", Why: "the connection was lost" });
  assert.equal(lab.camera.since, 1e12 + 42000);
  lab.take("va/available", { State: "online", Since: utc(0) }); // as it was before
  same(lab.texts().slice(0, 2), ["online", "offline: the connection was lost"]);
});

test("what cannot be read is said, changes nothing, and is over with the next that can", () => {
  const scene = { Frame: SIZE, Shapes: [area] };
  const table = [
    ["va/scene", scene, ["{{{", { Shapes: [] }, { Frame: SIZE, Shapes: [line("both")] }, "7", [],
      { Frame: { Width: 0, Height: 5 }, Shapes: [] }, { Frame: SIZE, Shapes: [{ ...area, Points: [[0, 0], [1e9, 0]] }] }]],
    [FRAME, frame(object(1)), ["{}", { Frame: [] }, frame({}), frame(object("x")), frame(object(1, NaN))]],
    [AREA, inside(1, true), [event(1), { Data: { IsInside: true } }, inside(1, "yes")]],
    ["va/available", { State: "online", Since: utc(1) }, ["online", { State: "constructor" }, { State: "online", Since: "x" }]],
    [COUNTER, event(1, { Count: 1 }), [event(1, { Count: -1 }), event(1, {})]],
  ];
  for (const [topic, good, bads] of table) {
    for (const bad of bads) {
      const lab = new Lab();
      lab.take(topic, good);
      const before = plain({ ...lab.camera, unreadable: [] });
      lab.take(topic, bad);
      assert.equal(lab.camera.unreadable.size, 1, `${topic} ${JSON.stringify(bad)}`);
      same({ ...lab.camera, unreadable: [] }, before);
      lab.take(topic, good);
      assert.equal(lab.camera.unreadable.size, 0);
    }
  }
});

// A view of 200 by 100, whose letters are 6 wide.
const view = { width: 200, height: 100, widthOf: text => 6 * text.length };
const paths = elements => elements.filter(([, { d }]) => d).map(([, { d }]) => d);
const labels = elements => elements.filter(([name]) => name === "text");

test("a scene is drawn to scale, with arrows to where a crossing alarms", () => {
  const draw = (...Shapes) => {
    const lab = new Lab();
    lab.take("va/scene", { Frame: SIZE, Shapes });
    return lab;
  };
  const elements = lab => drawScene(lab.camera, view, 0).elements;
  same(paths(elements(draw(area))).slice(1), ["M100.0 0.0L100.0 100.0L200.0 100.0L200.0 0.0Z"]);
  // From the top to the bottom the right of the way is the left of the picture.
  const down = [[5000, 0], [5000, 10000]];
  const tips = crossing => paths(elements(draw(line(crossing, ...down)))).slice(2).map(d => /L(\S+) /.exec(d)[1]);
  same(["to right", "to left", "both", "constructor"].map(tips), [["80.0"], ["120.0"], ["80.0", "120.0"], []]);

  const lab = draw(line("both", [5000, 9000], [6000, 1000]), { ...area, Used: false });
  lab.take(COUNTER, event(1, { Count: 12 }), { retained: true });
  lab.take(LINE, event(2, {}));
  const [first, second] = labels(elements(lab));
  same([first[2], second[2]], ["line 0: 12 ALARM", "area 0 (not used)"]);
  assert.ok(first[1].y > 70, "at the line's lower end");
  same(elements(lab).filter(([, { class: style }]) => style === "shape lit").length, 1);
  lab.take(COUNTER, "", { retained: true }); // taken back
  assert.equal(labels(elements(lab))[0][2], "line 0 ALARM");
  lab.take("va/scene", "", { retained: true });
  same(labels(elements(lab)), []);
});

test("objects are drawn where they are, labels where nothing else is", () => {
  const lab = new Lab();
  lab.take(FRAME, frame(object(7), object(8, 110), object(9, 600)));
  const taken = [{ x: 120, y: 0, width: 20, height: 18 }];
  const elements = drawObjects(lab.camera, view, 0, taken);
  const boxes = elements.filter(([name, { class: style }]) => name === "rect" && style === "shape moving");
  same(boxes.map(([, { x, y, width, height }]) => [x, y, width, height]),
       [20, 22, 120].map(x => [x, 20, 10, 20]));
  const plates = elements.filter(([, { class: style }]) => style === "plate moving").map(([, plate]) => plate);
  for (const plate of plates)
    for (const other of [...taken, ...plates, ...boxes.map(([, box]) => box)].filter(other => other !== plate))
      assert.ok(plate.x >= other.x + other.width || other.x >= plate.x + plate.width ||
                plate.y >= other.y + other.height || other.y >= plate.y + plate.height);
  same(labels(elements).map(([, , text]) => text), ["moving 7", "moving 8", "moving 9"]);
});
