"use strict";

// Lines and areas, edited over a camera's picture, and what they come to in its settings. Nothing
// is written: a person copies the settings' lines.

const LAST_PLACE = 9999;    // ten-thousandths of the frame, from 0
const LEAST_EXTENT = 100;   // of an area that is made smaller
const NUMBERS = [0, 1, 2];  // of lines, and of areas
const RULES_USED = 3;       // of all, by the daemon

// The settings of a line and of an area, and which of its places each part moves, across and down.
const EDITABLE = {
  line: {
    key: "CrossLine.C",
    parts: {
      "start": [["StartX"], ["StartY"]],
      "end": [["EndX"], ["EndY"]],
      "whole": [["StartX", "EndX"], ["StartY", "EndY"]],
    },
  },
  area: {
    key: "ObjectDetection.O",
    parts: {
      "top left": [["Left"], ["Top"]],
      "bottom left": [["Left"], ["Bottom"]],
      "bottom right": [["Right"], ["Bottom"]],
      "top right": [["Right"], ["Top"]],
      "whole": [["Left", "Right"], ["Top", "Bottom"]],
    },
  },
};
const OPPOSITE = { Left: "Right", Right: "Left", Top: "Bottom", Bottom: "Top" };
const EVENT_OF_TYPE = [0, 3, 2]; // of an area

function within(value, low, high) {
  return Math.min(high, Math.max(low, value));
}

// A line or an area. Has the properties of one in a scene, too.
class EditedShape {
  constructor({ Kind, Number: number, Points, Crossing, Direction, Type }) {
    this.Kind = Kind;
    this.Number = number;
    this.Crossing = typeof Crossing === "string" ? Crossing : "unknown";
    // What goes into the settings is a number, whatever the message has.
    this.Direction = Number.isInteger(Direction) ? Direction : -1;
    this.Type = Number.isInteger(Type) && Type in EVENT_OF_TYPE ? Type : 0;
    const [xs, ys] = [0, 1].map(axis =>
      Points.slice(0, 4).map(point => within(Math.round(point[axis]), 0, LAST_PLACE)));
    this.places = Kind === "line"
      ? { StartX: xs[0], StartY: ys[0], EndX: xs[1], EndY: ys[1] }
      : { Left: Math.min(...xs), Right: Math.max(...xs),
          Top: Math.min(...ys), Bottom: Math.max(...ys) };
  }

  // Those of a scene's shapes that can be edited, lines first.
  static allOf(shapes) {
    const found = new Map();
    for (const shape of shapes) {
      if (!Object.hasOwn(EDITABLE, shape.Kind) || !NUMBERS.includes(shape.Number) ||
          shape.Points.length < 2)
        continue;
      const edited = new EditedShape(shape);
      if (!found.has(edited.key)) found.set(edited.key, edited);
    }
    return [...found.values()].sort((a, b) => a.key < b.key ? -1 : 1);
  }

  // Somewhere in the frame, different for each number.
  static added(kind, number, directions) {
    const left = (kind === "line" ? 1200 : 1800) + 2500 * number;
    const right = kind === "line" ? left : left + 2000;
    const Crossing = Object.keys(directions).at(-1);
    return new EditedShape({
      Kind: kind, Number: number, Points: [[left, 2000], [right, 8000]],
      Crossing: Object.hasOwn(directions, "both") ? "both" : Crossing,
    });
  }

  get key() { return EDITABLE[this.Kind].key + this.Number; }
  get name() { return `${this.Kind} ${this.Number}`; }
  get parts() { return Object.keys(EDITABLE[this.Kind].parts); }

  get Points() {
    return this.parts.filter(part => part !== "whole").map(part => this.placeOf(part));
  }

  // Where a part is: the whole in the middle.
  placeOf(part) {
    return EDITABLE[this.Kind].parts[part].map(keys =>
      keys.reduce((sum, key) => sum + this.places[key], 0) / keys.length);
  }

  // Moves a part as far as the frame and the opposite edge allow. `from`: the places before.
  move(part, across, down, from = this.places) {
    const places = { ...from };
    EDITABLE[this.Kind].parts[part].forEach((keys, axis) => {
      const ranges = keys.map(key => EditedShape.#range(key, from, keys.length > 1));
      const low = Math.max(...keys.map((key, i) => ranges[i][0] - from[key]));
      const high = Math.min(...keys.map((key, i) => ranges[i][1] - from[key]));
      const by = within(Math.round(axis === 0 ? across : down), low, high);
      for (const key of keys) places[key] = from[key] + by;
    });
    this.places = places;
  }

  static #range(key, from, whole) {
    const opposite = from[OPPOSITE[key]];
    if (whole || opposite === undefined) return [0, LAST_PLACE];
    return from[key] < opposite ? [0, Math.max(from[key], opposite - LEAST_EXTENT)]
                                : [Math.min(from[key], opposite + LEAST_EXTENT), LAST_PLACE];
  }

  // Its settings, by the last part of their keys.
  values(directions) {
    const known = Object.hasOwn(directions, this.Crossing);
    const direction = known ? directions[this.Crossing] : this.Direction;
    return this.Kind === "line" ? { ...this.places, Direction: direction }
                                : { ...this.places, Type: this.Type };
  }
}

// The lines of the settings that turn the shapes `before`, as in a scene, into those of `after`:
// what differs; all of a new one; -1 for the places of one that is gone. `directions`: the numbers
// of the words of a crossing, none when they are not known.
function settingsOf(before, after, directions) {
  const valuesOf = shapes => new Map(
    EditedShape.allOf(shapes).map(shape => [shape.key, shape.values(directions)]));
  const [was, is] = [valuesOf(before), valuesOf(after)];
  const keys = [...new Set([...was.keys(), ...is.keys()])].sort();
  return keys.flatMap(key => changesOf(was.get(key), is.get(key))
    .map(([name, value]) => `${key}.${name}=${value}`));
}

function changesOf(was, is) {
  if (!was) return Object.entries(is);
  const isPlace = name => !["Direction", "Type"].includes(name);
  if (!is) return Object.keys(was).filter(isPlace).map(name => [name, -1]);
  const differs = name => was[name] !== is[name];
  // Opposite edges go together: the settings may have them in either order, the scene does not say.
  return Object.entries(is).filter(([name]) => differs(name) || differs(OPPOSITE[name]));
}

// The lines and areas over the picture, with a handle for each part that moves.
class EditorPicture {
  static #REACH = { fine: 12, coarse: 22 }; // pixels about a handle or a line
  static #STEP = 50;                        // of an arrow key, ten times that with Shift
  static #ARROWS = { ArrowLeft: [-1, 0], ArrowRight: [1, 0], ArrowUp: [0, -1], ArrowDown: [0, 1] };

  // `changed` is called after each move.
  constructor(svg, changed) {
    this.svg = svg;
    this.changed = changed;
    this.close();
    new ResizeObserver(() => this.show()).observe(svg);
    svg.addEventListener("pointerdown", event => this.take(event));
    svg.addEventListener("pointermove", event => this.drag(event));
    svg.addEventListener("lostpointercapture", () => { this.dragged = null; });
    svg.addEventListener("keydown", event => this.press(event));
  }

  close() {
    this.drawn = [];      // {shape, groups, outline, arrows, label, handles}
    this.dragged = null;  // {handle, at, places}: where it began
    this.svg.replaceChildren();
    this.svg.classList.remove("editor");
  }

  open(shapes) {
    this.close();
    this.svg.classList.add("editor");
    this.svg.setAttribute("role", "group");
    this.svg.setAttribute("aria-label", "lines and areas: the arrow keys move, with Shift farther");
    const [below, above] = [this.add("g", "", this.svg), this.add("g", "", this.svg)];
    this.drawn = shapes.map(shape => this.made(shape, below, above));
  }

  add(name, className, parent) {
    const made = document.createElementNS("http://www.w3.org/2000/svg", name);
    made.setAttribute("class", className);
    parent.append(made);
    return made;
  }

  // No handle is below an outline, no line below an area.
  made(shape, below, above) {
    const groups = [below, above].map(layer => this.add("g", "", layer));
    for (const group of groups) group.dataset.kind = shape.Kind;
    below.prepend(groups[0]);
    const outline = this.add("path", "outline", groups[0]);
    const arrows = this.add("path", "arrow", groups[0]);
    const handles = shape.parts.map(part => this.madeHandle(shape, part, groups[1]));
    const label = this.add("text", "", groups[1]);
    label.textContent = shape.name;
    label.setAttribute("aria-hidden", "true");
    return { shape, groups, outline, arrows, label, handles };
  }

  madeHandle(shape, part, group) {
    const element = this.add("g", "handle", group);
    const attributes = {
      "tabindex": 0, "role": "slider", "aria-roledescription": "handle",
      "aria-label": `${shape.name}, ${part}`, "aria-valuemin": 0, "aria-valuemax": 100,
    };
    for (const [key, value] of Object.entries(attributes)) element.setAttribute(key, value);
    this.add("circle", "reach", element);
    const marks = { start: "M-7 0a7 7 0 1 0 14 0a7 7 0 1 0-14 0Z", whole: "M0-9L9 0L0 9L-9 0Z" };
    this.add("path", "mark", element).setAttribute("d", marks[part] ?? "M-6-6H6V6H-6Z");
    return { shape, part, element };
  }

  focus(shape) {
    this.drawn.find(drawn => drawn.shape === shape).handles.at(-1).element.focus();
  }

  get size() {
    return [this.svg.clientWidth, this.svg.clientHeight];
  }

  pixels(place) {
    return place.map((value, axis) => value * this.size[axis] / (LAST_PLACE + 1));
  }

  show() {
    const [width, height] = this.size;
    if (!this.drawn.length || !width || !height) return;
    this.svg.setAttribute("viewBox", `0 0 ${width} ${height}`);
    this.drawn.forEach((drawn, i) => {
      const { shape } = drawn;
      const points = shape.Points.map(point => this.pixels(point));
      drawn.outline.classList.toggle("left-out", i >= RULES_USED);
      drawn.outline.setAttribute("d", `M${points.join("L")}${shape.Kind === "area" ? "Z" : ""}`);
      drawn.arrows.setAttribute("d", shape.Kind === "line" ? this.arrows(shape, points) : "");
      this.placeLabel(drawn.label, shape.Kind, points);
      for (const handle of drawn.handles) this.placeHandle(handle);
    });
  }

  // At the lower end of a line, in the upper left corner of an area.
  placeLabel(label, kind, points) {
    const [width, height] = this.size;
    const [first, second] = points;
    const [x, y] = kind === "area" || first[1] > second[1] ? first : second;
    const isRight = x > width - 70;
    label.setAttribute("text-anchor", isRight ? "end" : "start");
    label.setAttribute("x", x + (isRight ? -14 : 14));
    label.setAttribute("y", within(kind === "area" ? y + 22 : y, 16, height - 12));
  }

  placeHandle({ shape, part, element }) {
    const place = shape.placeOf(part);
    const [across, down] = place.map(value => (value / 100).toFixed(1));
    element.setAttribute("transform", `translate(${this.pixels(place)})`);
    element.setAttribute("aria-valuenow", across);
    element.setAttribute("aria-valuetext", `${across} % across, ${down} % down`);
  }

  // To the sides to which a crossing alarms, seen from the start to the end.
  arrows({ Crossing }, [start, end]) {
    const length = Math.hypot(end[0] - start[0], end[1] - start[1]) || 1;
    const along = [(end[0] - start[0]) / length, (end[1] - start[1]) / length];
    const foot = [0, 1].map(axis => start[axis] + along[axis] * length / 4);
    const corner = (ahead, aside) => [foot[0] + ahead * along[0] - aside * along[1],
                                      foot[1] + ahead * along[1] + aside * along[0]];
    const sides = SIDES[Crossing] ?? [];
    return sides.map(side =>
      `M${corner(9, 0)}L${corner(0, 20 * side)}L${corner(-9, 0)}Z`).join("");
  }

  placeIn(event) {
    const box = this.svg.getBoundingClientRect();
    return [event.clientX - box.left, event.clientY - box.top];
  }

  // The nearest handle within reach, of those as near one of the shape that has the focus; else
  // the whole of what is there.
  handleAt(at, reach) {
    const distanceTo = ({ shape, part }) => {
      const [x, y] = this.pixels(shape.placeOf(part));
      return Math.hypot(x - at[0], y - at[1]);
    };
    const isOther = ({ groups }) => !groups[1].contains(document.activeElement);
    const first = [...this.drawn].sort((a, b) => isOther(a) - isOther(b));
    const near = first.flatMap(({ handles }) => handles)
      .filter(handle => distanceTo(handle) <= reach)
      .sort((a, b) => distanceTo(a) - distanceTo(b));
    return near[0] ?? first.find(({ shape }) => this.isOn(shape, at, reach))?.handles.at(-1);
  }

  isOn(shape, at, reach) {
    const points = shape.Points.map(point => this.pixels(point));
    if (shape.Kind === "area")
      return [0, 1].every(axis => at[axis] >= points[0][axis] && at[axis] <= points[2][axis]);
    const [start, end] = points;
    const way = [end[0] - start[0], end[1] - start[1]];
    const part = ((at[0] - start[0]) * way[0] + (at[1] - start[1]) * way[1]) /
      (way[0] ** 2 + way[1] ** 2 || 1);
    const [x, y] = [0, 1].map(axis => start[axis] + within(part, 0, 1) * way[axis]);
    return Math.hypot(x - at[0], y - at[1]) <= reach;
  }

  take(event) {
    if (!event.isPrimary || event.button !== 0) return;
    const at = this.placeIn(event);
    const isFine = event.pointerType !== "touch" && !matchMedia("(pointer: coarse)").matches;
    const handle = this.handleAt(at, EditorPicture.#REACH[isFine ? "fine" : "coarse"]);
    if (!handle) return;
    event.preventDefault(); // which would take the focus away again
    handle.element.focus({ preventScroll: true });
    this.svg.setPointerCapture(event.pointerId);
    this.dragged = { handle, at, places: handle.shape.places };
  }

  drag(event) {
    if (!this.dragged || !event.isPrimary) return;
    const { handle: { shape, part }, at, places } = this.dragged;
    const [across, down] = this.placeIn(event).map((value, axis) =>
      (value - at[axis]) / this.size[axis] * (LAST_PLACE + 1));
    shape.move(part, across, down, places);
    this.changed();
  }

  press(event) {
    const handle = this.drawn.flatMap(({ handles }) => handles)
      .find(({ element }) => element === event.target);
    const direction = EditorPicture.#ARROWS[event.key];
    if (!handle || !direction || event.ctrlKey || event.altKey || event.metaKey) return;
    event.preventDefault();
    event.stopPropagation(); // the page has its own use for arrows
    const step = EditorPicture.#STEP * (event.shiftKey ? 10 : 1);
    handle.shape.move(handle.part, direction[0] * step, direction[1] * step);
    this.changed();
  }
}

// The choices beside the picture, and the settings' lines.
class EditorPanel {
  // `act` has what the buttons do: add(kind), remove(shape), reset(), changed().
  constructor(panel, act) {
    this.panel = panel;
    this.act = act;
  }

  close() {
    this.panel.replaceChildren();
    this.panel.classList.remove("editor");
  }

  open(directions) {
    this.close();
    this.directions = directions;
    this.knows = Object.keys(directions).length > 0;
    this.panel.classList.add("editor");
    this.list = this.add("ul", this.panel);
    const buttons = this.add("p", this.panel);
    this.addButtons = Object.fromEntries(Object.keys(EDITABLE).map(kind =>
      [kind, this.addButton(buttons, `Add ${kind}`, () => this.act.add(kind))]));
    this.addButton(buttons, "Reset", () => this.act.reset());
    this.limit = this.add("p", this.panel);
    this.limit.className = "warning";
    this.limit.setAttribute("role", "status");
    this.help = this.add("p", this.panel, this.knows
      ? "Left and right are seen from a line's start (round) to its end (square)."
      : "A line's direction is a code of the chip. A line goes from its round to its square end.");
    this.unchanged = this.add("p", this.panel,
      "This is what the camera has. Drag a line, an area or its handles, or move them with the " +
      "arrow keys.");
    this.addResult();
  }

  fill(shapes) {
    this.list.replaceChildren();
    for (const shape of shapes) this.addRow(shape);
    const count = kind => shapes.filter(({ Kind }) => Kind === kind).length;
    for (const [kind, button] of Object.entries(this.addButtons))
      button.disabled = count(kind) === NUMBERS.length;
    const unused = shapes.slice(RULES_USED).map(({ name }) => name).join(", ");
    this.limit.textContent = unused &&
      `Only ${RULES_USED} lines and areas are used, lines first. Not used: ${unused}.`;
    this.help.hidden = count("line") === 0;
  }

  add(name, parent, text = "") {
    const made = document.createElement(name);
    made.textContent = text;
    parent.append(made);
    return made;
  }

  addButton(parent, text, act) {
    const button = this.add("button", parent, text);
    button.type = "button";
    button.onclick = act;
    return button;
  }

  addRow(shape) {
    const row = this.add("li", this.list);
    row.dataset.kind = shape.Kind;
    this.add("b", row, shape.name);
    if (shape.Kind === "area") this.addType(row, shape);
    else if (this.knows) this.addDirection(row, shape);
    else this.addDirectionCode(row, shape);
    this.addButton(row, "Remove", () => this.act.remove(shape))
      .setAttribute("aria-label", `Remove ${shape.name}`);
  }

  addChoice(row, name, text, shape) {
    const label = this.add("label", row, text);
    const choice = this.add(name, label);
    choice.setAttribute("aria-label", `${text} of ${shape.name}`);
    return choice;
  }

  addOptions(choice, options, chosen, choose) {
    for (const [value, text] of options) choice.add(new Option(text, value));
    choice.value = chosen;
    choice.onchange = () => {
      choose(choice.value);
      this.act.changed();
    };
  }

  addDirection(row, shape) {
    const words = Object.keys(this.directions).map(word => [word, word]);
    this.addOptions(this.addChoice(row, "select", "Direction", shape), words, shape.Crossing,
      word => { shape.Crossing = word; });
  }

  addDirectionCode(row, shape) {
    const input = this.addChoice(row, "input", "Direction", shape);
    Object.assign(input, { type: "number", step: 1, required: true, value: shape.Direction });
    input.onchange = () => {
      if (Number.isInteger(input.valueAsNumber)) shape.Direction = input.valueAsNumber;
      input.value = shape.Direction;
      this.act.changed();
    };
  }

  addType(row, shape) {
    const options = EVENT_OF_TYPE.map((event, type) => [type, `${type}: event ${event}`]);
    this.addOptions(this.addChoice(row, "select", "Type", shape), options, shape.Type,
      type => { shape.Type = Number(type); });
  }

  addResult() {
    this.result = this.add("div", this.panel);
    this.text = this.add("textarea", this.add("label", this.result, "Settings that change"));
    Object.assign(this.text, { readOnly: true, spellcheck: false });
    const copy = this.add("p", this.result);
    this.copyButton = this.addButton(copy, "Copy", () => this.copy());
    this.copied = this.add("span", copy);
    this.copied.setAttribute("role", "status");
    this.addHowTo();
  }

  addHowTo() {
    const how = this.add("p", this.result, "Nothing is written from here. Put these lines into " +
      "the camera's settings, each in place of the one with its key. Then run ");
    this.add("code", how, "va_dump --reconfig");
    how.append(" on the camera, or write the line ");
    this.add("code", how, "reconfig");
    how.append(" into the control FIFO. No restart is needed, unless object detection was off: ");
    this.add("code", how, "EventDetection.VumeruOD=yes");
    how.append(" is read at start only.");
    this.renumbered = this.add("p", this.result,
      "This may change bits in the alarm masks, and the numbers that filters have in ");
    this.add("code", this.renumbered, "VideoAnalytics.OD.VmfParam.ComboFilter.FilterID");
    this.renumbered.append(".");
  }

  // `renumbers`: not all filters are what they were.
  show(lines, renumbers) {
    this.unchanged.hidden = lines.length > 0;
    this.result.hidden = lines.length === 0;
    this.renumbered.hidden = !renumbers;
    this.text.value = lines.join("\n");
    this.text.rows = lines.length;
    this.copied.textContent = "";
  }

  async copy() {
    try {
      await navigator.clipboard.writeText(this.text.value);
      this.copied.textContent = "copied";
    } catch { // not there without TLS, or not allowed
      this.text.select();
      const isCopied = document.execCommand("copy");
      this.copied.textContent = isCopied ? "copied" : "not copied: the lines are selected";
      if (isCopied) this.copyButton.focus();
    }
  }
}

class Editor {
  // `svg`: empty, exactly over the picture; `panel`: an empty element beside it. Fills both.
  constructor(svg, panel) {
    this.picture = new EditorPicture(svg, () => this.changed());
    this.panel = new EditorPanel(panel, this);
    this.before = null; // shapes of the scene; null: closed
  }

  get isOpen() { return this.before !== null; }

  // Edits a copy of the scene's lines and areas.
  open({ Shapes, Directions }) {
    this.directions = Object.fromEntries(
      Object.entries(Directions ?? {}).filter(([, number]) => Number.isInteger(number)));
    this.before = EditedShape.allOf(Shapes);
    this.panel.open(this.directions);
    this.reset();
  }

  // The camera has taken over what was edited, as `scene` says, or has other settings, which do not
  // matter here.
  follow({ Shapes }) {
    const now = EditedShape.allOf(Shapes);
    if (settingsOf(now, this.shapes, this.directions).length > 0) return;
    this.before = now;
    this.changed();
  }

  close() {
    this.before = null;
    this.picture.close();
    this.panel.close();
  }

  reset() { this.edit(EditedShape.allOf(this.before)); }

  add(kind) {
    const number = NUMBERS.find(number =>
      !this.shapes.some(shape => shape.Kind === kind && shape.Number === number));
    const added = EditedShape.added(kind, number, this.directions);
    this.edit(EditedShape.allOf([...this.shapes, added]));
    this.picture.focus(this.shapes.find(({ key }) => key === added.key));
  }

  remove(shape) {
    this.edit(this.shapes.filter(other => other !== shape));
    this.panel.addButtons[shape.Kind].focus();
  }

  edit(shapes) {
    this.shapes = shapes;
    this.picture.open(shapes);
    this.panel.fill(shapes);
    this.changed();
  }

  changed() {
    this.picture.show();
    const filters = shapes => shapes.map(({ key, Type }) => `${key} ${Type}`).join();
    this.panel.show(settingsOf(this.before, this.shapes, this.directions),
      filters(this.before) !== filters(this.shapes));
  }
}
