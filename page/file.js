"use strict";

// The page follows the files that va_picture keeps beside it: NAME.js, the whole, and NAME.new.js, what
// came since. They are scripts that call takeMessages(), because beside a page that was opened as a
// file a script can be loaded again, and nothing else.

const POLL_INTERVAL = 50; // ms between two polls
const TIMEOUT = 3000;     // ms, after which what is written is old

class FileSource {
  constructor(wall) {
    this.wall = wall;
    this.base = location.pathname.replace(/\.html$/, "").replace(/\/$/, "/index");
    this.run = null;      // of the program that writes
    this.last = 0;        // number of the newest message taken
    this.written = null;
    this.changedAt = null; // by this page's clock
    this.isOld = null;    // not known
    this.opened = false;
    this.received = null;
    window.takeMessages = content => { this.received = content; };
    this.follow();
    // A web server that does not answer says nothing, either.
    setInterval(() => {
      if (this.isOld === false && !document.hidden) this.judge(this.written);
    }, TIMEOUT / 3);
  }

  async follow() {
    try {
      await this.poll();
    } catch (fault) {
      this.wall.setSource(String(fault.message), true);
    }
    setTimeout(() => this.follow(), document.hidden ? 1000 : POLL_INTERVAL);
  }

  async poll() {
    const news = await this.load(".new.js");
    if (!news && this.written === null) return this.wall.setSource("nothing is written yet", true);
    // Now and then a browser reads no more of a file than there was of the one before it.
    this.judge(news ? news.written : this.written);
    if (!news) return;
    if (news.run !== this.run || news.after > this.last) {
      const whole = await this.load(".js");
      if (!whole) return;
      if (whole.run !== this.run) this.begin(whole.run);
      await this.takeAll(whole);
    }
    if (news.run === this.run) await this.takeAll(news);
  }

  begin(run) {
    if (this.run !== null) this.wall.forget();
    this.run = run;
    this.last = 0;
  }

  async takeAll({ written, messages }) {
    const now = performance.now();
    const isPast = this.last === 0;
    const fresh = messages.filter(({ n }) => n > this.last); // one that is a state too has one number
    const folder = location.pathname.replace(/[^/]*$/, "");
    for (const { at, topic, retained, payload, file, n } of fresh) {
      const url = file && `${folder}${encodeURIComponent(file)}?${this.run}-${n}`;
      if (url) await this.decode(url);
      const how = { retained: retained && !url, isPast }; // of a still it is known of when it is
      this.wall.take(topic, url ?? payload, how, now - (written - at));
      this.last = n;
    }
    // There is one camera: it is what one came for.
    const [only] = this.wall.order;
    if (only && !this.opened && !location.hash) this.wall.open(only.camera.name);
    this.opened ||= Boolean(only);
  }

  // So that a still is there when the boxes are that belong to it.
  async decode(url) {
    const image = new Image();
    image.src = url;
    await image.decode().catch(() => {});
  }

  // The first one may have lain there for long, and its clock may be another one than this.
  judge(written) {
    const now = performance.now();
    if (this.written !== null && written !== this.written) this.changedAt = now;
    this.written = written;
    const isOld = this.changedAt === null ? Math.abs(Date.now() - written) > TIMEOUT
      : now - this.changedAt > TIMEOUT;
    if (isOld === this.isOld) return;
    this.isOld = isOld;
    this.wall.setSource(isOld ? "nothing new is written" : "up to date", isOld, written);
  }

  // What the script gave to takeMessages(), or null.
  load(ending) {
    return new Promise(resolve => {
      const script = document.createElement("script");
      script.onload = script.onerror = () => {
        script.remove();
        resolve(this.received);
        this.received = null;
      };
      script.src = `${this.base}${ending}?${performance.now()}`;
      document.head.append(script);
    });
  }
}

new FileSource(new Wall());
