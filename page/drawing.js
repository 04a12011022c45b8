"use strict";

// The drawing of a camera as plain elements, [name, attributes, text], so that it needs no browser.
// `view` is what it is drawn into: width and height in pixels, and widthOf(text) of a label.

const LABEL = { height: 16, margin: 4, baseline: 12 }; // pixels
const NEAR = 3 * (LABEL.height + 2); // pixels, within which a label is seen to belong to its box
const ARROW = { length: 20, half: 9 };
const EDGE = 2;
// By words of messages, which may be any: without a prototype none has a meaning by accident.
const SIDES = { __proto__: null, "to right": [1], "to left": [-1], "both": [1, -1] }; // 1: right
const SHAPE_CLASSES = {
  __proto__: null, "non-detection": "nondet", "detection": "det", "no-detection": "noalarm", "line": "line",
  "area": "area", "face watch": "fwatch", "face detection": "fdet",
};
const OBJECT_CLASSES = { __proto__: null, moving: "moving", static: "static", face: "face" };

// Places labels so that none covers another, nor one of the boxes, as long as there is room.
class Labels {
  constructor(view, taken = [], boxes = []) {
    this.view = view;
    this.taken = [...taken];
    this.boxes = boxes;
    this.elements = [];
  }

  // At `corner`, moved up or down until it covers nothing.
  add(corner, text, style) {
    const { width } = this.view;
    const label = { width: this.view.widthOf(text) + 2 * LABEL.margin, height: LABEL.height };
    label.x = Math.min(Math.max(corner.x, EDGE), Math.max(width - label.width - EDGE, EDGE));
    label.y = this.free(label, corner.y, [...this.taken, ...this.boxes], NEAR) ??
      this.free(label, corner.y, this.taken) ?? this.within(corner.y);
    this.taken.push(label);
    this.elements.push(
      ["rect", { class: `plate ${style}`, ...label, rx: 3 }],
      ["text", { class: "label", x: label.x + LABEL.margin, y: label.y + LABEL.baseline }, text]);
  }

  within(y) {
    return Math.max(Math.min(y, this.view.height - LABEL.height - EDGE), EDGE);
  }

  free(label, wanted, others, farthest = this.view.height) {
    const beside = others.filter(({ x, width }) => label.x < x + width && x < label.x + label.width);
    const first = this.within(wanted);
    for (let away = 0; away <= farthest; away += LABEL.height + EDGE) {
      const y = [first - away, first + away].find(y => y === this.within(y) &&
        beside.every(other => y >= other.y + other.height || other.y >= y + LABEL.height));
      if (y !== undefined) return y;
    }
    return undefined;
  }
}

function styleOf(shape, isLit) {
  return (isLit ? "lit" : SHAPE_CLASSES[shape.kind] ?? "det") + (shape.used ? "" : " unused");
}

// To the side to which a crossing alarms: 1 is the right one of the way from start to end.
function arrow([start, end], side, style) {
  const length = Math.hypot(end.x - start.x, end.y - start.y) || 1;
  const along = { x: (end.x - start.x) / length, y: (end.y - start.y) / length };
  const foot = { x: start.x + along.x * length * .42, y: start.y + along.y * length * .42 };
  const tip = { x: foot.x - along.y * side * ARROW.length, y: foot.y + along.x * side * ARROW.length };
  const corner = sign => ["x", "y"].map(axis =>
    (foot[axis] + sign * along[axis] * ARROW.half).toFixed(1)).join(" ");
  return ["path", {
    class: `plate ${style}`, d: `M${corner(1)}L${tip.x.toFixed(1)} ${tip.y.toFixed(1)}L${corner(-1)}Z`,
  }];
}

function outline({ kind, crossing }, places, style) {
  const d = "M" + places.map(({ x, y }) => `${x.toFixed(1)} ${y.toFixed(1)}`).join("L");
  if (kind !== "line") return [["path", { class: `shape ${style}`, d: `${d}Z` }]];
  const sides = SIDES[crossing] ?? [];
  return [["path", { class: `shape ${style}`, d }],
          ...sides.map(side => arrow(places, side, style))];
}

// Where a shape's label belongs: that of a line at its lower end, away from who walks over it.
function labelCorner({ kind }, places) {
  const gap = 4;
  if (kind === "line") {
    const low = places[0].y > places[1].y ? places[0] : places[1];
    return { x: low.x + gap, y: low.y - LABEL.height - gap };
  }
  const left = Math.min(...places.map(({ x }) => x)) + gap;
  const top = Math.min(...places.map(({ y }) => y)) + gap;
  const bottom = Math.max(...places.map(({ y }) => y)) - LABEL.height - gap;
  if (kind === "area" || kind === "face detection") return { x: left, y: top };
  return { x: left, y: kind.endsWith("detection") ? bottom : (top + bottom) / 2 };
}

function shapeLabel(shape, isLit, count) {
  return `${shape.kind} ${shape.number}` + (count > 0 ? `: ${count}` : "") +
    (isLit ? " ALARM" : "") + (shape.used ? "" : " (not used)");
}

// What lies below the objects, and the labels that theirs must not cover.
function drawScene(camera, view, now) {
  const { width, height } = view;
  const labels = new Labels(view);
  const grid = Array.from({ length: 9 }, (_, i) => (i + 1) / 10).map(part =>
    `M${width * part} 0V${height}M0 ${height * part}H${width}`);
  const elements = [["path", { class: "grid", d: grid.join("") }]];
  for (const shape of camera.shapes) {
    const isLit = shape.used && shape.rule !== null && camera.isLit(shape.rule, now);
    const style = styleOf(shape, isLit);
    const places = shape.points.map(({ x, y }) => ({ x: x * width, y: y * height }));
    elements.push(...outline(shape, places, style));
    labels.add(labelCorner(shape, places),
               shapeLabel(shape, isLit, camera.counts.get(shape.rule)), style);
  }
  return { elements: [...elements, ...labels.elements], taken: labels.taken };
}

function drawObjects(camera, view, now, taken) {
  const { width, height } = view;
  const { objects, more } = camera.objects(now);
  const boxes = objects.map(({ box }) => ({
    x: box.x * width, y: box.y * height,
    width: Math.max(box.width * width, 1), height: Math.max(box.height * height, 1),
  }));
  const labels = new Labels(view, taken, boxes);
  const elements = objects.flatMap(({ kind, number }, i) => {
    const style = OBJECT_CLASSES[kind] ?? "moving";
    labels.add({ x: boxes[i].x, y: boxes[i].y - LABEL.height - EDGE }, `${kind} ${number}`, style);
    return [...trail(camera.trails.get(`${kind} ${number}`), view),
            ["rect", { class: `shape ${style}`, ...boxes[i], rx: kind === "face" ? 12 : 0 }]];
  });
  if (more > 0) labels.add({ x: EDGE, y: EDGE }, `${more} more`, "moving");
  return [...elements, ...labels.elements];
}

function trail(places = [], { width, height }) {
  const points = places.map(({ x, y }) => `${(x * width).toFixed(1)},${(y * height).toFixed(1)}`);
  return places.length > 1 ? [["polyline", { class: "trail", points: points.join(" ") }]] : [];
}
