// What looks at the page: a browser, a broker of its own that serves it, and cameras that no daemon
// is behind. Of the page's own packages.
import assert from "node:assert/strict";
import { execFileSync, spawn } from "node:child_process";
import { mkdtempSync, readFileSync, renameSync, rmSync, writeFileSync } from "node:fs";
import { createRequire } from "node:module";
import { createServer } from "node:net";
import { tmpdir, userInfo } from "node:os";
import { AVAILABLE, LINE, online, SCENE } from "./messages.mjs";

const require = createRequire(new URL("../../page/package.json", import.meta.url));
const { default: puppeteer } = await import(require.resolve("puppeteer-core"));
const mqtt = require("mqtt");
const axe = require.resolve("axe-core");

// Is true within 20 s, or an error that says of what it was not.
export async function until(condition) {
  for (const end = Date.now() + 20000; Date.now() < end;) {
    if (await condition()) return;
    await new Promise(resolve => setTimeout(resolve, 50));
  }
  throw new Error(`not within 20 s: ${condition}`);
}

export async function freePort() {
  const server = createServer();
  await new Promise(resolve => server.listen(0, "127.0.0.1", resolve));
  const { port } = server.address();
  await new Promise(resolve => server.close(resolve));
  return port;
}

// A Mosquitto that serves the page in the folder `www`.
export class Broker {
  constructor(www) {
    this.www = www;
    this.folder = mkdtempSync(`${tmpdir()}/broker-`);
    this.clients = [];
  }

  // Only with the account [name, password], if there is one.
  async start(account) {
    this.port ??= await freePort();
    this.pagePort ??= await freePort();
    this.url = `http://127.0.0.1:${this.pagePort}/`;
    const passwords = `${this.folder}/passwords`;
    if (account) execFileSync("mosquitto_passwd", ["-c", "-b", passwords, ...account]);
    writeFileSync(`${this.folder}/conf`, [
      "per_listener_settings true", `user ${userInfo().username}`, "log_type subscribe",
      "log_type unsubscribe", "max_queued_messages 100000", "set_tcp_nodelay true",
      `listener ${this.port} 127.0.0.1`, "allow_anonymous true",
      `listener ${this.pagePort} 127.0.0.1`, "protocol websockets", `http_dir ${this.www}`,
      `allow_anonymous ${!account}`, account ? `password_file ${passwords}` : "",
    ].join("\n"));
    this.process = spawn("mosquitto", ["-c", `${this.folder}/conf`],
                         { stdio: ["ignore", "ignore", "pipe"] });
    this.log = "";
    this.process.stderr.on("data", text => { this.log += text; });
    this.ended = new Promise(resolve => this.process.on("exit", resolve));
    await until(() => fetch(this.url).then(({ ok }) => ok, () => false));
  }

  async kill() {
    this.process.kill("SIGKILL");
    await this.ended;
  }

  async stop() {
    for (const client of this.clients) client.end(true);
    await this.kill();
    rmSync(this.folder, { recursive: true });
  }

  // The cameras whose frames are subscribed, as the broker says.
  subscribed() {
    const cameras = new Set();
    for (const [, qos, camera] of this.log.matchAll(/^\d+: \S+ (?:([012]) )?(.*)\/onvif-mj\/#$/gm))
      if (qos) cameras.add(camera); else cameras.delete(camera);
    return [...cameras].sort();
  }

  // A client that publishes what cameras would: number 3 is cameras/camera3.
  async camera(options = {}) {
    const client = await mqtt.connectAsync(`mqtt://127.0.0.1:${this.port}`, options);
    this.clients.push(client);
    client.on("error", () => {});
    client.tell = (camera, part, message) => client.publishAsync(
      `${Number.isInteger(camera) ? `cameras/camera${camera}` : camera}/${part}`,
      typeof message === "string" || Buffer.isBuffer(message) ? message : JSON.stringify(message),
      { retain: part !== LINE, qos: 1 });
    client.introduce = async (count, prefix = "cameras/camera") => {
      for (let i = 1; i <= count; ++i)
        for (const [part, message] of [["va/scene", SCENE], [AVAILABLE, online()]])
          await client.tell(`${prefix}${i}`, part, message);
    };
    return client;
  }
}

export const launch = () => puppeteer.launch({
  executablePath: "/usr/bin/chromium",
  args: ["--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
         "--disable-background-networking", "--disable-component-update", "--disable-sync"],
});

export const WIDE = { width: 1366, height: 768 };
export const PHONE = { width: 390, height: 844 };

// A page of a browser that has kept nothing. What waits does so for 20 s.
export class Page {
  static async open(browser, address, pictures) {
    const page = Object.assign(new Page(), { pictures, faults: [] });
    page.context = await browser.createBrowserContext();
    page.tab = await page.context.newPage();
    page.tab.on("pageerror", fault => page.faults.push(fault.stack));
    page.tab.on("console", said => { // that a broker is away is no fault of the page
      if (said.type() === "error" && !said.text().startsWith("WebSocket connection"))
        page.faults.push(said.text());
    });
    await page.tab.setViewport(WIDE);
    await page.tab.goto(address);
    return page;
  }

  async close() {
    await this.context.close();
    assert.deepEqual(this.faults, []);
  }

  until(what, ...more) {
    return this.tab.waitForFunction(what, { timeout: 20000, polling: 50 }, ...more);
  }

  // Of all that match and are visible, one has this text.
  shows(selector, text = "", isShown = true) {
    return this.until((selector, text, isShown) =>
      isShown === [...document.querySelectorAll(selector)].some(element =>
        element.checkVisibility() && element.textContent.includes(text)), selector, text, isShown);
  }

  gone(selector) { return this.shows(selector, "", false); }

  reads(selector, texts) {
    return this.until((selector, texts) => texts === String([...document.querySelectorAll(selector)]
      .map(({ textContent }) => textContent)), selector, String(texts));
  }

  press(key) { return this.tab.keyboard.press(key); }

  // Opens the camera of this name, by the address.
  go(hash) { return this.tab.evaluate(hash => { location.hash = hash; }, hash); }

  // From now on calls() says how often the page has called this function of its `owner`.
  watch(owner, name) {
    return this.tab.evaluate(`{
      const { ${name}: act } = ${owner};
      (window.calls ??= {}).${name} = 0;
      ${owner}.${name} = function (...all) { ++calls.${name}; return act.apply(this, all); };
    }`);
  }

  calls(name) { return this.tab.evaluate(name => window.calls[name], name); }

  // Nothing is wrong, as far as a program sees, for who sees little or nothing. With screenshots.
  async audit(name) {
    for (const [size, viewport] of Object.entries({ phone: PHONE, wide: WIDE })) {
      await this.tab.setViewport(viewport);
      await this.tab.screenshot({ path: `${this.pictures}/${name}-${size}.png` });
      if (!await this.tab.evaluate(() => "axe" in window))
        await this.tab.addScriptTag({ path: axe });
      const { violations } = await this.tab.evaluate(() => axe.run());
      const found = violations.map(({ id, nodes }) => [id, ...nodes.map(({ html }) => html)]);
      assert.deepEqual(found, [], `${name} ${size}`);
    }
  }
}

// A page as va_picture writes it, and the files beside it.
export class Files {
  constructor() {
    this.folder = mkdtempSync(`${tmpdir()}/page-`);
    this.url = `file://${this.folder}/scene.html`;
    const read = name => readFileSync(new URL(`../../page/${name}`, import.meta.url), "utf8");
    this.write("scene.html", read("index.html")
      .replace(/<link rel="stylesheet" href="(.+)">/, (_, name) => `<style>${read(name)}</style>`)
      .replace('<script src="mqtt.js"></script>', "").replace("broker.js", "file.js")
      .replace(/<script src="([^"]+)">/g, (_, name) => `<script>${read(name)}`));
  }

  write(name, content) { // whole, as the page may look at any time
    writeFileSync(`${this.folder}/new`, content);
    renameSync(`${this.folder}/new`, `${this.folder}/${name}`);
  }

  // The messages [topic, payload or {file}, retained]: the first `after` as the whole, the others
  // as news, again and again.
  publish(messages, after, run = 1) {
    const numbered = messages.map(([topic, payload, retained], i) => ({
      n: i + 1, at: Date.now(), topic: `host/${topic}`, retained,
      ...payload.file ? payload : { payload } }));
    const write = (name, messages, after) => this.write(name,
      `takeMessages(${JSON.stringify({ run, written: Date.now(), after, messages })});\n`);
    const writeNews = () => write("scene.new.js", numbered.slice(after), after);
    this.pause();
    write("scene.js", numbered.slice(0, after), 0);
    writeNews();
    this.timer = setInterval(writeNews, 500);
  }

  pause() { clearInterval(this.timer); }

  stop() {
    this.pause();
    rmSync(this.folder, { recursive: true });
  }
}
