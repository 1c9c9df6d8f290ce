// How two channel set-ups differ, service by service.
import {h, itemTitle, plural, shown} from "./dom.js";

const KINDS = [["removed", "−", "bad"], ["added", "+", "good"], ["renamed", "=", "part"], ["changed", "~", "part"],
  ["moved", "›", "part"], ["renumbered", "#", "part"]];
const MAX_SHOWN = 200;

function line(kind, each) {
  const service = each.left ?? each;
  const columns = (each.columns ?? [])
    .filter(({column}) => kind !== "changed" || !["id", "number", "name"].includes(column))
    .map(({column, left, right}) => `${column} ${left || "(none)"} → ${right || "(none)"}`).join(", ");
  return [`${service.number} ${service.name}`, kind === "removed" || kind === "added" ? service.identity : columns];
}

function row(tone, mark, name, detail) {
  return h("tr", {}, h("td", {class: tone}, mark), h("th", {scope: "row"}, name),
    h("td", {class: "muted"}, h("bdi", {}, shown(detail))));
}

function summary({isSame, left, right, detail}) {
  const channels = `Channels: ${left} and ${right}`;
  return isSame ? `${channels}, all the same` : `${channels}${detail ? `: ${detail}` : ""}`;
}

export function differences(difference) {
  const {services} = difference;
  const [channels, ...others] = difference.items;
  const rows = KINDS.flatMap(([kind, sign, tone]) => services[kind].map((each) => {
    const [name, detail] = line(kind, each);
    return row(tone, `${sign} ${kind}`, h("bdi", {}, shown(name)), detail);
  }));
  const items = others.filter((item) => !item.isSame).map((item) => row("part", "~ differs", itemTitle(item.item),
    `${item.left} → ${item.right}${item.detail ? `; ${item.detail}` : ""}`));
  if (difference.isSame) {
    return [h("p", {class: "note good"},
      `Nothing differs: ${channels.left}, each compared in every column, and all other items.`)];
  }
  return [h("p", {class: "note"}, shown(summary(channels))),
    h("div", {class: "scroll"}, h("table", {class: "differences"}, h("tbody", {}, items, rows.slice(0, MAX_SHOWN)))),
    rows.length > MAX_SHOWN ? h("p", {class: "note muted"},
      `and ${plural(rows.length - MAX_SHOWN, "more channel")}; the command shows all`) : null];
}
