// The page's scripts, as a page loads them.
import { readFileSync } from "node:fs";
import vm from "node:vm";

// What the scripts define under these names.
export function load(scripts, names) {
  const context = vm.createContext({});
  for (const script of scripts)
    vm.runInContext(readFileSync(new URL(`../../page/${script}`, import.meta.url), "utf8"), context,
                    { filename: script });
  return vm.runInContext(`({${names.join()}})`, context);
}
