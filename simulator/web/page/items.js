// What became of each item of a run: deviations first, favourites that are well folded into a line.
import {command, h, text} from "./elements.js";
import {place, state} from "./state.js";
import {itemTitle, plural} from "./words.js";

const isFavourite = ({item}) => item.startsWith("favname");
const isThere = ({state: word}) => word === "restored" || word === "stored" || word === "already equal";
const toneOfItem = (item) => item.isWell ? isThere(item) ? "good" : "muted" : "bad";

// How much of an item the TV has, which after its newest run is what came back, or what was stored.
function amount({item}) {
  const {status, newest} = state.shown ?? {};
  if (!status || newest?.run !== state.run.run) return "";
  if (item === "channels") return plural(status.services, "channel");
  if (item === "ci") return Object.keys(status.ciFiles).join(", ");
  if (item === "iss") return plural(Object.keys(status.iss).length, "entry", "entries");
  if (item === "viewing") return status.watching ? `${status.watching.number} ${status.watching.name}` : "";
  return isFavourite({item}) ? status.favourites[item.slice(-1) - 1] : "";
}

// "favourites 1–5": one line if nothing is lost.
function folded(favourites) {
  const count = (word) => favourites.filter((each) => each.state === word).length;
  const words = ["restored", "stored", "already equal", "kept"].filter(count);
  return {item: favourites.length > 1 ? "favourites 1–5" : favourites[0].item, isWell: true, state: words[0],
    detail: words.length > 1 ? words.map((word) => `${count(word)} ${word}`).join(", ")
      : favourites.map(amount).filter(Boolean).join(", ")};
}

export function linesOf(items) {
  const lost = items.filter((item) => !item.isWell);
  const well = items.filter((item) => item.isWell);
  const favourites = well.filter(isFavourite);
  const rest = well.filter((item) => !isFavourite(item));
  const at = rest.findIndex(({item}) => item !== "channels");
  if (favourites.length) rest.splice(at < 0 ? rest.length : at, 0, folded(favourites));
  return [...lost, ...rest];
}

const row = (item) => h("tr", {key: item.item},
  h("th", {scope: "row"}, itemTitle(item.item)), h("td", {class: `state ${toneOfItem(item)}`}, item.state),
  h("td", {}, text(item.detail || amount(item))));

export function Items() {
  const {run} = state;
  const lines = run ? linesOf(run.items) : [];
  const title = run?.operation === "backup" ? "What is in the cloud, read from the store"
    : "What came back, read from the TV";
  return h("section", {id: "items", class: "card", "aria-labelledby": "items-title"},
    h("div", {class: "head"}, h("h2", {id: "items-title"}, title),
      run ? h("span", {class: "muted"}, lines.length ? plural(run.items.length, "item") : "") : null),
    lines.length ? h("div", {class: "scroll grow"}, h("table", {}, h("thead", {class: "unseen"}, h("tr", {},
      ["item", "state", "how much"].map((each) => h("th", {scope: "col", key: each}, each)))),
    h("tbody", {}, lines.map(row))))
      : h("p", {class: "empty grow"}, !run ? "After a run, each item is listed here with what became of it."
        : run.outcome === "open" ? "Nothing can be said before the run has ended."
          : "Nothing was handed over: there is nothing to compare."),
    run ? h("div", {class: "foot"}, command([...place(), "record", String(run.run)])) : null);
}
