// How two channel set-ups differ, service by service.
import {h, name, text} from "./elements.js";
import {itemTitle, plural} from "./words.js";

const KINDS = [["removed", "−", "bad"], ["added", "+", "good"], ["renamed", "~", "part"], ["changed", "~", "part"],
  ["moved", "›", "part"], ["renumbered", "›", "part"], ["customised", "★", "part"]];
const PLACE = /^favourite list \d$/;
const isOwners = (column) => PLACE.test(column) || ["locked", "hidden"].includes(column);
const SHOWN = {customised: isOwners,
  changed: (column) => !isOwners(column) && !["id", "number", "name", "renamed"].includes(column)};

function detailOf(kind, each) {
  if (kind === "removed" || kind === "added") return name(each.identity);
  const columns = each.columns.filter(({column}) => SHOWN[kind]?.(column) ?? true);
  const valueOf = (column, value) => name(!value || PLACE.test(column) && value === "0" ? "(none)" : value);
  return columns.map(({column, left, right}, i) => [i ? ", " : "", `${column} `, valueOf(column, left), " → ",
    valueOf(column, right)]);
}

const row = (key, tone, mark, title, detail) => h("tr", {key}, h("td", {class: tone}, mark),
  h("th", {scope: "row"}, title), h("td", {class: "muted"}, detail));

function serviceRows({services}) {
  return KINDS.flatMap(([kind, glyph, tone]) => services[kind].map((each) => {
    const service = each.left ?? each;
    return row(`${kind} ${service.identity}`, tone, `${glyph} ${kind}`,
      [h("span", {class: "figure"}, service.number), " ", name(service.name)], detailOf(kind, each));
  }));
}

export function Difference({difference}) {
  const [channels, ...others] = difference.items;
  if (difference.isSame) {
    return h("p", {class: "note good"},
      `Nothing differs: ${channels.left}, each compared in every column, and all other items.`);
  }
  const items = others.filter((item) => !item.isSame).map((item) => row(item.item, "part", "~ differs",
    itemTitle(item.item), [name(item.left), " → ", name(item.right), item.detail ? text(`; ${item.detail}`) : ""]));
  const rows = serviceRows(difference);
  const hidden = Object.values(difference.counts).reduce((sum, count) => sum + count, 0) - rows.length;
  return h("div", {},
    h("p", {class: "note"}, text(channels.isSame ? `Channels: ${channels.left}, all the same`
      : `Channels: ${channels.left} and ${channels.right}${channels.detail ? `: ${channels.detail}` : ""}`)),
    h("table", {class: "differences"}, h("tbody", {}, items, rows)),
    hidden > 0 ? h("p", {class: "note muted"}, `and ${plural(hidden, "more channel")}; the command shows all`) : null);
}
