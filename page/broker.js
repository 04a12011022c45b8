"use strict";

// The page's connection to the broker that serves it. Of the page's address: ?prefix=TOPIC, also
// several, by default all that the broker lets this account read.

const REFUSED = [4, 5, 134, 135]; // reasons of brokers, which do not tell them apart
const STATES = ["va/available", "va/scene", "va/track/+", "onvif-ej/#"]; // of all cameras
const SEEN = ["onvif-mj/#", "va/still"];                                // of those in view
const LONGEST = 1e6;                                                    // bytes of a message
const DEEPEST = 4;                                                      // levels of a camera's name
const GROUPS = new URLSearchParams(location.search).getAll("prefix")
  .map(group => group.replace(/\/+$/, "")).filter(Boolean);

class BrokerSource {
  constructor(wall) {
    this.wall = wall;
    this.client = null;
    this.lastPacketAt = null;      // ms since 1970
    this.inView = new Set();
    wall.onview = (name, isSeen) => this.watch(name, isSeen);
    byId("login").onsubmit = event => {
      event.preventDefault();
      const { username, password, stay } = Object.fromEntries(new FormData(event.target));
      event.target.elements.password.value = "";
      preferences.write({ account: stay ? { username, password } : undefined });
      this.connect({ username, password });
    };
    if (GROUPS.length) byId("empty").textContent += ` Only ${GROUPS.join(", ")} is asked for.`;
    this.connect(preferences.read().account);
  }

  connect(account = {}) {
    byId("login").hidden = true;
    this.wall.setSource("connecting", true);
    const address = new URL("mqtt", location.href); // beside the page
    address.protocol = location.protocol.replace("http", "ws");
    const client = mqtt.connect(`${address.origin}${address.pathname}`, {
      keepalive: 5, connectTimeout: 5000, reconnectPeriod: 1000, resubscribe: false, ...account,
    });
    this.client = client;
    client.on("connect", () => this.begin());
    client.on("packetreceive", () => { this.lastPacketAt = Date.now(); });
    client.on("message", (topic, payload, { retain }) => this.take(topic, payload, { retained: retain }));
    client.on("close", () => { if (client === this.client) this.disconnected(); });
    client.on("error", fault => { if (REFUSED.includes(fault.code)) this.refuse(account); });
  }

  begin() {
    this.wall.forgetStates();
    this.wall.setSource("connected", false);
    // All levels that a camera's name may have, since a filter that takes everything takes the frames.
    const places = (GROUPS.length ? GROUPS.map(group => `${group}/`) : [""]).flatMap(group =>
      Array.from({ length: DEEPEST + 1 }, (_, depth) => group + "+/".repeat(depth))).filter(Boolean);
    const topics = places.flatMap(place => STATES.map(state => place + state));
    this.client.subscribe(topics, { qos: 1 }, (fault, granted) => {
      if (!fault && granted?.every(({ qos }) => qos > 2))
        this.wall.setSource("this account may read nothing here", false);
    });
    for (const name of this.inView) this.subscribe(name);
  }

  watch(name, isSeen) {
    if (this.inView.has(name) === isSeen) return;
    if (isSeen) this.inView.add(name); else this.inView.delete(name);
    if (!this.client?.connected) return; // none while an account is asked for
    if (isSeen) this.subscribe(name);
    else this.client.unsubscribe(SEEN.map(part => `${name}/${part}`));
  }

  subscribe(name) {
    this.client.subscribe(SEEN.map(part => `${name}/${part}`), { qos: 0 });
  }

  take(topic, payload, how) {
    const place = splitTopic(topic); // the wall keeps a still's address, and gives it back
    if (place?.room !== "va" || place.path[0] !== "still")
      return this.wall.take(topic, payload.length > LONGEST ? "too long" : payload.toString(), how);
    const url = payload.length ? URL.createObjectURL(new Blob([payload], { type: "image/jpeg" })) : null;
    this.wall.take(topic, url, how);
  }

  disconnected() {
    this.wall.setSource("no answer from the broker", true, this.lastPacketAt ?? Date.now());
  }

  // A stored account that is refused is not tried for ever: it is asked for once more.
  refuse(account) {
    const client = this.client;
    this.client = null;
    client.end(true);
    preferences.write({ account: undefined });
    this.wall.setSource(account.username ? "refused" : "an account is needed", true);
    byId("refused").textContent = account.username
      ? "The broker refuses this: the account or its password is wrong, or it may not read here." : "";
    byId("login").hidden = false;
    byId("login").elements[account.username ? "password" : "username"].focus();
  }
}

new BrokerSource(new Wall());
