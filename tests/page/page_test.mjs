// usage: node page_test.mjs URL FOLDER PICTURES
// The page in headless Chromium. At URL it shows the cameras of scripts/wall.sh, whose process
// numbers are in FOLDER/cameraN/va.pid, and whose page is in FOLDER/page: a broker of each test's
// own serves it too, for what cameras seldom do. Screenshots go to PICTURES.
import assert from "node:assert/strict";
import { readFileSync, writeFileSync } from "node:fs";
import { resolve } from "node:path";
import { after, test } from "node:test";
import { Broker, Files, launch, Page, PHONE, until, WIDE } from "./lab.mjs";
import { AREA, AVAILABLE, COUNTER, event, frame, FRAME, inside, LINE, online, SCENE, TAMPER,
         utc } from "./messages.mjs";

const [url, folder, pictures] = process.argv.slice(2);
const NOON = Date.UTC(2020, 1, 1, 12);
const OFFLINE = { State: "offline", Since: utc(NOON + 7e3), Why: "ended" };
const card = (number, part = "") => `[data-camera='cameras/camera${number}']${part}`;
const browser = await launch();
after(() => browser.close());
const openPage = address => Page.open(browser, address, pictures);

// With a broker, a client that publishes as cameras do, and a page that shows them.
function inLab(name, act) {
  test(name, async t => {
    const broker = new Broker(resolve(folder, "page"));
    t.after(() => broker.stop());
    await broker.start();
    const page = await openPage(broker.url);
    await page.shows("#source", "connected");
    await act({ broker, page, cameras: await broker.camera() });
    await page.close();
  });
}

test("real cameras: boxes move, alarms light, one whose daemon is killed is offline", async () => {
  const page = await openPage(url);
  await page.until(() => /^3 cameras, 3 live/.test(document.querySelector("#summary").textContent));
  await page.until(() => [...document.querySelectorAll("article")].every(article => {
    article.places ??= new Set();
    for (const { x } of article.querySelectorAll("rect.moving"))
      article.places.add(x.baseVal.value);
    return article.places.size > 2;
  }));
  await page.shows("article.alarmed .shape.lit");
  await page.audit("real");
  await page.shows("article.alarmed .badges", "TAMPER");
  process.kill(Number(readFileSync(`${folder}/camera2/va.pid`)), "SIGKILL");
  await page.shows(card(2, ".offline .state"), "offline since");
  assert.deepEqual(await page.tab.$$eval("article .picture", all =>
    all.map(picture => getComputedStyle(picture).filter !== "none")), [false, true, false]);
  await page.close();
});

inLab("the wall: short names in order, nine in a square, counted", async lab => {
  const { broker, page, cameras } = lab;
  const says = time => page.until((part, time) => {
    const text = document.querySelector(part)?.textContent ?? "";
    return text.startsWith("offline since ") && text.endsWith(time);
  }, card(10, ".offline .state"), time);
  await page.audit("empty");
  await cameras.introduce(9);
  await page.shows("#summary", "9 cameras, 9 live");
  await page.until(() => {
    const all = [...document.querySelectorAll("article")].map(one => one.getBoundingClientRect());
    return new Set(all.map(({ left }) => left)).size === 3 &&
      all.every(({ bottom }) => bottom <= innerHeight);
  });
  await cameras.tell(3, TAMPER, event({ State: true }));
  for (const number of [4, 10]) await cameras.tell(number, AREA, inside(true, NOON));
  await page.shows(card(3, " .badges"), "TAMPER");
  await cameras.tell(10, AVAILABLE, OFFLINE);
  await says(":00:07: ended");
  await page.shows("#summary", "10 cameras, 9 live, 2 alarms, 1 offline");
  assert.equal(await page.tab.title(), "2 alarms, 1 offline – va");
  await page.reads(".open", Array.from({ length: 10 }, (_, i) => `camera${i + 1}`));
  await page.gone(card(10, ".alarmed"));
  await page.audit("alarms");
  const dying = await broker.camera({ reconnectPeriod: 0, will: { retain: true,
    topic: `cameras/camera10/${AVAILABLE}`, payload: '{"State":"offline","Why":"lost"}' } });
  await dying.tell(10, AVAILABLE, online());
  await page.shows(card(10, ".live.alarmed"));
  await dying.tell(10, LINE, event({}, NOON + 9e3));
  dying.stream.destroy();
  await says(":00:09: lost");
  await cameras.tell(3, TAMPER, event({ State: false }));
  for (const number of [4, 10]) await cameras.tell(number, AREA, ""); // no longer in force
  await page.gone(".lit, .badges:not(:empty)");
  await page.until(() => document.title === "1 offline – va");
  for (const path of [AVAILABLE, COUNTER]) await cameras.tell(10, path, ""); // taken out
  await page.shows("#summary", "9 cameras, 9 live");
});

inLab("what cannot be read blinds one card, after a reload too", async ({ page, cameras }) => {
  const bad = [
    ["one", "va/scene", { ...SCENE, Shapes: [{ ...SCENE.Shapes[0], Points: [] }] }],
    ["two", AVAILABLE, "{{{"], ["<img src=x onerror=document.title=0>", "va/scene", "7"],
  ];
  await cameras.introduce(2, "good");
  for (let i = 0; i < 2; ++i) {
    for (const message of bad) await cameras.tell(...message);
    await page.shows("#summary", "5 cameras, 2 live, 3 unreadable");
    await page.shows(".unreadable .state", "unreadable: va/scene");
    await cameras.tell("good2", FRAME, frame(2));
    await page.shows("[data-camera=good2] .shape.moving");
    await page.shows("[data-camera=good2] .state", "nothing for");
    assert.equal(await page.tab.$$eval("h2 img", all => all.length), 0);
    await page.tab.reload();
  }
  await cameras.tell("one", "va/scene", SCENE);
  await page.shows("#summary", "2 unreadable");
});

inLab("a single camera is opened and closed in each way", async ({ broker, page, cameras }) => {
  await cameras.introduce(3);
  const third = card(3, " .open");
  const isAt = hash => assert.equal(new URL(page.tab.url()).hash, hash);
  const isOpen = () => page.shows("dialog[open] h2", "camera3").then(() => isAt("#camera3"));
  const isClosed = async () => {
    await page.gone("dialog");
    isAt("");
    await page.until(third => document.activeElement === document.querySelector(third), third);
  };
  await page.shows(third);
  for (const close of [() => page.press("Escape"), () => page.tab.goBack(),
                       () => page.tab.click("#single-close")]) {
    for (const open of [() => page.tab.click(third), () => page.press("Enter")]) {
      await open();
      await isOpen();
      await close();
      await isClosed();
    }
  }
  for (const hash of ["#%", "#camera3"]) await page.tab.goto(broker.url + hash); // "#%" names none
  await page.tab.reload();
  await isOpen();
  await page.press("Escape");
  await isClosed();
});

inLab("a single camera: events by time, counts, as wide as fits", async ({ page, cameras }) => {
  await cameras.introduce(3);
  await page.shows(card(3, " .state"), "live");
  await page.go("camera3");
  for (const second of [5, 9, 7])
    for (const camera of [2, 3])
      await cameras.tell(camera, LINE, event({}, NOON + 1000 * (second + camera - 3)));
  await cameras.tell(3, COUNTER, event({ Count: 41 }));
  const lists = seconds => page.until(seconds => seconds === [...document.querySelectorAll(
    "#single-events time")].map(({ textContent }) => textContent.at(-1)).join(""), seconds);
  await lists("975");
  await page.shows("#single-events li", "line 0 crossed");
  await page.shows("#single-picture .label", "line 0: 41");
  await page.shows("#single-announcer", "line 0 crossed");
  await page.gone("#single-picture .lit"); // though nothing else comes
  await page.audit("single");
  for (const size of [PHONE, WIDE]) {
    await page.tab.setViewport(size);
    await page.until(isPhone => {
      const [place, picture] = ["#single-picture", "#single-picture .picture"]
        .map(selector => document.querySelector(selector).getBoundingClientRect());
      const fits = side => Math.abs(place[side] - picture[side]) < 1;
      return Math.abs(picture.width / picture.height - 16 / 9) < .01 &&
        (isPhone ? picture.width === innerWidth : fits("width") || fits("height"));
    }, size === PHONE);
  }
  await page.tab.click("#single-edit");
  await page.shows("#single-panel button", "Add line");
  await page.audit("editor");
  const box = await (await page.tab.$("#single-picture .editor")).boundingBox();
  for (const [act, x] of [["move", .75], ["down"], ["move", .7], ["move", .65], ["up"]])
    await page.tab.mouse[act](...x ? [box.x + x * box.width, box.y + .7 * box.height] : []);
  await page.until(() => /O0.Left=(49|50)\d\d\n.*O0.Right=(79|80)\d\d$/.test(
    document.querySelector("#single-panel textarea").value));
  await page.tab.click("#single-panel ::-p-text(Reset)");
  await page.shows("#single-panel p", "This is what the camera has");
  await page.press("Escape"); // of the editor alone
  await page.gone("#single-panel");
  await page.shows("dialog h2", "camera3");
  await page.go("camera2");
  await lists("864");
});

inLab("a broker that hangs or is gone: nothing is known, until it is back", async lab => {
  const { broker, page, cameras } = lab;
  await cameras.introduce(2);
  await cameras.tell(1, AREA, inside(true));
  await page.shows(".alarmed .lit");
  const colour = () =>
    page.tab.$eval("body > header", one => getComputedStyle(one).backgroundColor);
  const before = await colour();
  for (const [take, give, alarms] of [
    [() => broker.process.kill("SIGSTOP"), () => broker.process.kill("SIGCONT"), 1],
    [() => broker.kill(), () => broker.start(), 0]]) { // which has kept nothing
    await take();
    await page.shows("article.unknown .state", "unknown since");
    await page.gone(".lit, .alarmed, article.live");
    assert.notEqual(await colour(), before);
    await page.until(() => document.title === "unknown – va");
    await page.audit("lost");
    await give();
    await page.shows("#source", "connected");
    await until(() => broker.subscribed().length === 2);
    assert.equal(await colour(), before);
    await page.until(count => document.querySelectorAll(".alarmed").length === count, alarms);
  }
});

inLab("an account: asked for, refused with a word, kept when told to", async lab => {
  const { broker, page, cameras } = lab;
  const isAsked = () => page.shows("#source", "an account is needed");
  const logIn = async password => {
    await page.tab.$eval("[name=username]", field => { field.value = "viewer"; });
    await page.tab.type("[name=password]", password);
    await page.press("Enter");
  };
  const restart = async (...account) => {
    await broker.kill();
    await broker.start(account);
  };
  await cameras.introduce(60);
  await page.shows("#summary", "60 cameras");
  await restart("viewer", "secret");
  await isAsked();
  await page.go("camera60");
  await page.shows("dialog h2", "camera60");
  await page.tab.reload();
  await isAsked();
  await logIn("wrong");
  await page.shows("#refused", "wrong");
  await page.audit("login");
  for (const stays of [false, true]) {
    if (stays) await page.tab.click("[name=stay]");
    await logIn("secret");
    await page.shows("#source", "connected");
    await page.tab.reload();
    await (stays ? page.shows("#source", "connected") : isAsked());
  }
  await page.gone("#login");
  await restart("viewer", "changed");
  await page.shows("#refused", "wrong");
  await page.tab.reload();
  await isAsked();
});

inLab("groups: those of the address alone", async ({ broker, page, cameras }) => {
  for (const group of ["east", "north", "south"]) await cameras.introduce(1, `${group}/camera`);
  for (const [query, names] of [["prefix=north/", ["camera1"]],
    ["prefix=north&prefix=south", ["north/camera1", "south/camera1"]]]) {
    await page.tab.goto(`${broker.url}?${query}`);
    await page.shows("#summary", `${names.length} camera`);
    await page.reads(".open", names);
  }
});

inLab("alarms first until acknowledged; a sound when told to", async ({ page, cameras }) => {
  const order = numbers => page.reads(".open", [...numbers].map(number => `camera${number}`));
  await page.watch("AudioContext.prototype", "resume");
  await cameras.introduce(4);
  await cameras.tell(3, AVAILABLE, OFFLINE);
  await cameras.tell(4, LINE, event({}));
  await page.shows("#announcer", "camera4: line 0 crossed");
  await order("1234");
  await page.reads("#tools [aria-pressed=true]", []);
  assert.equal(await page.calls("resume"), 0); // no sound
  await page.tab.click("#first");
  await order("4312");
  await page.audit("first");
  await page.tab.click(card(4, " .acknowledge"));
  await order("3124");
  await page.until(() => document.activeElement.title === "cameras/camera4");
  await cameras.tell(2, TAMPER, event({ State: true }));
  await order("2314");
  await page.shows(card(2, " .unseen"), "alarm: tampering");
  await page.tab.click("#acknowledge");
  await order("1234");
  await page.shows("#announcer", "camera2: tampering began"); // three seconds later at most
  await page.tab.click("#sound");
  assert.equal(await page.calls("resume"), 1); // to be heard once
  await cameras.tell(4, LINE, event({}));
  await page.until(() => calls.resume === 2);
});

inLab("frames are asked for of cameras in view alone", async ({ broker, page, cameras }) => {
  await cameras.introduce(60);
  await page.shows("#summary", "60 cameras");
  const asked = () => until(async () => {
    const seen = await page.tab.$$eval("article", all => all.filter(article => {
      const { top, bottom } = article.getBoundingClientRect();
      return bottom > -100 && top < innerHeight + 100;
    }).map(({ dataset }) => dataset.camera));
    return seen.length < 40 && String(broker.subscribed()) === String(seen.sort());
  });
  await asked();
  await page.tab.evaluate(() => scrollTo(0, document.body.scrollHeight));
  await asked();
  const place = await page.tab.evaluate(() => scrollY);
  await page.go("camera1");
  await until(() => String(broker.subscribed()) === "cameras/camera1"); // which covers the others
  await page.press("Escape");
  await asked();
  assert.equal(await page.tab.evaluate(() => scrollY), place);
});

inLab("a still: in the single camera, and a fresh one in the tile", async ({ page, cameras }) => {
  const publish = async () => cameras.tell(1, "va/still",
    Buffer.from(await page.tab.screenshot({ type: "jpeg" })));
  const isShown = where => page.until(where =>
    document.querySelector(`${where} .still:not([hidden])`)?.naturalWidth > 0, where);
  await publish();
  await cameras.introduce(1);
  await page.tab.reload();
  await page.shows(".open");
  await page.tab.click(".open");
  await isShown("dialog");
  await page.press("Escape");
  await cameras.tell(1, FRAME, frame(1));
  await page.shows("article .moving");
  assert.ok(await page.tab.$eval("article .still", still => still.hidden), "its age is not known");
  await publish();
  await isShown("article");
  await page.watch("URL", "revokeObjectURL");
  await cameras.tell(1, "va/still", "");
  await page.gone(".still");
  assert.equal(await page.calls("revokeObjectURL"), 1); // else it is kept for ever
});

test("files: each message once, the whole after a gap and of a new run, and an end", async () => {
  const files = new Files();
  after(() => files.stop());
  let time = Date.now();
  const line = () => [LINE, event({}, time++), false];
  const all = [[AVAILABLE, online(), true], ["va/scene", SCENE, true], line(), [FRAME, frame()]];
  files.publish(all, 4);
  const page = await openPage(files.url);
  await page.shows("dialog[open] h2", "host");
  const tells = async (events, taken) => {
    await page.until(count =>
      document.querySelectorAll("#single-events time").length === count, events);
    await page.watch("FileSource.prototype", "load");
    await page.until(() => calls.load > 5);
    assert.equal(await page.calls("take"), taken);
  };
  await page.watch("Wall.prototype", "take");
  await page.tab.$eval("#first", button => button.click()); // under the open camera
  await tells(1, 0); // drawn
  await page.gone("#single-acknowledge"); // what is past asks nobody
  writeFileSync(`${files.folder}/scene.0.jpg`, await page.tab.screenshot({ type: "jpeg" }));
  all.push(line(), [AREA, inside(true), false], ["va/still", { file: "scene.0.jpg" }, true]);
  files.publish(all, 4);
  await page.shows("dialog .lit");
  await page.shows("#single-acknowledge");
  await page.until(() => document.querySelector("dialog .still").naturalWidth > 0);
  await tells(3, 3);
  await page.audit("file");
  all.push(line(), line(), line(), line());
  files.publish(all, 11);
  await tells(7, 7);
  files.publish(all.slice(0, 3), 3, 2);
  await tells(1, 10);
  files.pause();
  await page.shows("dialog .state", "unknown since");
  await page.reads("#source", ["nothing new is written"]);
  await page.press("Escape");
  await page.gone("dialog");
  await page.shows("article"); // and not what the browser showed before
  await page.tab.reload();
  const first = await page.until(() =>
    document.querySelector("#source").textContent.replace("connecting", ""));
  assert.equal(await first.jsonValue(), "nothing new is written");
  await page.close();
});
