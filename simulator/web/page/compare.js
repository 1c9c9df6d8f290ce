// Compares two TVs or backups.
import {find} from "./api.js";
import {differences} from "./difference.js";
import {byId, command, fill, h, numberOf, partsOf, shown, wantsLessMotion} from "./dom.js";
import {attempt, homeOf, state} from "./state.js";

const view = {left: "", right: "", difference: null};

async function compare() {
  const {left, right} = view;
  const difference = left && right ? await attempt(() => find("diff", {left, right})) : null;
  if (left !== view.left || right !== view.right) return;
  view.difference = difference;
  drawCompare();
}

export function compareWith(right) {
  Object.assign(view, {left: `tv:${state.tv}`, right});
  byId("compare").scrollIntoView({behavior: wantsLessMotion() ? "auto" : "smooth"});
  return compare();
}

// As the command line names a side.
const word = (side) => side.startsWith("tv:") ? homeOf(side.slice(3)) : side.slice("backup:".length);

// What can be compared, as the server names it and as it is shown.
function sidesOf({lab, backups}) {
  const newest = [...backups ?? []].reverse().filter((backup) => !backup.damage);
  return [...lab.tvs.map((tv) => [`tv:${tv.name}`, shown(tv.name)]),
    ...newest.map((backup) => [`backup:${partsOf(backup).join("/")}`, `backup ${numberOf(backup.id)}`])];
}

function select(name, text, sides) {
  const onchange = (event) => {
    view[name] = event.target.value;
    view.difference = null;
    drawCompare();
  };
  return h("label", {}, text, h("select", {"data-key": name, onchange},
    sides.map(([value, label]) => h("option", {value, selected: value === view[name]}, label))));
}

export function drawCompare() {
  const sides = sidesOf(state);
  if (!sides.some(([value]) => value === view.left)) view.left = sides[0]?.[0] ?? "";
  if (!sides.some(([value]) => value === view.right)) view.right = sides[1]?.[0] ?? "";
  fill(byId("compare"), h("div", {class: "head"}, h("h2", {id: "compare-title"}, "Before and after")),
    sides.length < 2 ? h("p", {class: "empty"}, "With a second TV or a backup there is something to compare.")
      : h("div", {class: "form"}, select("left", "Compare", sides), select("right", "with", sides),
        h("button", {type: "button", "data-key": "compare-now", onclick: compare}, "Compare")),
    view.difference ? differences(view.difference) : null,
    sides.length < 2 ? null : command("--cloud", state.lab.cloud, "diff", word(view.left), word(view.right)));
}
