// How two channel set-ups differ, service by service.
import {h, itemTitle, plural, shown} from "./dom.js";

const KINDS = [["removed", "−", "bad"], ["added", "+", "good"], ["renamed", "=", "part"], ["changed", "~", "part"],
  ["moved", "›", "part"], ["renumbered", "#", "part"]];
const MOST_SHOWN = 200;

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
    .map((part) => row("part", "~ differs", itemTitle(part.item), `${part.one} → ${part.other}`));
  if (difference.isSame) {
    return [h("p", {class: "note good"},
      `Nothing differs: ${plural(services.ones, "channel")}, each compared in every column, and all other items.`)];
  }
  return [h("p", {class: "note"}, services.lacking ? shown(services.lacking) : summary(services)),
    h("div", {class: "scroll"}, h("table", {class: "differences"}, h("tbody", {}, parts, rows.slice(0, MOST_SHOWN)))),
    rows.length > MOST_SHOWN ? h("p", {class: "note muted"},
      `and ${plural(rows.length - MOST_SHOWN, "more channel")}; the command shows all`) : null];
}
