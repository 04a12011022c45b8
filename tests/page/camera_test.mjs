// node --test: what messages make of a camera, and what is drawn of it.
import assert from "node:assert/strict";
import { test } from "node:test";
import { load } from "./load.mjs";
import { area, AREA, AVAILABLE, COUNTER, event, FRAME, frameOf, inside, line, LINE, object, online,
         TAMPER, utc } from "./messages.mjs";

const { Camera, splitTopic, drawScene, drawObjects } = load(["camera.js", "drawing.js"],
  ["Camera", "splitTopic", "drawScene", "drawObjects"]);
// Of plain objects alone, since those of the scripts are of another realm, and rounded.
const plain = value => JSON.parse(JSON.stringify(value, (_, part) =>
  typeof part === "number" ? Number(part.toFixed(6))
    : typeof part === "object" && part?.[Symbol.iterator] ? [...part] : part));
const same = (found, wanted, what) => assert.deepEqual(plain(found), wanted, what);

const SIZE = { Width: 1000, Height: 500 };
const FACES = "onvif-mj/VideoAnalytics/P/fd";
const OFFLINE = { State: "offline", Why: "gone" };
const RIGHT_HALF = area(5000, 0, 9999, 9999);
const KEPT = { retained: true };
const at = second => 1e12 + 1000 * second;
const walker = (number, left = 100, type = "Moving") =>
  object(number, [left, 100, left + 50, 200], type);
const frame = (...objects) => frameOf(objects, [1000, 500], at(0));

class Lab {
  constructor() {
    this.camera = new Camera("site/camera3");
    this.take(AVAILABLE, online(at(0)), KEPT);
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
  const shown = now => lab.camera.objects(now).objects.map(({ kind, number }) => kind + number);
  lab.take(FRAME, frame(walker(7), walker(8, 700, "Static")), { now: 1000 });
  lab.take(FACES, frame(walker(3, 0, { "@Likelihood": 1, "#text": "HumanFace" })), { now: 1500 });
  same([shown(1999), shown(2001)], [["moving7", "static8", "face3"], ["face3"]]);
  same(lab.camera.objects(1999).objects[0].box, { x: .1, y: .2, width: .05, height: .2 });
  assert.equal(lab.camera.nextChange(1999), 2000);
  const empty = { Frame: [{ "@UtcTime": utc(at(0)), "@Source": "od" }] };
  lab.take(FRAME, empty, { now: 1600 });
  same([shown(1700), lab.camera.silence(9000)], [["face3"], 7400]);
  lab.take(FACES, empty, { now: 1650 });
  same([shown(1700), lab.camera.silence(9000)], [[], 0]);
  // Of a thousand a hundred are kept, the others counted.
  lab.take(FRAME, frame(...Array.from({ length: 1000 }, (_, i) => walker(i))), { now: 1800 });
  const { objects, more } = lab.camera.objects(1800);
  same([objects.length, more], [100, 900]);
});

test("trails: of moving objects, two seconds, one place a frame whatever it holds", () => {
  const lab = new Lab();
  for (let now = 0; now <= 3000; now += 500)
    lab.take(FRAME, frame(walker(7, now / 10), walker(7, 900), walker(8, 0, "Static")), { now });
  same(lab.camera.trails.get("moving 7").map(({ at, x }) => [at, x]),
       [1000, 1500, 2000, 2500, 3000].map(at => [at, (at / 10 + 25) / 1000]));
  assert.equal(lab.camera.trails.size, 1);
  lab.take(FRAME, frame(walker(9)), { now: 5100 });
  same([...lab.camera.trails.keys()], ["moving 9"]);
});

test("alarms: raised by events, not by states; end with what raised them and when unknown", () => {
  const lab = new Lab();
  const { camera } = lab;
  const by = (time, data, rest) => event({
    Objects: [{ ObjectId: 7, Class: "Moving", ...data }], ...rest }, at(time));
  // Each message, the alarm that it raises, what alarms then, attention.
  for (const [topic, message, how, alarm, now, attention] of [
    [AREA, inside(true, at(1)), KEPT, null, ["area 0"], 0],
    [AREA, inside(true, at(2)), {}, null, ["area 0"], 0], // it was known
    [AREA, inside(false, at(3)), {}, null, [], 0],
    [AREA, by(4, {}, { IsInside: true }), {}, "area 0 entered by moving 7", ["area 0"], 2],
    [AREA, "", KEPT, null, [], 2], // no longer in force
    [LINE, by(5, { Crossing: "to left" }), { now: 500 }, "line 0 crossed by moving 7 to the left",
     ["line 0"], 2],
    [TAMPER, event({ State: true }, at(6)), {}, "tampering began", ["tampering", "line 0"], 2],
    [AVAILABLE, { ...OFFLINE, Since: utc(at(7)) }, {}, null, [], 1],
    [AVAILABLE, online(at(8)), {}, null, ["tampering", "line 0"], 2],
    [TAMPER, event({ State: false }, at(9)), {}, null, ["line 0"], 2],
  ]) {
    assert.equal(lab.take(topic, message, how), alarm, topic);
    same([camera.alarmsNow(1000), camera.attention()], [now, attention], `${topic} ${message}`);
  }
  same(lab.texts(), ["tampering ended", "online", "offline: gone", "tampering began",
                     "line 0 crossed by moving 7 to the left", "area 0 entered by moving 7",
                     "area 0 left"]);
  same([camera.isLit("CrossLine-C0", 1499), camera.isLit("CrossLine-C0", 1501)], [true, false]);
  camera.isCurrent = false;
  same(camera.alarmsNow(1000), []);
  for (let i = 0; i < 2; ++i) { // nobody acknowledged the second time
    lab.take(AVAILABLE, OFFLINE, KEPT);
    assert.equal(camera.attention(), 1);
    camera.acknowledge();
    assert.equal(camera.attention(), 0);
    lab.take(AVAILABLE, online(), KEPT);
    assert.equal(camera.attention(), 0);
  }
});

test("events: by their time, each once, the newest hundred", () => {
  const lab = new Lab();
  const { camera } = lab;
  for (const second of [5, 3, 9, 3, 5]) lab.take(LINE, event({}, at(second)));
  same([camera.events.map(({ time }) => time), camera.alarms], [[9, 5, 3].map(at), 3]);
  for (let second = 10; second < 200; ++second) lab.take(LINE, event({}, at(second)));
  same([camera.events.length, camera.events.at(-1).time], [100, at(100)]);
  assert.equal(lab.take(LINE, event({}, at(201)), { isPast: true }), null);
  same([lab.texts()[0], camera.alarms], ["line 0 crossed", 193]);
  lab.take("va/track/7", { State: "Ended", ObjectId: 7, Class: "Moving", Seconds: 4,
                           First: { UtcTime: utc(at(200)) }, Last: { UtcTime: utc(at(204)) } });
  same(camera.events[0], { time: at(204), text: "moving 7 left after 4.0 s" });
  lab.take(LINE, event({}, at(210)));
  lab.take(AVAILABLE, OFFLINE); // a last will has no time: that of the last message stands for it
  assert.equal(camera.since, at(210));
  lab.take(AVAILABLE, online(at(0))); // as it was before
  same(lab.texts().slice(0, 2), ["online", "offline: gone"]);
});

test("what cannot be read is said, changes nothing, and is over with the next that can", () => {
  const scene = (Shapes, Frame = SIZE) => ({ Frame, Shapes });
  const table = [
    ["va/scene", scene([RIGHT_HALF]), ["{{{", { Shapes: [] }, scene([line("both")]), "7", [],
      scene([], { Width: 0, Height: 5 }), scene([{ ...RIGHT_HALF, Points: [[0, 0], [1e9, 0]] }])]],
    [FRAME, frame(walker(1)),
     ["{}", { Frame: [] }, frame({}), frame(walker("x")), frame(walker(1, NaN))]],
    [AREA, inside(true), [event(), { Data: { IsInside: true } }, inside("yes")]],
    [AVAILABLE, online(), ["online", { State: "constructor" }, { ...online(), Since: "x" }]],
    [COUNTER, event({ Count: 1 }), [event({ Count: -1 }), event({})]],
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
const styled = (elements, style) => elements.filter(([, part]) => part.class === style)
  .map(([, part]) => part);

test("a scene is drawn to scale, with arrows to where a crossing alarms", () => {
  const lab = new Lab();
  const draw = (...Shapes) => {
    if (Shapes.length) lab.take("va/scene", { Frame: SIZE, Shapes });
    return drawScene(lab.camera, view, 0).elements;
  };
  same(paths(draw(RIGHT_HALF)).slice(1), ["M100.0 0.0L100.0 100.0L200.0 100.0L200.0 0.0Z"]);
  // From the top to the bottom the right of the way is the left of the picture.
  const tips = crossing => paths(draw(line(crossing, [5000, 0], [5000, 10000]))).slice(2)
    .map(d => /L(\S+) /.exec(d)[1]);
  same(["to right", "to left", "both", "constructor"].map(tips),
       [["80.0"], ["120.0"], ["80.0", "120.0"], []]);

  lab.take(COUNTER, event({ Count: 12 }), KEPT);
  lab.take(LINE, event({}));
  const elements = draw(line("both", [5000, 9000], [6000, 1000]), { ...RIGHT_HALF, Used: false });
  const [first, second] = labels(elements);
  same([first[2], second[2]], ["line 0: 12 ALARM", "area 0 (not used)"]);
  assert.ok(first[1].y > 70, "at the line's lower end");
  assert.equal(styled(elements, "shape lit").length, 1);
  lab.take(COUNTER, "", KEPT); // taken back
  assert.equal(labels(draw())[0][2], "line 0 ALARM");
  lab.take("va/scene", "", KEPT);
  same(labels(draw()), []);
});

test("objects are drawn where they are, labels where nothing else is", () => {
  const lab = new Lab();
  lab.take(FRAME, frame(walker(7), walker(8, 110), walker(9, 600)));
  const taken = [{ x: 120, y: 0, width: 20, height: 18 }];
  const elements = drawObjects(lab.camera, view, 0, taken);
  const [boxes, plates] = ["shape moving", "plate moving"].map(style => styled(elements, style));
  same(boxes.map(({ x, y, width, height }) => [x, y, width, height]),
       [20, 22, 120].map(x => [x, 20, 10, 20]));
  for (const plate of plates)
    for (const other of [...taken, ...plates, ...boxes].filter(other => other !== plate))
      assert.ok(plate.x >= other.x + other.width || other.x >= plate.x + plate.width ||
                plate.y >= other.y + other.height || other.y >= plate.y + plate.height);
  same(labels(elements).map(([, , text]) => text), ["moving 7", "moving 8", "moving 9"]);
});
