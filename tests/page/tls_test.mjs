// usage: HOME=FOLDER node tls_test.mjs WWW PICTURES
// The page behind nginx as packaging/nginx/ has it: TLS by an authority that the browser trusts,
// HTTP/2, and the broker's WebSocket through it. FOLDER has broker.crt and broker.key, WWW the page.
import assert from "node:assert/strict";
import { spawn } from "node:child_process";
import { readFileSync, writeFileSync } from "node:fs";
import { userInfo } from "node:os";
import { test } from "node:test";
import { Broker, freePort, launch, Page, until } from "./lab.mjs";

const [www, pictures] = process.argv.slice(2);
const folder = process.env.HOME;

// What Debian ships includes ours; places and ports are this test's, and so is the user.
function configure(port, websockets) {
  const adapt = (source, changes) => changes.reduce((text, [old, value]) => {
    assert.ok(text.includes(old), old);
    return text.replaceAll(old, value);
  }, readFileSync(source, "utf8"));
  const packaged = new URL("../../packaging/nginx/va.conf", import.meta.url);
  writeFileSync(`${folder}/va.conf`, adapt(packaged, [
    ["listen [::]:443 ssl http2;", ""], ["listen 443", `listen 127.0.0.1:${port}`],
    ["/etc/mosquitto/va", folder], ["/usr/share/va/wall", www], [":9001", `:${websockets}`]]));
  writeFileSync(`${folder}/nginx.conf`, adapt("/etc/nginx/nginx.conf", [
    ["/etc/nginx/sites-enabled/*", `${folder}/va.conf`], ["/run/nginx.pid", `${folder}/nginx.pid`],
    ["/var/log/nginx", folder], ["user www-data", `user ${userInfo().username}`]]));
}

test("behind nginx: HTTP/2, an account, a camera that is live", async t => {
  const broker = new Broker(www);
  t.after(() => broker.stop());
  await broker.start(["viewer", "secret"]);
  const port = await freePort();
  configure(port, broker.pagePort);
  const nginx = spawn("nginx", ["-c", `${folder}/nginx.conf`, "-g", "daemon off;"],
                      { stdio: ["ignore", "inherit", "inherit"] });
  t.after(() => nginx.kill());
  await until(() => fetch(`http://127.0.0.1:${port}/`).then(() => true, () => false)); // is refused
  await (await broker.camera()).introduce(1);
  const browser = await launch();
  t.after(() => browser.close());
  const page = await Page.open(browser, `https://localhost:${port}/`, pictures);
  await page.shows("#source", "an account is needed");
  assert.equal(await page.tab.evaluate(() =>
    performance.getEntriesByType("navigation")[0].nextHopProtocol), "h2");
  await page.tab.type("[name=username]", "viewer");
  await page.tab.type("[name=password]", "secret");
  await page.press("Enter");
  await page.shows("#summary", "1 camera, 1 live");
  await page.close(); // nothing was against the policy
});
