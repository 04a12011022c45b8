// usage: node bench/page.mjs [CAMERAS] [MINUTES]
// What the page costs a browser that shows a fleet: so many simulated cameras (default 1000) at 5 frames a
// second with an event every 10 s each, one Mosquitto, headless Chromium at 1920x1080. Needs `npm ci` in
// page/. Prints the main thread's load, how long a click takes, the heap, and what a crowd costs.
import { execFileSync } from "node:child_process";
import { mkdtempSync, readFileSync, rmSync } from "node:fs";
import { loadavg, tmpdir } from "node:os";
import { setTimeout as sleep } from "node:timers/promises";
import { fileURLToPath } from "node:url";
import { Broker, launch } from "../tests/page/lab.mjs";
import { AREA, COUNTER, event, frame, FRAME, inside, LINE } from "../tests/page/messages.mjs";

const [cameras = 1000, minutes = 5] = process.argv.slice(2).map(Number);
const RATE = 5;          // frames a second, of each
const EVENT_EVERY = 10;  // s, of each
const STEP = 20;         // ms
const CLICKS = 10;
const CLOCK_TICK = 10;   // ms, of processor times in /proc

// How many of so many things a second are due at each step.
function pace(perSecond) {
  let owed = 0;
  return () => {
    owed += perSecond * STEP / 1000;
    const due = Math.floor(owed);
    owed -= due;
    return due;
  };
}

async function publishStates(client) {
  await client.introduce(cameras);
  for (let i = 1; i <= cameras; ++i) await client.tell(i, AREA, inside(i % 7 === 3));
}

function publishFrames(client) {
  const [framesDue, eventsDue] = [pace(cameras * RATE), pace(cameras / EVENT_EVERY)];
  let [framed, told] = [0, 0];
  return setInterval(() => {
    const seen = JSON.stringify(frame());
    for (let due = framesDue(); due > 0; --due)
      client.publish(`cameras/camera${framed++ % cameras + 1}/${FRAME}`, seen);
    for (let due = eventsDue(); due > 0; --due) {
      const name = `cameras/camera${told++ % cameras + 1}`;
      const Objects = [{ ObjectId: 1, Class: "Moving", Crossing: "to left" }];
      client.publish(`${name}/${LINE}`, JSON.stringify(event({ Objects })), { qos: 1 });
      client.publish(`${name}/${COUNTER}`,
        JSON.stringify(event({ Count: Math.ceil(told / cameras) })), { retain: true });
    }
  }, STEP);
}

// The processor time of the main threads of the browser's renderers, in ms, of the busiest.
function rendererTime(browser) {
  const children = pid =>
    readFileSync(`/proc/${pid}/task/${pid}/children`, "utf8").split(" ").filter(Boolean);
  const below = pid => children(pid).flatMap(child => [child, ...below(child)]);
  const times = below(browser.process().pid)
    .filter(pid => readFileSync(`/proc/${pid}/cmdline`, "utf8").includes("--type=renderer"))
    .map(pid => readFileSync(`/proc/${pid}/task/${pid}/stat`, "utf8").split(") ").at(-1).split(" "))
    .map(fields => (Number(fields[11]) + Number(fields[12])) * CLOCK_TICK);
  return Math.max(...times);
}

async function measureLoad(browser, page, seconds) {
  const [processor, { TaskDuration, Timestamp }] = [rendererTime(browser), await page.metrics()];
  await sleep(seconds * 1000);
  const after = await page.metrics();
  const took = after.Timestamp - Timestamp;
  const share = time => `${(100 * time / took).toFixed(0)} %`;
  return `main thread ${share((rendererTime(browser) - processor) / 1000)} of a processor, ` +
    `tasks ${share(after.TaskDuration - TaskDuration)} of the time, ` +
    `heap ${(after.JSHeapUsedSize / 1e6).toFixed(1)} MB, load ${loadavg()[0].toFixed(1)}`;
}

// From the click until the frame with the single camera's picture is shown.
async function measureClicks(page) {
  const times = [];
  for (let i = 0; i < CLICKS; ++i) {
    times.push(await page.evaluate(i => new Promise(resolve => {
      const began = performance.now();
      document.querySelectorAll(".open")[i].click();
      const look = () => requestAnimationFrame(() => {
        if (!document.querySelector("dialog[open] .shape")) return look();
        const { port1, port2 } = new MessageChannel();
        port1.onmessage = () => resolve(performance.now() - began); // painted
        port2.postMessage(null);
      });
      look();
    }), i));
    await page.keyboard.press("Escape");
    await page.waitForFunction(() => !document.querySelector("dialog[open]"));
    await sleep(500);
  }
  const [first, sorted] = [times[0], times.toSorted((a, b) => a - b)];
  return `click to picture: first ${first.toFixed(0)} ms, median ` +
    `${sorted[CLICKS >> 1].toFixed(0)} ms, worst ${sorted.at(-1).toFixed(0)} ms`;
}

// The longest task while frames of 1000 objects come.
async function measureCrowd(page, client) {
  await page.evaluate(() => {
    window.longest = 0;
    new PerformanceObserver(list => {
      for (const { duration } of list.getEntries())
        window.longest = Math.max(window.longest, duration);
    }).observe({ type: "longtask" });
  });
  for (let i = 0; i < 10; ++i) {
    client.publish(`cameras/camera1/${FRAME}`, JSON.stringify(frame(1000)));
    await sleep(300);
  }
  const longest = await page.evaluate(() => window.longest);
  return `1000 objects: longest task ${longest ? `${longest.toFixed(0)} ms` : "below 50 ms"}`;
}

const www = mkdtempSync(`${tmpdir()}/bench-page-`);
execFileSync(fileURLToPath(new URL("../page/stage.sh", import.meta.url)), [www]);
const broker = new Broker(www);
await broker.start();
const browser = await launch();
try {
  const client = await broker.camera();
  await publishStates(client);
  const page = await browser.newPage();
  page.on("pageerror", fault => console.log(fault));
  await page.setViewport({ width: 1920, height: 1080 });
  await page.goto(broker.url);
  await page.waitForFunction(count => document.querySelectorAll("article").length === count,
    { timeout: 60000 }, cameras);
  const frames = publishFrames(client);
  await sleep(5000);
  console.log(await measureClicks(page));
  for (let minute = 1; minute <= minutes; ++minute) {
    const load = await measureLoad(browser, page, 60);
    if (minute % 2) console.log(`${minute} min: ${load}`);
  }
  console.log(await measureClicks(page));
  console.log(await measureCrowd(page, client));
  clearInterval(frames);
} finally {
  await browser.close();
  await broker.stop();
  rmSync(www, { recursive: true });
}
