// usage: node screenshot.mjs URL FILE.png WIDTH HEIGHT SELECTOR...
// Writes what headless Chromium shows at URL, once the page has an element for each SELECTOR.
import { mkdtempSync, rmSync } from "node:fs";
import { createRequire } from "node:module";
import { tmpdir } from "node:os";

const [url, file, width, height, ...selectors] = process.argv.slice(2);
const require = createRequire(new URL("../page/package.json", import.meta.url));
const { default: puppeteer } = await import(require.resolve("puppeteer-core"));

const profile = mkdtempSync(`${tmpdir()}/screenshot-`);
const browser = await puppeteer.launch({
  executablePath: "/usr/bin/chromium",
  userDataDir: profile,
  args: ["--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
         "--disable-background-networking", "--disable-component-update", "--disable-sync"],
});
try {
  const page = await browser.newPage();
  await page.setViewport({ width: Number(width), height: Number(height) });
  await page.goto(url);
  // At one time, not each at some time.
  await page.waitForFunction(all => all.every(one => document.querySelector(one)),
    { timeout: 60000, polling: 50 }, selectors);
  await page.screenshot({ path: file });
} finally {
  await browser.close();
  rmSync(profile, { recursive: true });
}
