"use strict";

// Draws a camera as va_picture does: the same units, classes, words and places of tags.

const WIDTH = 1260; // of the frame, in units of the drawing
const FULL_SCALE = 10000;
const CLASSES = {
  "non-detection": "nondet", "detection": "det", "no-detection": "noalarm", "line": "line",
  "area": "area", "face watch": "fwatch", "face detection": "fdet",
};
const TAG_FONT = 12; // pixels, however small the drawing is
const SVG = "http://www.w3.org/2000/svg";

function element(name, attributes, text) {
  const made = document.createElementNS(SVG, name);
  for (const [key, value] of Object.entries(attributes)) made.setAttribute(key, value);
  if (text !== undefined) made.textContent = text;
  return made;
}

// The colour of a class is that of its outline, which the look says once.
const colours = new Map();
function colourOf(style) {
  if (!colours.has(style)) {
    const probe = element("rect", { class: style.split(" ")[0] });
    document.querySelector("#patterns").append(probe);
    colours.set(style, getComputedStyle(probe).stroke);
    probe.remove();
  }
  return colours.get(style);
}

// How wide a tag's text is, in pixels.
const measure = document.createElement("canvas").getContext("2d");
measure.font = `bold ${TAG_FONT}px sans-serif`;
function widthOf(text) {
  return measure.measureText(text).width;
}

function overlap(a, b) {
  return a.x < b.x + b.width && b.x < a.x + a.width && a.y < b.y + b.height && b.y < a.y + a.height;
}

class Drawing {
  constructor(svg) {
    this.svg = svg;
    this.size = { Width: 1920, Height: 1080 };
  }

  draw(camera, now) {
    if (camera.scene) this.size = camera.scene.Frame;
    this.scale = WIDTH / this.size.Width;
    this.height = this.size.Height * this.scale;
    this.tagUnit = WIDTH / (this.svg.clientWidth || WIDTH); // of the drawing, to a pixel
    this.tags = [];
    const shapes = (camera.scene?.Shapes ?? []).map(shape => ({
      ...shape,
      lit: shape.Used && shape.Rule !== undefined && camera.isLit(shape.Rule, now),
      crossings: camera.crossed.get(shape.Rule)?.times ?? 0,
      places: shape.Points.map(([x, y]) => ({
        x: x / FULL_SCALE * WIDTH, y: y / FULL_SCALE * this.height,
      })),
    }));
    const objects = camera.objects(now);
    this.svg.setAttribute("viewBox", `0 0 ${WIDTH} ${this.height}`);
    this.svg.replaceChildren(
      ...this.ground(),
      ...shapes.flatMap(shape => this.outline(shape)),
      ...objects.flatMap(object => this.trail(camera.trails.get(`${object.kind} ${object.number}`))),
      ...objects.map(object => this.box(object)),
      ...shapes.flatMap(shape => this.shapeTag(shape)),
      ...objects.flatMap(object => this.boxTag(object)));
  }

  ground() {
    const grid = Array.from({ length: 9 }, (_, i) => (i + 1) / 10).map(part =>
      `M${WIDTH * part} 0V${this.height}M0 ${this.height * part}H${WIDTH}`);
    return [element("rect", { class: "ground", width: WIDTH, height: this.height }),
            element("path", { class: "grid", d: grid.join("") })];
  }

  styleOf(shape) {
    return (shape.lit ? "lit" : CLASSES[shape.Kind]) + (shape.Used ? "" : " unused");
  }

  outline(shape) {
    const path = "M" + shape.places.map(({ x, y }) => `${x} ${y}`).join("L");
    const isLine = shape.Kind === "line";
    const drawn = [element("path", { class: this.styleOf(shape), d: path + (isLine ? "" : "Z") })];
    if (isLine && ["to right", "both"].includes(shape.Crossing)) drawn.push(this.arrow(shape, 1));
    if (isLine && ["to left", "both"].includes(shape.Crossing)) drawn.push(this.arrow(shape, -1));
    return drawn;
  }

  // To the side to which a crossing alarms.
  arrow(shape, side) {
    const [start, end] = shape.places;
    const length = Math.hypot(end.x - start.x, end.y - start.y) || 1;
    const along = { x: (end.x - start.x) / length, y: (end.y - start.y) / length };
    const foot = { x: start.x + along.x * length * .42, y: start.y + along.y * length * .42 };
    const tip = { x: foot.x - along.y * side * 26, y: foot.y + along.x * side * 26 };
    const corner = sign => `${foot.x + sign * along.x * 13} ${foot.y + sign * along.y * 13}`;
    const d = `M${corner(1)}L${tip.x} ${tip.y}L${corner(-1)}Z`;
    return element("path", { d, fill: colourOf(this.styleOf(shape)) });
  }

  trail(places = []) {
    const points = places.map(({ x, y }) => `${x * this.scale},${y * this.scale}`).join(" ");
    return places.length > 1 ? [element("polyline", { class: "trail", opacity: .5, points })] : [];
  }

  box({ kind, box }) {
    return element("rect", {
      class: kind, x: box.x * this.scale, y: box.y * this.scale,
      width: box.width * this.scale, height: box.height * this.scale,
      rx: kind === "face" ? 18 : 0,
    });
  }

  shapeTag(shape) {
    const crossings = shape.crossings ? `, crossed ${shape.crossings}x` : "";
    const text = `${shape.Kind} ${shape.Number}${crossings}${shape.lit ? " ALARM" : ""}` +
      (shape.Used ? "" : " (not used)");
    const [first, second] = shape.places;
    const gap = 4;
    const height = this.tagHeight();
    const corner = {
      "line": { x: (first.x + second.x) / 2 + gap, y: (first.y + second.y) / 2 - height - gap },
      "area": { x: first.x + gap, y: first.y + gap },
      "face detection": { x: first.x + gap, y: first.y + gap },
      "non-detection": { x: first.x + gap, y: second.y - height - gap },
      "detection": { x: first.x + gap, y: second.y - height - gap },
    }[shape.Kind] ?? { x: first.x + gap, y: (first.y + second.y - height) / 2 };
    return this.tag(corner, text, this.styleOf(shape));
  }

  boxTag({ kind, number, box }) {
    const above = box.y * this.scale - this.tagHeight() - 3;
    return this.tag({ x: box.x * this.scale, y: above }, `${kind} ${number}`, kind);
  }

  tagHeight() {
    return 16 * this.tagUnit;
  }

  // A label on the colour of what it belongs to, moved down or up until it covers no other.
  tag(corner, text, style) {
    const unit = this.tagUnit;
    const tag = { width: (widthOf(text) + 8) * unit, height: this.tagHeight() };
    tag.x = Math.min(Math.max(corner.x, 2), Math.max(WIDTH - tag.width - 2, 2));
    const lowest = this.height - tag.height - 2;
    const first = Math.min(Math.max(corner.y, 2), lowest);
    const steps = Array.from({ length: 20 }, (_, i) => i * (tag.height + 2));
    tag.y = steps.flatMap(step => [first - step, first + step]).find(y =>
      y >= 2 && y <= lowest && !this.tags.some(other => overlap({ ...tag, y }, other))) ?? first;
    this.tags.push(tag);
    return [element("rect", { ...tag, rx: 3 * unit, fill: colourOf(style) }),
            element("text", {
              class: "tag", x: tag.x + 4 * unit, y: tag.y + 12 * unit,
              style: `font-size:${TAG_FONT * unit}px`,
            }, text)];
  }
}
