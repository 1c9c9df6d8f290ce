// Compares two TVs or backups, and again if one of them has changed.
import {get} from "./api.js";
import {Difference} from "./difference.js";
import {command, h, select} from "./elements.js";
import {attempt, changed, entryOf, openTab, state} from "./state.js";
import {numberOf, pathOf, shown} from "./words.js";

const view = {left: "", right: "", difference: null, isWaiting: false};

async function compare() {
  const {left, right} = view;
  view.isWaiting = true;
  changed();
  const difference = left && right ? await attempt(() => get("diff", {left, right})) : null;
  if (left !== view.left || right !== view.right) return;
  Object.assign(view, {difference, isWaiting: false});
  changed();
}

export function compareWith(right) {
  Object.assign(view, {left: `tv:${state.tv}`, right, difference: null});
  openTab("compare");
  return compare();
}

let soon;
addEventListener("lab:tv", ({detail}) => {
  if (!view.difference || ![view.left, view.right].includes(`tv:${detail}`)) return;
  clearTimeout(soon);
  soon = setTimeout(compare, 300);
});

// As the command line names a side.
const word = (side) => side.startsWith("tv:") ? entryOf(side.slice(3))?.home ?? "" : side.slice("backup:".length);

// What can be compared, as the server names it and as it is shown.
const sidesOf = ({lab, backups}) => [
  ...lab.tvs.filter((tv) => !tv.problem).map((tv) => [`tv:${tv.tv}`, shown(tv.name)]),
  ...[...backups ?? []].reverse().map((backup) => [`backup:${pathOf(backup)}`, `backup ${numberOf(backup.id)}`])];

export function Compare() {
  const sides = sidesOf(state);
  if (sides.length < 2) return h("p", {class: "empty"}, "With a second TV or a backup there is something to compare.");
  for (const [i, side] of ["left", "right"].entries()) {
    if (!sides.some(([value]) => value === view[side])) Object.assign(view, {[side]: sides[i][0], difference: null});
  }
  const choose = (side) => (value) => { Object.assign(view, {[side]: value, difference: null}); changed(); };
  return h("div", {},
    h("div", {class: "form"}, select("Compare", "left", sides, view.left, choose("left")),
      select("with", "right", sides, view.right, choose("right")),
      h("button", {type: "button", "data-key": "compare-now", disabled: view.isWaiting, onclick: compare}, "Compare"),
      command(["--cloud", state.lab.cloud, "diff", word(view.left), word(view.right)])),
    view.isWaiting && !view.difference ? h("p", {class: "note muted"}, "Comparing …") : null,
    view.difference ? h(Difference, {difference: view.difference}) : null);
}
