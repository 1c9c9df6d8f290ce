// Before and after: how two channel set-ups differ, service by service.
import {find} from "./api.js";
import {attempt, homeOf, state} from "./app.js";
import {byId, command, fill, h, numberOf, partsOf, plural, shown, wantsLessMotion} from "./dom.js";
import {ITEMS} from "./run.js";

const KINDS = [["removed", "−", "bad"], ["added", "+", "good"], ["renamed", "=", "part"], ["changed", "~", "part"],
  ["moved", "›", "part"], ["renumbered", "#", "part"]];
const MOST_SHOWN = 200;
const view = {one: "", other: "", difference: null};

function line(kind, each) {
  const one = each.one ?? each;
  const columns = (each.columns ?? [])
    .filter(({column}) => kind !== "changed" || !["id", "number", "name"].includes(column))
    .map(({column, one: was, other}) => `${column} ${was || "(none)"} → ${other || "(none)"}`).join(", ");
  return [`${one.number} ${one.name}`, kind === "removed" || kind === "added" ? one.identity : columns];
}

function row(tone, mark, name, detail) {
  return h("tr", {}, h("td", {class: tone}, mark), h("th", {scope: "row"}, name),
    h("td", {class: "muted"}, h("bdi", {}, shown(detail))));
}

function summary(services) {
  const counts = KINDS.filter(([kind]) => services[kind].length).map(([kind]) => `${services[kind].length} ${kind}`);
  const both = `${plural(services.ones, "channel")} and ${plural(services.others, "channel")}`;
  return counts.length ? `${both}: ${counts.join(", ")}` : `${both}, all the same`;
}

export function differences(difference) {
  const {services} = difference;
  const rows = KINDS.flatMap(([kind, sign, tone]) => services[kind].map((each) => {
    const [name, detail] = line(kind, each);
    return row(tone, `${sign} ${kind}`, h("bdi", {}, shown(name)), detail);
  }));
  const parts = difference.parts.filter((part) => !part.isSame)
    .map((part) => row("part", "~ differs", ITEMS[part.item], `${part.one} → ${part.other}`));
  if (difference.isSame) {
    return [h("p", {class: "note good"},
      `Nothing differs: ${plural(services.ones, "channel")}, each compared in every column, and all other items.`)];
  }
  return [h("p", {class: "note"}, services.lacking ? shown(services.lacking) : summary(services)),
    h("div", {class: "scroll"}, h("table", {class: "differences"}, h("tbody", {}, parts, rows.slice(0, MOST_SHOWN)))),
    rows.length > MOST_SHOWN ? h("p", {class: "note muted"},
      `and ${plural(rows.length - MOST_SHOWN, "more channel")}; the command shows all`) : null];
}

async function compare() {
  const {one, other} = view;
  const difference = one && other ? await attempt(() => find("diff", {one, other})) : null;
  if (one !== view.one || other !== view.other) return;
  view.difference = difference;
  drawCompare();
}

export function compareWith(other) {
  Object.assign(view, {one: `tv:${state.tv}`, other});
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
  if (!sides.some(([value]) => value === view.one)) view.one = sides[0]?.[0] ?? "";
  if (!sides.some(([value]) => value === view.other)) view.other = sides[1]?.[0] ?? "";
  fill(byId("compare"), h("div", {class: "head"}, h("h2", {id: "compare-title"}, "Before and after")),
    sides.length < 2 ? h("p", {class: "empty"}, "With a second TV or a backup there is something to compare.")
      : h("div", {class: "form"}, select("one", "Compare", sides), select("other", "with", sides),
        h("button", {type: "button", "data-key": "compare-now", onclick: compare}, "Compare")),
    view.difference ? differences(view.difference) : null,
    sides.length < 2 ? null : command("--cloud", state.lab.cloud, "diff", word(view.one), word(view.other)));
}
