// Every camera that publishes below a prefix, live. Of the page's address: ?prefix=TOPIC, by default
// all that the broker lets this account read.
"use strict";

const REFUSED = [4, 5, 134, 135]; // reasons of brokers: who it is, or that it may not
const REDRAW = 250;               // ms, where no message does it

const byId = id => document.getElementById(id);
const prefix = new URLSearchParams(location.search).get("prefix");
const cards = new Map(); // by camera

function made(name, className, parent) {
  const element = document.createElement(name);
  element.className = className;
  parent.append(element);
  return element;
}

class Card {
  constructor(name) {
    this.camera = new Camera(name);
    this.article = made("article", "", byId("cameras"));
    this.article.dataset.camera = name;
    this.article.tabIndex = 0;
    const head = made("div", "", this.article);
    made("h2", "", head).textContent = name;
    made("span", "tamper", head).textContent = "TAMPER";
    this.age = made("span", "age", head);
    this.state = made("span", "state", head);
    const svg = document.createElementNS("http://www.w3.org/2000/svg", "svg");
    this.article.append(svg);
    this.events = made("ol", "", this.article);
    this.drawing = new Drawing(svg);
    this.article.onclick = () => this.enlarge();
    this.article.onkeydown = event => { if (event.key === "Enter") this.enlarge(); };
    this.place();
  }

  // By name, wherever its messages come in.
  place() {
    const next = [...byId("cameras").children].find(other =>
      other !== this.article && other.dataset.camera > this.camera.name);
    byId("cameras").insertBefore(this.article, next ?? null);
  }

  enlarge() {
    this.article.classList.toggle("large");
    this.show();
  }

  show() {
    const { camera, article } = this;
    const now = performance.now();
    article.classList.toggle("offline", camera.online !== true);
    article.classList.toggle("tampered", camera.tampered);
    article.classList.toggle("alarmed", camera.isAlarmed(now));
    if (camera.delay !== null) article.dataset.delay = camera.delay;
    this.state.textContent = camera.online ? "live"
      : camera.online === null ? "nothing known"
      : `offline since ${camera.since.toLocaleTimeString([], { timeStyle: "short" })}`;
    const age = (now - camera.seenAt) / 1000;
    this.age.textContent = !isFinite(age) ? "nothing seen"
      : age < 1 ? `${age.toFixed(1)} s` : `nothing for ${age.toFixed(0)} s`;
    this.drawing.draw(camera, now);
    if (article.classList.contains("large")) this.listEvents();
  }

  listEvents() {
    this.events.replaceChildren(...this.camera.events.map(({ time, text }) => {
      const item = document.createElement("li");
      made("time", "", item).textContent = time.toLocaleTimeString();
      item.append(text);
      return item;
    }));
  }
}

function cardOf(name) {
  if (!cards.has(name)) cards.set(name, new Card(name));
  return cards.get(name);
}

function take(topic, payload, packet) {
  const place = split(topic);
  if (!place) return;
  const card = cardOf(place.camera);
  try {
    card.camera.take(place, payload.toString(), packet.retain, performance.now());
  } catch (fault) {
    console.warn(topic, fault); // not of ours, though it is called so
    return;
  }
  if (!document.hidden) card.show();
}

function summarise() {
  const all = [...cards.values()];
  const live = all.filter(card => card.camera.online).length;
  byId("summary").textContent = `${all.length} cameras, ${live} live`;
  if (!document.hidden) all.forEach(card => card.show());
}

function say(text, connected) {
  byId("broker").textContent = text;
  byId("broker").classList.toggle("lost", !connected);
  byId("cameras").classList.toggle("adrift", !connected);
}

function connect(account = {}) {
  const scheme = location.protocol === "https:" ? "wss" : "ws";
  const client = mqtt.connect(`${scheme}://${location.host}/`, { reconnectPeriod: 1000, ...account });
  client.on("connect", () => {
    say("connected", true);
    client.subscribe(prefix ? `${prefix}/#` : "#");
  });
  client.on("message", take);
  client.on("close", () => say("waiting for the broker", false));
  client.on("error", fault => {
    if (!REFUSED.includes(fault.code)) return;
    client.end(true);
    say(account.username ? "refused" : "an account is needed", false);
    byId("login").hidden = false;
  });
}

byId("login").onsubmit = event => {
  event.preventDefault();
  const account = Object.fromEntries(new FormData(event.target));
  event.target.hidden = true;
  event.target.elements.password.value = "";
  connect(account);
};

async function begin() {
  byId("patterns").innerHTML = await (await fetch("look_defs.svg")).text();
  connect();
  setInterval(summarise, REDRAW);
}

begin();
