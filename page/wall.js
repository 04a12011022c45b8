"use strict";

// The wall: a card for each camera that publishes. The source of the messages, a broker or a file,
// hands them to take(), reports its own state to setSource(), and is told through `onview` which
// cameras are in view: those alone need frames and stills.

const LEAST_WIDTH = 300;       // pixels, of a card
const CAMERAS_KEPT = 5000;
const AROUND = 48;             // pixels, what a card has above and below its picture, with the gap
const TICK = 250;              // ms
const SILENCE = 3000;          // ms until it is worth a word
const byName = new Intl.Collator(undefined, { numeric: true }).compare;

// "12:03:10", with the day unless it was today.
function timeText(time) {
  const shown = new Date(time);
  const isToday = shown.toDateString() === new Date().toDateString();
  return shown.toLocaleString([], {
    ...(isToday ? {} : { dateStyle: "medium" }), timeStyle: "medium", hourCycle: "h23",
  });
}

// What the address names, or "": also when somebody mistyped it.
function askedByAddress() {
  try { return decodeURI(location.hash.slice(1)); } catch { return ""; }
}

class Card {
  constructor(wall, name) {
    this.wall = wall;
    this.camera = new Camera(name);
    this.camera.isCurrent = wall.connected;
    this.due = Infinity; // when it looks different by itself
    this.inView = false;
    this.isWatched = false; // in view, or open
    this.article = document.createElement("article");
    this.article.dataset.camera = name;
    const head = made("div", "head", this.article);
    this.button = made("button", "open", made("h2", "", head));
    this.button.title = name;
    this.button.onclick = () => wall.open(name);
    this.badges = made("span", "badges", head);
    this.state = made("span", "state", head);
    this.state.id = `state-${++Card.made}`;
    this.button.parentElement.id = `name-${Card.made}`;
    this.alarms = made("span", "unseen", head); // which others see in the picture
    this.alarms.id = `alarms-${Card.made}`;
    this.button.setAttribute("aria-describedby", `${this.alarms.id} ${this.state.id}`);
    this.acknowledge = made("button", "acknowledge", head);
    this.acknowledge.hidden = true;
    this.acknowledge.setAttribute("aria-describedby", `name-${Card.made}`);
    this.acknowledge.onclick = () => wall.acknowledge(this.camera);
    this.picture = new Picture(this.article, () => wall.markDirty(this));
    this.picture.svg.setAttribute("aria-hidden", "true");
  }

  show(now) {
    const { camera, wall } = this;
    const { text, className, badges } = wall.stateOf(camera, now);
    if (this.article.className !== className) this.article.className = className;
    if (this.state.title !== text) this.state.title = this.state.textContent = text;
    setText(this.badges, badges);
    setText(this.alarms, camera.alarmsNow(now).map(alarm => `alarm: ${alarm}`).join(", "));
    const asks = wall.needsAcknowledging(camera);
    setHidden(this.acknowledge, !asks, this.button);
    if (asks) setText(this.acknowledge, camera.alarms ? `Acknowledge ${camera.alarms}` : "Acknowledge");
    this.picture.draw(camera, now, camera.hasFreshStill(now));
  }
}
Card.made = 0;

class Wall {
  constructor() {
    this.cards = new Map();
    this.order = [];      // the cards as they are shown
    this.dirty = new Set();
    this.isLaidOut = true;
    this.scheduled = false;
    this.drawnAt = 0;
    this.inViewCount = 0;
    this.common = null;   // what all names begin with
    this.connected = false;
    this.lostAt = null;
    this.onview = () => {}; // (camera's name, whether it is in view)
    this.alerts = new Alerts();
    this.single = new Single(this);
    this.openedHere = false;
    this.alarmsFirst = Boolean(preferences.read().first);
    byId("first").onclick = () => this.setFirst(!this.alarmsFirst);
    this.setFirst(this.alarmsFirst);
    byId("acknowledge").onclick = () => this.order.slice().forEach(card => this.acknowledge(card.camera));
    this.observer = new IntersectionObserver(entries => this.onIntersection(entries), { rootMargin: "100px" });
    window.addEventListener("hashchange", () => this.followAddress());
    window.addEventListener("resize", () => this.layOut());
    setInterval(() => this.tick(), TICK);
  }

  // A message as Camera.take() has it, or of a still the address of a JPEG. `at` is when it was, by
  // performance.now().
  take(topic, message, how, at = performance.now()) {
    const place = splitTopic(topic);
    if (!place || !this.cards.has(place.camera) && (!message || this.cards.size >= CAMERAS_KEPT))
      return;
    const card = this.cardOf(place.camera);
    const { camera } = card;
    const before = camera.attention();
    if (place.room === "va" && place.path[0] === "still") {
      this.dropStill(camera);
      camera.takeStill(message, how.retained ? -Infinity : at); // nobody knows how old a retained one is
    } else {
      const alarm = camera.take(place, message, how, at);
      if (alarm) this.alerts.raise(this.shortName(camera.name), alarm);
    }
    if (camera.isRetired()) return this.remove(card);
    if (camera.attention() !== before) this.place(card);
    this.markDirty(card);
  }

  remove(card) {
    this.inViewCount -= card.inView;
    this.watch(card, false);
    this.observer.unobserve(card.article);
    card.article.remove();
    this.cards.delete(card.camera.name);
    this.order.splice(this.order.indexOf(card), 1);
    this.isLaidOut = false;
    if (this.single.camera === card.camera) this.close();
    else this.redraw();
  }

  // Its address takes room in the browser.
  dropStill(camera) {
    if (camera.still?.url.startsWith("blob:")) URL.revokeObjectURL(camera.still.url);
    camera.takeStill(null);
  }

  // The state of the source, for people. `lostAt`, ms since 1970, is when it last answered.
  setSource(text, isLost, lostAt = Date.now()) {
    this.connected = !isLost;
    this.lostAt = isLost ? this.lostAt ?? lostAt : null;
    byId("source").textContent = text;
    document.body.classList.toggle("lost", isLost);
    for (const { camera } of this.order) camera.isCurrent = !isLost;
    this.redraw();
  }

  // Before all states come again.
  forgetStates() {
    for (const { camera } of this.order) camera.forgetStates();
  }

  forget() {
    for (const { article } of this.order) article.remove();
    this.inViewCount = 0;
    this.cards.clear();
    this.order = [];
    this.common = null;
    this.followAddress();
  }

  cardOf(name) {
    if (!this.cards.has(name)) {
      const card = new Card(this, name);
      this.cards.set(name, card);
      this.shorten(name);
      this.place(card);
      this.observer.observe(card.article);
      this.isLaidOut = false;
      if (location.hash) this.followAddress();
    }
    return this.cards.get(name);
  }

  // The levels that all names have in common are in no name that is shown.
  shorten(name) {
    const levels = name.split("/").slice(0, -1);
    const before = this.common;
    this.common ??= levels;
    const differing = this.common.findIndex((level, i) => level !== levels[i]);
    if (differing >= 0) this.common = this.common.slice(0, differing);
    const changed = this.common === before ? [this.cards.get(name)] : this.cards.values();
    for (const card of changed) setText(card.button, this.shortName(card.camera.name));
  }

  shortName(name) {
    return name.split("/").slice(this.common.length).join("/");
  }

  compare(a, b) {
    const attention = this.alarmsFirst ? b.camera.attention() - a.camera.attention() : 0;
    return attention || byName(a.camera.name, b.camera.name);
  }

  // Puts a card where it belongs.
  place(card) {
    const from = this.order.indexOf(card);
    if (from >= 0) this.order.splice(from, 1);
    let [low, high] = [0, this.order.length];
    while (low < high) {
      const middle = (low + high) >> 1;
      if (this.compare(this.order[middle], card) < 0) low = middle + 1; else high = middle;
    }
    this.order.splice(low, 0, card);
    if (low === from) return;
    const hasFocus = card.article.contains(document.activeElement) && document.activeElement;
    byId("cameras").insertBefore(card.article, this.order[low + 1]?.article ?? null);
    if (hasFocus) hasFocus.focus();
  }

  setFirst(isOn) {
    this.alarmsFirst = isOn;
    preferences.write({ first: isOn });
    byId("first").setAttribute("aria-pressed", String(isOn));
    this.order.sort((a, b) => this.compare(a, b));
    byId("cameras").append(...this.order.map(card => card.article));
    this.redraw();
  }

  // Whether an alarm or an outage waits for somebody.
  needsAcknowledging(camera) {
    return this.alarmsFirst && camera.attention() > 0;
  }

  acknowledge(camera) {
    camera.acknowledge();
    const card = this.cards.get(camera.name);
    this.place(card);
    this.markDirty(card);
  }

  // As many columns as let all cameras be seen as large as possible without scrolling, or, where they
  // would be too small, as many as fit.
  layOut() {
    this.isLaidOut = true;
    const cameras = byId("cameras");
    const count = this.cards.size;
    byId("empty").hidden ||= count > 0; // takes room
    const width = cameras.clientWidth;
    const height = window.innerHeight - cameras.getBoundingClientRect().top - window.scrollY;
    const fitting = columns => Math.min(width / columns,
      (height / Math.ceil(count / columns) - AROUND) * 16 / 9);
    let best = 1;
    for (let columns = 2; columns <= Math.min(count, 12); ++columns)
      if (fitting(columns) > fitting(best)) best = columns;
    const fits = fitting(best) >= LEAST_WIDTH;
    const columns = fits ? best : Math.max(Math.min(Math.floor(width / LEAST_WIDTH), count), 1);
    cameras.style.setProperty("--columns", columns);
    cameras.style.setProperty("--widest", fits ? `${Math.floor(fitting(best))}px` : "1fr");
  }

  onIntersection(entries) {
    for (const { target, isIntersecting } of entries) {
      const card = this.cards.get(target.dataset.camera);
      if (!card || card.article !== target || card.inView === isIntersecting) continue;
      card.inView = isIntersecting;
      this.inViewCount += isIntersecting ? 1 : -1;
      this.watch(card, isIntersecting || this.single.camera === card.camera);
      if (!isIntersecting) card.picture.showStill(null);
      this.markDirty(card);
    }
  }

  watch(card, isWatched) {
    if (isWatched && !card.isWatched) card.camera.watchedAt = performance.now();
    card.isWatched = isWatched;
    if (!isWatched) this.dropStill(card.camera); // comes again when it is asked for again
    this.onview(card.camera.name, isWatched);
  }

  markDirty(card) {
    this.dirty.add(card);
    if (this.scheduled) return;
    this.scheduled = true;
    setTimeout(() => requestAnimationFrame(() => {
      this.scheduled = false;
      this.draw();
    }), Math.max(this.drawnAt + this.drawInterval() - performance.now(), 0));
  }

  // Many cards are drawn together: what a browser does for each frame costs more than the cards.
  drawInterval() {
    return this.single.camera ? 0 : Math.min(4 * this.inViewCount, 100);
  }

  redraw() {
    for (const card of this.order) this.markDirty(card);
  }

  // Cards out of view are drawn when they come into it, those below an open camera when it closes.
  // One that cannot be drawn stops no other.
  draw() {
    const now = this.drawnAt = performance.now();
    if (!this.isLaidOut) this.layOut();
    for (const card of this.dirty) {
      this.dirty.delete(card);
      if (this.isShown(card)) this.show(card, now);
    }
  }

  // The camera that is open, in view or not; else all in view.
  isShown(card) {
    const open = this.single.camera;
    return open ? open === card.camera : card.inView;
  }

  show(card, now) {
    if (this.single.camera) this.drawSingle(now); else card.show(now);
    card.due = card.camera.nextChange(now);
  }

  drawSingle(now = performance.now()) {
    const { camera } = this.single;
    if (camera) this.single.show(now, this.stateOf(camera, now));
  }

  // Of a camera as it is now: {text, className, badges}.
  stateOf(camera, now) {
    if (!this.connected) {
      const since = this.lostAt === null ? "" : ` since ${timeText(this.lostAt)}`;
      return { text: `unknown${since}`, className: "unknown", badges: "" };
    }
    if (camera.unreadable.size > 0) {
      const kinds = [...camera.unreadable].join(", ");
      return { text: `unreadable: ${kinds}`, className: "unreadable", badges: "" };
    }
    if (camera.online === null) return { text: "nothing known", className: "unknown", badges: "" };
    if (!camera.online) {
      const since = camera.since === null ? "" : ` since ${timeText(camera.since)}`;
      const why = camera.why && `: ${camera.why}`;
      return { text: `offline${since}${why}`, className: "offline", badges: "" };
    }
    const alarms = camera.alarmsNow(now);
    const silence = camera.silence(now);
    const words = [camera.why, silence > SILENCE && `nothing for ${durationText(silence)}`];
    return {
      text: words.filter(Boolean).join(", ") || "live",
      className: `live${alarms.length ? " alarmed" : ""}`,
      badges: camera.tampered ? "TAMPER" : "",
    };
  }

  tick() {
    const now = performance.now();
    for (const card of this.order) {
      const isSilent = this.isShown(card) && card.camera.silence(now) > SILENCE;
      const text = isSilent && this.stateOf(card.camera, now).text;
      if (card.due <= now || isSilent && text !== card.state.textContent) {
        card.due = Infinity;
        this.markDirty(card);
      }
    }
    this.summarise(now);
  }

  summarise(now) {
    const cameras = this.order.map(card => card.camera);
    const counted = { live: 0, alarms: 0, offline: 0, unreadable: 0 };
    let asked = 0;
    for (const camera of this.connected ? cameras : []) {
      const isAsked = this.needsAcknowledging(camera);
      asked += isAsked;
      counted.live += camera.online === true;
      counted.offline += camera.online === false;
      counted.unreadable += camera.unreadable.size > 0;
      counted.alarms += camera.alarmsNow(now).length > 0 || isAsked && camera.alarms > 0;
    }
    const alarms = counted.alarms && `${counted.alarms} ${counted.alarms === 1 ? "alarm" : "alarms"}`;
    const others = ["offline", "unreadable"].map(name => counted[name] && `${counted[name]} ${name}`);
    const cases = [alarms, ...others].filter(Boolean).join(", ");
    const all = cameras.length && `${cameras.length} ${cameras.length === 1 ? "camera" : "cameras"}`;
    const live = all && this.connected && `${counted.live} live`;
    setText(byId("summary"), [all, live, cases].filter(Boolean).join(", "));
    const title = this.connected ? cases || all || "no camera" : "unknown";
    if (document.title !== `${title} – va`) document.title = `${title} – va`;
    setHidden(byId("acknowledge"), asked === 0, byId("first"));
    byId("empty").hidden = cameras.length > 0 || !byId("login").hidden;
  }

  // The address names the camera that is open, by its short name or its whole one.
  // Not by location.hash, which makes no entry in the history while the page is still loading: to
  // close the camera would leave the page.
  open(name) {
    this.openedHere = true;
    history.pushState(null, "", `#${encodeURI(this.shortName(name))}`);
    this.followAddress();
  }

  close() {
    if (this.openedHere) return history.back();
    history.replaceState(null, "", location.pathname + location.search);
    this.followAddress();
  }

  followAddress() {
    const asked = askedByAddress();
    const card = asked && (this.cards.get(asked) ?? this.order.find(({ camera }) =>
      this.shortName(camera.name) === asked || camera.name.endsWith(`/${asked}`)));
    const open = this.single.camera;
    const before = open && this.cards.get(open.name);
    if (!asked) this.openedHere = false;
    if (card && !open) this.scrolledTo = scrollY; // below an open camera the wall has no height
    if (card) this.single.open(card.camera, this.shortName(card.camera.name));
    else this.single.close();
    if (before && before !== card) this.watch(before, before.inView);
    if (card) {
      this.watch(card, true);
      this.markDirty(card);
    } else if (open) {
      this.redraw();
      scrollTo(0, this.scrolledTo);
      before?.button.focus({ preventScroll: true });
    }
  }
}

// "12 s", "3 min".
function durationText(ms) {
  return ms < 60000 ? `${Math.floor(ms / 1000)} s` : `${Math.floor(ms / 60000)} min`;
}
