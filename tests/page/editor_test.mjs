// node --test: what edited lines and areas come to in the settings, and how far they move.
import assert from "node:assert/strict";
import { test } from "node:test";
import { load } from "./load.mjs";
import * as messages from "./messages.mjs";

const { EditedShape, settingsOf } = load(["editor.js"], ["EditedShape", "settingsOf"]);
const line = (more, ...points) => ({
  ...messages.line("both", ...points.length ? points : [[5000, 0], [5000, 9999]]), ...more });
const area = (sides, more) => ({ ...messages.area(...sides), Number: 1, Type: -1, ...more });
const square = area([1000, 2000, 3000, 4000]);

test("settings", () => {
  const other = { Kind: "non-detection", Number: 0, Points: [[0, 0], [1, 1]] };
  for (const [what, before, after, expected, directions = messages.SCENE.Directions] of [
    ["same", [line(), square, other], [square, line({ Direction: 0 })], ""],
    ["end moved", [line()], [line({}, [5000, 0], [5001, 9999])], "C0.EndX=5001"],
    ["direction", [line()], [line({ Crossing: "to left" })], "C0.Direction=2"],
    ["direction's code", [line()], [line({ Direction: 7 })], "C0.Direction=7", {}],
    ["no code", [], [line({ Direction: "0\nx=1" })],
     "C0.StartX=5000 C0.StartY=0 C0.EndX=5000 C0.EndY=9999 C0.Direction=-1", {}],
    // The one that stays may be the other one in the settings.
    ["edge moved", [square], [area([900, 2000, 3000, 4000])], "O1.Left=900 O1.Right=3000"],
    ["edges swapped", [square], [area([3000, 4000, 1000, 2000])], ""],
    ["type", [square], [{ ...square, Type: 2 }], "O1.Type=2"],
    ["same type", [square], [{ ...square, Type: 0 }], ""],
    ["new, clamped, sorted", [line()], [area([12000, 9000, -5, 10000], { Number: 2 }), line()],
     "O2.Left=0 O2.Right=9999 O2.Top=9000 O2.Bottom=9999 O2.Type=0"],
    ["removed", [line(), square], [square], "C0.StartX=-1 C0.StartY=-1 C0.EndX=-1 C0.EndY=-1"],
    ["no such number", [], [line({ Number: 3 }), line({ Number: "0" })], ""],
  ]) {
    assert.equal(settingsOf(before, after, directions).join(" "),
      expected.replaceAll("C0", "CrossLine.C0").replaceAll(/O\d/g, "ObjectDetection.$&"), what);
  }
});

test("moves end at the frame and before the opposite edge", () => {
  for (const [shape, part, across, down, expected] of [
    [line(), "end", 20.4, -99999, "5000,0 5020,0"],
    [line({}, [100, 300], [500, 200]), "whole", -500, 50, "0,350 400,250"],
    [square, "top left", 99999, -500, "2900,1500 2900,4000 3000,4000 3000,1500"],
    [square, "whole", 99999, 99999, "7999,7999 7999,9999 9999,9999 9999,7999"],
    [area([5, 5, 6, 6]), "bottom right", -50, 9, "5,5 5,15 6,15 6,5"],
  ]) {
    const [edited] = EditedShape.allOf([shape]);
    edited.move(part, across, down);
    assert.equal(edited.Points.join(" "), expected, part);
  }
});
