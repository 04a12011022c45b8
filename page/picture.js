"use strict";

// The picture of a camera in the page: a still, where there is one, and the drawing over it.

const SVG = "http://www.w3.org/2000/svg";
const byId = id => document.getElementById(id);

function made(name, className, parent) {
  const element = document.createElement(name);
  element.className = className;
  parent.append(element);
  return element;
}

function setText(element, text) {
  if (element.textContent !== text) element.textContent = text;
}

// Who has the focus on what is hidden goes on at `next`.
function setHidden(element, isHidden, next) {
  if (element.hidden === isHidden) return;
  const hadFocus = isHidden && element === document.activeElement;
  element.hidden = isHidden;
  if (hadFocus) next.focus({ preventScroll: true });
}

const measure = document.createElement("canvas").getContext("2d");
measure.font = "bold 12px sans-serif"; // as .label has it
const widths = new Map(); // of labels, most of which are shown again and again
function widthOf(text) {
  if (!widths.has(text)) {
    if (widths.size > 5000) widths.clear();
    widths.set(text, measure.measureText(text).width);
  }
  return widths.get(text);
}

function svgElement([name, attributes, text]) {
  const element = document.createElementNS(SVG, name);
  for (const [key, value] of Object.entries(attributes)) element.setAttribute(key, value);
  if (text !== undefined) element.textContent = text;
  return element;
}

// Makes `group` show these, with the elements that it has: most of them only move.
function render(group, elements) {
  elements.forEach(([name, attributes, text], i) => {
    const old = group.children[i];
    if (old?.localName !== name) {
      const element = svgElement([name, attributes, text]);
      if (old) old.replaceWith(element); else group.append(element);
      return;
    }
    for (const [key, value] of Object.entries(attributes))
      if (old.getAttribute(key) !== String(value)) old.setAttribute(key, value);
    if (text !== undefined) setText(old, text);
  });
  while (group.children.length > elements.length) group.lastChild.remove();
}

class Picture {
  // `onresize` is called when it has to be drawn again.
  constructor(parent, onresize) {
    this.element = made("div", "picture", parent);
    this.still = made("img", "still", this.element);
    this.still.alt = "";
    this.still.hidden = true;
    this.svg = this.element.appendChild(document.createElementNS(SVG, "svg"));
    this.scene = this.svg.appendChild(document.createElementNS(SVG, "g"));
    this.objects = this.svg.appendChild(document.createElementNS(SVG, "g"));
    this.view = { width: 0, height: 0, widthOf };
    this.taken = [];
    this.drawn = ""; // what the scene was drawn of
    this.observer = new ResizeObserver(([{ contentRect: { width, height } }]) => {
      Object.assign(this.view, { width, height });
      this.svg.setAttribute("viewBox", `0 0 ${width} ${height}`);
      onresize();
    });
    this.observer.observe(this.element);
  }

  draw(camera, now, showsStill) {
    const { view } = this;
    const ratio = String(camera.frame.width / camera.frame.height);
    if (this.ratio !== ratio) this.element.style.setProperty("--ratio", this.ratio = ratio);
    this.showStill(showsStill ? camera.still?.url : null);
    if (!view.width || !view.height) return; // drawn when it has a size
    const lit = camera.shapes.map(({ rule }) => Number(rule !== null && camera.isLit(rule, now)));
    const drawn = [camera.name, camera.version, view.width, view.height, ...lit].join();
    if (drawn !== this.drawn) {
      const { elements, taken } = drawScene(camera, view, now);
      render(this.scene, elements);
      this.taken = taken;
      this.drawn = drawn;
    }
    render(this.objects, drawObjects(camera, view, now, this.taken));
  }

  showStill(url) {
    if (this.still.hidden === Boolean(url)) this.still.hidden = !url;
    if (!url) this.still.removeAttribute("src");
    else if (this.still.getAttribute("src") !== url) this.still.src = url;
  }
}
