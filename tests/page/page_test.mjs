// usage: node wall_test.mjs URL FOLDER PICTURES: the wall at URL in headless Chromium, its cameras'
// process numbers in FOLDER/cameraN/va.pid; screenshots go to PICTURES.
import assert from "node:assert/strict";
import { mkdtempSync, readFileSync, rmSync } from "node:fs";
import { tmpdir } from "node:os";
import { createRequire } from "node:module";

const [url, folder, pictures] = process.argv.slice(2);
// Of the page's own packages.
const require = createRequire(new URL("../../page/package.json", import.meta.url));
const { default: puppeteer } = await import(require.resolve("puppeteer-core"));

const profile = mkdtempSync(`${tmpdir()}/wall-`);
const browser = await puppeteer.launch({
  executablePath: "/usr/bin/chromium",
  userDataDir: profile,
  args: ["--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
         "--disable-background-networking", "--disable-component-update", "--disable-sync"],
});

try {
  const page = await browser.newPage();
  const faults = [];
  page.on("pageerror", fault => faults.push(fault.message));
  await page.setViewport({ width: 1280, height: 900 });
  await page.goto(url);
  const until = (what, ...more) => page.waitForFunction(what, { timeout: 30000, polling: 50 }, ...more);
  const shoot = name => page.screenshot({ path: `${pictures}/${name}.png` });

  await until(() => document.querySelector("#broker").textContent === "connected");
  const cameras = "article[data-camera^='cameras/']";
  await until(() => document.querySelector("#summary").textContent.match(/^(\d+) cameras, \1 live$/));
  console.log(await page.$eval("#summary", summary => summary.textContent));

  // Boxes move in each of them.
  await until(() => {
    window.places ??= new Map();
    const all = [...document.querySelectorAll("article")];
    for (const { dataset, children } of all) {
      const places = window.places.get(dataset.camera) ?? new Set();
      for (const box of children[1].querySelectorAll(".moving")) places.add(box.getAttribute("x"));
      window.places.set(dataset.camera, places);
    }
    return all.every(({ dataset }) => window.places.get(dataset.camera).size > 2);
  });

  // An alarm lights: a line or an area, and the tamper badge.
  await until(() => document.querySelector("article.alarmed path.lit"));
  await shoot("wall");
  await until(() => document.querySelector("article.tampered .tamper"));

  // One enlarged lists its events.
  const first = `${cameras}:first-child`;
  await page.click(first);
  await until(() => document.querySelectorAll("article.large li").length > 3);
  await shoot("enlarged");
  await page.click(`${first} h2`);

  // How long a record takes to the page, with the clock of this machine.
  const delays = await page.evaluate(() => new Promise(resolve => {
    const delays = [];
    const watch = new MutationObserver(changes => {
      delays.push(...changes.map(change => Number(change.target.dataset.delay)));
      if (delays.length >= 200) { watch.disconnect(); resolve(delays); }
    });
    watch.observe(document.querySelector("#cameras"), { subtree: true, attributeFilter: ["data-delay"] });
  }));
  delays.sort((a, b) => a - b);
  console.log(`record to page: p50 ${delays[100]} ms, p99 ${delays[197]} ms`);

  // A camera goes grey when its daemon dies, and it alone.
  process.kill(Number(readFileSync(`${folder}/camera2/va.pid`)), "SIGKILL");
  await until(() => document.querySelector("[data-camera='cameras/camera2'].offline .state")
    ?.textContent.startsWith("offline since"));
  const filters = await page.$$eval(`${cameras} svg`, all => all.map(svg => getComputedStyle(svg).filter));
  assert.deepEqual(filters.map(filter => filter !== "none"), filters.map((_, i) => i === 1));
  await shoot("offline");

  // So do all when the broker does.
  process.kill(Number(readFileSync(`${folder}/mosquitto.pid`)), "SIGKILL");
  await until(() => document.querySelector("#broker").textContent === "waiting for the broker");
  assert.equal(await page.$eval(`${first} svg`, svg => getComputedStyle(svg).filter), "grayscale(1)");
  assert.deepEqual(faults, []);
} finally {
  await browser.close();
  rmSync(profile, { recursive: true });
}
