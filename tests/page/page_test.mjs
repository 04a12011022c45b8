// usage: node page_test.mjs URL FOLDER PICTURES: the page in headless Chromium. At URL it shows the cameras
// of scripts/wall.sh, whose process numbers are in FOLDER/cameraN/va.pid and whose page is in FOLDER/page,
// which a broker of each test's own serves too, for cameras as they seldom are. Screenshots go to PICTURES.
import assert from "node:assert/strict";
import { mkdtempSync, readFileSync, renameSync, rmSync, writeFileSync } from "node:fs";
import { tmpdir } from "node:os";
import { resolve } from "node:path";
import { after, test } from "node:test";
import { AREA, axe, Broker, COUNTER, event, frame, FRAME, launch, LINE, online, SCENE, TAMPER, until, utc }
  from "./lab.mjs";

const [url, folder, pictures] = process.argv.slice(2);
const www = resolve(folder, "page");
const WIDE = { width: 1366, height: 768 };
const PHONE = { width: 390, height: 844 };
const CARD = ".open"; // what opens a camera
const { browser, end } = await launch();
after(end);

// A page, of a browser that kept nothing; with what is asked of it here.
class Page {
  static async open(address, size = WIDE) {
    const context = await browser.createBrowserContext();
    const page = Object.assign(new Page(), { context, tab: await context.newPage(), faults: [] });
    page.tab.on("pageerror", fault => page.faults.push(fault.stack));
    page.tab.on("console", said => {
      // That a broker is away is no fault of the page.
      if (said.type() === "error" && !/^WebSocket connection/.test(said.text())) page.faults.push(said.text());
    });
    await page.tab.setViewport(size);
    await page.tab.goto(address);
    return page;
  }

  async close() {
    await this.context.close();
    assert.deepEqual(this.faults, []);
  }

  until(what, ...more) { return this.tab.waitForFunction(what, { timeout: 20000, polling: 50 }, ...more); }
  shows(selector, text = "") { // of all that are shown, one with this text
    return this.until((selector, text) => [...document.querySelectorAll(selector)].some(element =>
      element.checkVisibility() && element.textContent.includes(text)), selector, text);
  }
  gone(selector) {
    return this.until(selector => ![...document.querySelectorAll(selector)].some(element =>
      element.checkVisibility()), selector);
  }
  texts(selector) { return this.tab.$$eval(selector, all => all.map(({ textContent }) => textContent)); }
  press(...keys) { return keys.reduce((last, key) => last.then(() => this.tab.keyboard.press(key)), Promise.resolve()); }

  // Nothing that a machine finds wrong for who does not see, or sees little; with screenshots.
  async audit(name) {
    for (const [size, viewport] of Object.entries({ phone: PHONE, wide: WIDE })) {
      await this.tab.setViewport(viewport);
      await this.tab.screenshot({ path: `${pictures}/${name}-${size}.png` });
      if (!await this.tab.evaluate(() => "axe" in window)) await this.tab.addScriptTag({ path: axe });
      const { violations } = await this.tab.evaluate(() => axe.run());
      assert.deepEqual(violations.map(({ id, nodes }) => [id, nodes.map(({ html }) => html)]), [], `${name} ${size}`);
    }
  }
}

// With a broker, a client that publishes as cameras do, and a page that shows them.
function inLab(name, act) {
  test(name, async () => {
    const broker = new Broker(www);
    await broker.start();
    let page;
    try {
      const { tell } = await broker.camera();
      page = await Page.open(broker.url);
      await page.shows("#source", "connected");
      await act({ broker, page, tell });
    } catch (fault) {
      await page?.tab.screenshot({ path: `${pictures}/failed.png` });
      throw fault;
    } finally {
      await broker.stop();
    }
    await page.close();
  });
}

async function publishCameras(tell, count, prefix = "cameras/camera") {
  for (let i = 1; i <= count; ++i) {
    await tell(`${prefix}${i}/va/scene`, SCENE, true);
    await tell(`${prefix}${i}/va/available`, online(), true);
  }
}

test("real cameras: boxes move, what alarms lights, one whose daemon is killed is offline alone", async () => {
  const page = await Page.open(url);
  await page.until(() => /^(\d+) cameras, \1 live/.test(document.querySelector("#summary").textContent));
  await page.until(() => {
    window.places ??= new Map();
    const all = [...document.querySelectorAll("article")];
    for (const { dataset: { camera }, children } of all) {
      const places = window.places.get(camera) ?? new Set();
      for (const box of children[1].querySelectorAll("rect.moving")) places.add(box.getAttribute("x"));
      window.places.set(camera, places);
    }
    return all.every(({ dataset }) => window.places.get(dataset.camera).size > 2);
  });
  await page.shows("article.alarmed .shape.lit");
  await page.audit("real");
  await page.shows("article.alarmed .badges", "TAMPER");
  await page.until(() => / 1?\d alarms?$/.test(document.querySelector("#summary").textContent));
  process.kill(Number(readFileSync(`${folder}/camera2/va.pid`)), "SIGKILL");
  await page.shows("[data-camera='cameras/camera2'].offline .state", "offline since");
  await page.shows("#summary", "1 offline");
  const filters = await page.tab.$$eval(".picture", all => all.map(one => getComputedStyle(one).filter !== "none"));
  assert.deepEqual(filters, filters.map((_, i) => i === 1));
  await page.tab.setViewport(PHONE);
  await page.tab.click("[data-camera='cameras/camera1'] .open");
  await page.until(() => document.querySelectorAll("#single-events li").length > 3);
  await page.close();
});

inLab("the wall: short names in their order, nine in a square, counted in summary and title", async ({ page, tell }) => {
  await page.audit("empty");
  await publishCameras(tell, 9);
  await page.shows("#summary", "9 cameras, 9 live");
  await page.until(() => {
    const places = [...document.querySelectorAll("article")].map(article => article.getBoundingClientRect());
    return new Set(places.map(({ left }) => left)).size === 3 && places.every(({ bottom }) => bottom <= innerHeight);
  });
  await tell("cameras/camera10/va/available", {
    State: "offline", Since: utc(Date.now() - 86400000), Why: "the daemon has gone" });
  await tell(`cameras/camera3/${TAMPER}`, event({ State: true }), true);
  await tell(`cameras/camera4/${AREA}`, event({ IsInside: true }), true);
  await page.shows("#summary", "10 cameras, 9 live, 2 alarms, 1 offline");
  assert.equal(await page.tab.title(), "2 alarms, 1 offline – va");
  assert.deepEqual(await page.texts(CARD), Array.from({ length: 10 }, (_, i) => `camera${i + 1}`));
  await page.shows("[data-camera='cameras/camera3'] .badges", "TAMPER");
  await page.shows("[data-camera='cameras/camera4'] .lit");
  await page.audit("alarms");
  await tell(`cameras/camera3/${TAMPER}`, event({ State: false }), true);
  await tell("cameras/camera4/" + AREA, "", true); // no longer in force
  await page.gone(".lit, .badges:not(:empty)");
  await page.shows("#summary", "10 cameras, 9 live, 1 offline");
});

inLab("what cannot be read blinds one card alone, after a reload too", async ({ page, tell }) => {
  const bad = {
    "one/va/scene": { Shapes: [] },
    "two/va/scene": { ...SCENE, Shapes: [{ ...SCENE.Shapes[0], Points: [] }] },
    "three/va/available": "{{{",
    [`four/${FRAME}`]: { Frame: [{ "@UtcTime": utc(0), Object: [{}] }] },
    "<img src=x onerror=document.title=0>/va/scene": "7",
  };
  await publishCameras(tell, 2, "good");
  await tell("four/va/available", online(), true);
  for (let i = 0; i < 2; ++i) {
    for (const [topic, message] of Object.entries(bad)) await tell(topic, message, true);
    await page.shows("#summary", "7 cameras, 3 live, 5 unreadable");
    assert.equal((await page.texts(".unreadable .state")).filter(text => /^unreadable: \S/.test(text)).length, 5);
    await tell(`good2/${FRAME}`, frame(2));
    await page.shows("[data-camera=good2] .shape.moving");
    assert.equal(await page.tab.$$eval("h2 img", all => all.length), 0);
    await page.tab.reload();
  }
  await tell("two/va/scene", SCENE, true);
  await page.shows("#summary", "4 unreadable");
});

inLab("a single camera: opened and closed in each way, its picture as wide as fits", async ({ broker, page, tell }) => {
  await publishCameras(tell, 3);
  const camera = "cameras/camera3";
  await page.shows(CARD, "camera3");
  const third = `[data-camera='${camera}'] ${CARD}`;
  const isOpen = () => page.shows("dialog[open] h2", "camera3");
  const isClosed = async () => {
    await page.gone("dialog");
    assert.equal(new URL(page.tab.url()).hash, "");
    await page.until(third => document.activeElement === document.querySelector(third), third);
  };
  for (const close of [() => page.press("Escape"), () => page.tab.goBack(), () => page.tab.click("#single-close")]) {
    await page.tab.click(third);
    await isOpen();
    assert.equal(new URL(page.tab.url()).hash, "#camera3");
    await close();
    await isClosed();
    await page.press("Enter");
    await isOpen();
    await page.press("Escape");
    await isClosed();
  }
  await page.tab.goto(`${broker.url}#camera3`);
  await page.tab.reload();
  await isOpen();
  const names = { Objects: [{ ObjectId: 7, Class: "Moving", Crossing: "to left" }] };
  for (const [second, data] of [[5, {}], [9, names], [7, {}]])
    await tell(`${camera}/${LINE}`, event(data, Date.UTC(2020, 1, 1, 12, 0, second)));
  await tell(`${camera}/${COUNTER}`, event({ Count: 41 }), true);
  await page.until(() => document.querySelectorAll("#single-events li").length === 3);
  assert.match((await page.texts("#single-events li"))[0], /09line 0 crossed by moving 7 to the left$/);
  await page.shows("#single-picture .label", "line 0: 41");
  await page.shows("#single-announcer, #announcer", "line 0 crossed");
  await page.audit("single");
  for (const size of [WIDE, PHONE]) {
    await page.tab.setViewport(size);
    await page.until(() => {
      const [place, picture] = ["#single-picture", "#single-picture .picture"]
        .map(selector => document.querySelector(selector).getBoundingClientRect());
      return Math.abs(picture.width / picture.height - 16 / 9) < .01 && picture.bottom <= innerHeight + 1 &&
        (Math.abs(place.width - picture.width) < 1 || Math.abs(place.height - picture.height) < 1);
    });
  }
  assert.equal(await page.tab.$eval("#single-picture .picture", one => one.clientWidth), PHONE.width);
  await page.tab.click("#single-edit");
  await page.shows("#single-panel button", "Add line");
  await page.audit("editor");
  await page.press("Escape");
  await page.gone("#single-panel");
  await page.press("Escape");
  await page.gone("dialog");
});

inLab("offline: since when and why, by a last will too, and no alarm", async ({ broker, page, tell }) => {
  await publishCameras(tell, 2);
  const topic = "cameras/camera2/va/available";
  await tell(`cameras/camera2/${AREA}`, event({ IsInside: true }, Date.UTC(2020, 1, 1, 12)), true);
  await page.shows("[data-camera='cameras/camera2'].alarmed .lit");
  const since = Date.UTC(2020, 1, 1, 12, 34, 56);
  await tell(topic, { State: "offline", Since: utc(since), Why: "va_mqtt has ended" }, true);
  await page.until(() => /^offline since .*:34:56: va_mqtt has ended$/.test(
    document.querySelector("article.offline .state")?.textContent));
  await page.gone(".lit, .alarmed");
  await page.audit("offline");
  await tell(topic, online(), true);
  await page.shows("[data-camera='cameras/camera2'].live.alarmed .lit");
  const dying = await broker.camera({ reconnectPeriod: 0, will: {
    topic, retain: true, payload: JSON.stringify({ State: "offline", Why: "the connection was lost" }) } });
  await dying.tell(`cameras/camera2/${LINE}`, event({}, Date.UTC(2021, 1, 1, 12, 0, 7)));
  dying.stream.destroy();
  await page.until(() => /^offline since .*:00:07: the connection was lost$/.test(
    document.querySelector("article.offline .state")?.textContent));
});

inLab("a broker that hangs or is gone: nothing is known, until it is back", async ({ broker, page, tell }) => {
  await publishCameras(tell, 2);
  await tell(`cameras/camera1/${AREA}`, event({ IsInside: true }), true);
  await page.shows(".alarmed .lit");
  const header = () => page.tab.$eval("body > header", one => getComputedStyle(one).backgroundColor);
  const before = await header();
  for (const [take, give] of [[() => broker.process.kill("SIGSTOP"), () => broker.process.kill("SIGCONT")],
                              [() => broker.kill(), () => broker.start()]]) {
    await take();
    await page.shows("article.unknown .state", "unknown since");
    await page.gone(".lit, .alarmed, article.live");
    assert.notEqual(await header(), before);
    await page.until(() => document.title === "unknown – va");
    await page.audit("lost");
    await give();
    await page.shows("#source", "connected");
    assert.equal(await header(), before);
  }
  await publishCameras(tell, 2); // a new broker has kept nothing
  await page.shows("#summary", "2 cameras, 2 live");
});

inLab("an account: asked for, refused with a word, kept when told to until it is refused", async ({ broker, page }) => {
  const logIn = async (password, stays) => {
    await page.shows("#login");
    for (const [name, text] of Object.entries({ username: "viewer", password })) {
      await page.tab.$eval(`[name=${name}]`, input => { input.value = ""; });
      await page.tab.type(`[name=${name}]`, text);
    }
    if (stays) await page.tab.click("[name=stay]");
    await page.press("Enter");
  };
  await broker.kill();
  await broker.start({ viewer: "secret" });
  await page.tab.reload();
  await page.shows("#source", "an account is needed");
  await logIn("wrong", false);
  await page.shows("#refused", "wrong");
  await page.audit("login");
  await logIn("secret", false);
  await page.shows("#source", "connected");
  await page.tab.reload();
  await logIn("secret", true);
  await page.shows("#source", "connected");
  await page.tab.reload();
  await page.shows("#source", "connected");
  assert.equal(await page.tab.$eval("#login", form => form.hidden), true);
  await broker.kill();
  await broker.start({ viewer: "changed" });
  await page.shows("#refused", "wrong");
  await page.tab.reload();
  await page.shows("#source", "an account is needed");
});

inLab("groups: those of the address alone", async ({ broker, page, tell }) => {
  for (const group of ["east", "north", "south"]) await publishCameras(tell, 2, `${group}/camera`);
  for (const [groups, names] of [[["north"], ["camera1", "camera2"]],
      [["north", "south"], ["north/camera1", "north/camera2", "south/camera1", "south/camera2"]]]) {
    await page.tab.goto(`${broker.url}?${groups.map(group => `prefix=${group}`).join("&")}`);
    await page.shows("#summary", `${names.length} cameras`);
    assert.deepEqual(await page.texts(CARD), names);
  }
});

inLab("alarms first, until they are acknowledged; no sound before it is asked for", async ({ page, tell }) => {
  const order = wanted => page.until(wanted => [...document.querySelectorAll(".open")]
    .map(({ textContent }) => textContent.slice(-1)).join("") === wanted, wanted);
  assert.deepEqual(await page.tab.$$eval("#sound, #notify", all => all.map(one => one.ariaPressed)), ["false", "false"]);
  await page.tab.evaluate(() => {
    window.sounds = 0;
    const start = OscillatorNode.prototype.start;
    OscillatorNode.prototype.start = function (...when) { ++window.sounds; start.apply(this, when); };
  });
  await publishCameras(tell, 4);
  await tell("cameras/camera3/va/available", { State: "offline", Since: utc(Date.now()) }, true);
  await tell(`cameras/camera4/${LINE}`, event({}));
  await page.shows("#announcer", "camera4: line 0 crossed");
  await order("1234");
  assert.equal(await page.tab.evaluate(() => window.sounds), 0);
  await page.tab.click("#first");
  await order("4312");
  await page.audit("first");
  await page.tab.click("[data-camera='cameras/camera4'] .acknowledge");
  await order("3124");
  await tell(`cameras/camera2/${TAMPER}`, event({ State: true }), true);
  await order("2314");
  await page.tab.click("#acknowledge");
  await order("1234");
  await page.tab.click("#sound");
  const sounds = await page.tab.evaluate(() => window.sounds);
  await tell(`cameras/camera4/${LINE}`, event({}));
  await page.until(sounds => window.sounds > sounds, sounds);
});

inLab("frames are asked for of cameras that are seen alone", async ({ broker, page, tell }) => {
  await publishCameras(tell, 60);
  await page.shows("#summary", "60 cameras");
  const agrees = more => until(async () => {
    const seen = await page.tab.$$eval("article", all => all.filter(article => {
      const { top, bottom } = article.getBoundingClientRect();
      return bottom > -100 && top < innerHeight + 100;
    }).map(({ dataset }) => dataset.camera));
    return seen.length < 40 && String(broker.subscribed()) === String([...seen, ...more].sort());
  });
  await agrees([]);
  await page.tab.evaluate(() => scrollTo(0, document.body.scrollHeight));
  await agrees([]);
  await page.tab.evaluate(() => { location.hash = "camera1"; });
  await agrees(["cameras/camera1"]);
  await page.press("Escape");
  await agrees([]);
});

inLab("a still: in the single camera, and a fresh one in the tile", async ({ page, tell }) => {
  await publishCameras(tell, 1);
  const topic = "cameras/camera1/va/still";
  await tell(topic, Buffer.from(await page.tab.screenshot({ type: "jpeg" })), true);
  await page.tab.reload();
  await page.shows(CARD);
  const isShown = where => page.until(where => {
    const still = document.querySelector(`${where} .still`);
    return still.checkVisibility() && still.complete && still.naturalWidth === 1366;
  }, where);
  await page.tab.click(CARD);
  await isShown("dialog");
  assert.equal(await page.tab.$eval("article .still", still => still.hidden), true); // nobody knows of when it is
  await tell(topic, Buffer.from(await page.tab.screenshot({ type: "jpeg" })), true);
  await isShown("article");
  await tell(topic, "", true);
  await page.gone(".still");
});

inLab("by keyboard alone: all is reached, and nothing behind an open camera", async ({ page, tell }) => {
  await publishCameras(tell, 3);
  await page.shows("#summary", "3 cameras, 3 live");
  const reached = async () => {
    const found = new Set();
    for (let i = 0; i < 40; ++i) {
      await page.press("Tab");
      found.add(await page.tab.evaluate(() => document.activeElement.id || document.activeElement.textContent));
    }
    return found;
  };
  const wall = await reached();
  for (const name of ["first", "sound", "notify", "full", "camera1", "camera2", "camera3"]) assert.ok(wall.has(name), name);
  await page.tab.focus(CARD);
  await page.press("Enter");
  await page.shows("dialog #single-close");
  const single = await reached();
  for (const name of ["single-edit", "single-close", "single-events"]) assert.ok(single.has(name), name);
  assert.ok(!single.has("first") && !single.has("camera2"));
});

// A page as va_picture writes it, and the files beside it.
class Files {
  constructor() {
    this.folder = mkdtempSync(`${tmpdir()}/page-`);
    const read = name => readFileSync(new URL(`../../page/${name}`, import.meta.url), "utf8");
    this.write("scene.html", read("index.html")
      .replace(/<link rel="stylesheet" href="([^"]+)">/g, (_, name) => `<style>${read(name)}</style>`)
      .replace(/<script src="mqtt.js"><\/script>/, "").replace("broker.js", "file.js")
      .replace(/<script src="([^"]+)"><\/script>/g, (_, name) => `<script>${read(name)}</script>`));
  }

  write(name, content) {
    writeFileSync(`${this.folder}/new`, content);
    renameSync(`${this.folder}/new`, `${this.folder}/${name}`);
  }

  // The messages of `all`: the whole until the number `after`, and what is new.
  publish(all, after, run = 1) {
    const numbered = all.map(([topic, payload, retained], i) => ({
      n: i + 1, at: Date.now(), topic: `host/${topic}`, retained, ...payload.file ? payload : { payload } }));
    const write = (name, messages, after) => this.write(name,
      `takeMessages(${JSON.stringify({ run, written: Date.now(), after, messages })});\n`);
    write("scene.js", numbered.slice(0, after), 0);
    clearInterval(this.timer);
    const news = () => write("scene.new.js", numbered.slice(after), after);
    news();
    this.timer = setInterval(news, 500);
  }

  stop() {
    clearInterval(this.timer);
    rmSync(this.folder, { recursive: true, force: true });
  }
}

test("files: each message once, the whole after a gap and of a new run, and when nothing is written", async () => {
  const files = new Files();
  after(() => files.stop());
  const line = () => [LINE, event({}), false];
  const all = [["va/available", online(), true], ["va/scene", SCENE, true], line(), [FRAME, frame(), false]];
  files.publish(all, 4);
  const page = await Page.open(`file://${files.folder}/scene.html`);
  const events = count => page.until(count =>
    document.querySelectorAll("#single-events time").length === count, count);
  await page.shows("dialog[open] h2", "host");
  await events(1);
  assert.equal(await page.tab.$eval("#single-acknowledge", button => button.hidden), true); // it is past
  await page.tab.evaluate(() => {
    Object.assign(window, { taken: 0, looks: 0 });
    const [take, load] = [Wall.prototype.take, FileSource.prototype.load];
    Wall.prototype.take = function (...all) { ++window.taken; return take.apply(this, all); };
    FileSource.prototype.load = function (...all) { ++window.looks; return load.apply(this, all); };
  });
  const takes = async count => {
    await page.tab.evaluate(() => { window.looks = 0; });
    await page.until(() => window.looks > 5);
    assert.equal(await page.tab.evaluate(() => window.taken), count);
  };
  writeFileSync(`${files.folder}/scene.0.jpg`, await page.tab.screenshot({ type: "jpeg" }));
  files.publish([...all, line(), [AREA, event({ IsInside: true }), false], ["va/still", { file: "scene.0.jpg" }, true]], 4);
  await page.shows("dialog .lit");
  await page.until(() => document.querySelector("dialog .still").naturalWidth > 0);
  await events(3);
  await takes(3);
  await page.audit("file");
  const gap = [...all, ...Array.from({ length: 7 }, line)];
  gap.slice(7).forEach(([, message], i) => { message.UtcTime = utc(Date.now() + i); });
  files.publish(gap, 10);
  await events(7);
  await takes(7);
  files.publish(all.slice(0, 3), 3, 2);
  await events(1);
  clearInterval(files.timer);
  await page.shows("dialog .state", "unknown since");
  assert.deepEqual(await page.texts("#source"), ["nothing new is written"]);
  await page.close();
});
