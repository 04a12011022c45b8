"use strict";

// What is kept in this browser, and how an alarm is announced: to a screen reader always, with a
// sound and a notification only when they were asked for.

const STORED = "va";
const ANNOUNCED_EVERY = 3000; // ms: a list of what happened meanwhile, not a flood
const NAMED_AT_MOST = 3;

const preferences = {
  // Nothing, where the browser keeps nothing for this page.
  read() {
    try { return JSON.parse(localStorage.getItem(STORED)) ?? {}; } catch { return {}; }
  },
  write(change) {
    try {
      localStorage.setItem(STORED, JSON.stringify({ ...this.read(), ...change }));
    } catch { /* not kept */ }
  },
};

class Alerts {
  constructor() {
    this.waiting = [];
    this.timer = null;
    this.audio = null;
    this.isBeepDue = false;
    for (const name of ["sound", "notify"]) {
      byId(name).onclick = () => this.toggle(name);
      this.set(name, Boolean(preferences.read()[name]));
    }
    // What was allowed may be so no more.
    if (this.notify && globalThis.Notification?.permission !== "granted") this.set("notify", false);
    byId("full").hidden = !document.fullscreenEnabled; // on some phones
    byId("full").onclick = () => document.fullscreenElement
      ? document.exitFullscreen() : document.documentElement.requestFullscreen();
    document.onfullscreenchange = () =>
      byId("full").setAttribute("aria-pressed", String(Boolean(document.fullscreenElement)));
  }

  set(name, isOn) {
    this[name] = isOn;
    byId(name).setAttribute("aria-pressed", String(isOn));
  }

  async toggle(name) {
    let isOn = !this[name];
    if (isOn && name === "notify") isOn = await this.mayNotify();
    this.set(name, isOn);
    preferences.write({ [name]: isOn });
    if (isOn && name === "sound") this.beep(); // a browser allows sound to who was clicked
  }

  async mayNotify() {
    const answer = "Notification" in window ? await Notification.requestPermission() : "denied";
    const isAllowed = answer === "granted";
    byId("notify").textContent = isAllowed ? "Notifications" : "Notifications not allowed";
    if (!isAllowed) this.say("This browser does not allow notifications for this page.");
    return isAllowed;
  }

  // Some phones allow them, and then show none.
  show(text) {
    try {
      new Notification("Alarm", { body: text, tag: "va" });
    } catch {
      this.set("notify", false);
      byId("notify").textContent = "Notifications not possible";
    }
  }

  raise(name, text) {
    this.waiting.push(`${name}: ${text}`);
    this.timer ??= setTimeout(() => this.announce(), 0);
  }

  announce() {
    const all = this.waiting.splice(0);
    const more = all.length - NAMED_AT_MOST;
    const text = all.slice(0, NAMED_AT_MOST).join("; ") + (more > 0 ? `; and ${more} more` : "");
    this.say(text);
    if (this.sound) this.beep();
    if (this.notify) this.show(text);
    this.timer = setTimeout(() => {
      this.timer = null;
      if (this.waiting.length) this.announce();
    }, ANNOUNCED_EVERY);
  }

  // A modal dialog hides what is outside of it from a screen reader too.
  say(text) {
    byId(byId("single").open ? "single-announcer" : "announcer").textContent = text;
  }

  // A browser keeps sound back until somebody clicks: then it is one, however many were due.
  async beep() {
    if (this.isBeepDue) return;
    this.isBeepDue = true;
    this.audio ??= new AudioContext();
    await this.audio.resume();
    this.isBeepDue = false;
    const tone = new OscillatorNode(this.audio, { frequency: 880 });
    const volume = new GainNode(this.audio, { gain: .15 });
    const begin = this.audio.currentTime;
    volume.gain.setTargetAtTime(0, begin + .15, .05);
    tone.connect(volume).connect(this.audio.destination);
    tone.start(begin);
    tone.stop(begin + .6);
  }
}
