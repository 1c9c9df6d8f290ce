// Bundles: what is in one, and those that are dropped on the page.
import {get, send} from "./api.js";
import {Difference} from "./difference.js";
import {command, h, name, text} from "./elements.js";
import {attempt, changed, closeDialog, entryOf, openDialog, place, state, toast} from "./state.js";
import {itemTitle, numberOf, pathOf, plural, shown} from "./words.js";

function wholeness({isWhole, problems, ambiguities, restore}) {
  const tv = name(entryOf()?.name ?? "");
  return h("div", {class: `answer ${isWhole ? "good" : "bad"}`},
    h("p", {class: "headline"}, isWhole ? "Whole: each byte was read" : problems.length > 0 ? "Damaged" : "Ambiguous"),
    [...problems, ...ambiguities].map((problem, i) => h("p", {key: i}, text(problem))),
    restore ? h("p", {}, "A restore on ", tv, `: ${restore.outcome}`, restore.why ? [": ", text(restore.why)] : null)
      : null);
}

function channelCounts({services, byType}) {
  const counts = Object.entries(byType).map(([kind, count]) => `${count} ${kind}`);
  return h("p", {class: "note"}, `${plural(services, "channel")}: ${counts.join(", ")}`);
}

// That an entry can be unpacked does not make whole what it holds: that is told of the items.
const entryRow = (entry, i) => h("tr", {key: i}, h("th", {scope: "row"}, name(entry.name)),
  h("td", {class: "figure"}, entry.bytes.toLocaleString("en")), h("td", {}, h("code", {}, entry.crc32)),
  h("td", {class: entry.problem ? "bad" : "muted"}, entry.problem ? text(entry.problem) : "unpacked"));

const partRow = (part) => h("tr", {key: part.item}, h("th", {scope: "row"}, itemTitle(part.item)),
  h("td", {class: {damaged: "bad", whole: "good"}[part.state] ?? "muted"}, part.state),
  h("td", {}, text(part.problem)));

const details = (bundle) => [wholeness(bundle), bundle.channels ? channelCounts(bundle.channels) : null,
  h("h3", {}, "Items"), h("table", {}, h("tbody", {}, bundle.items.map(partRow))),
  h("h3", {}, "Entries"), h("table", {class: "entries"}, h("thead", {}, h("tr", {}, ["entry", "bytes", "CRC-32", ""]
    .map((each) => h("th", {scope: "col", key: each}, each)))), h("tbody", {}, bundle.entries.map(entryRow)))];

export async function showBackup(backup) {
  const view = {};
  openDialog(`Backup ${numberOf(backup.id)}`, () => view.problem ? h("p", {class: "note bad"}, text(view.problem))
    : !view.bundle ? h("p", {class: "note muted"}, "Reading each byte …")
      : h("div", {}, details(view.bundle), command([...place(), "bundle", "verify", backup.id])));
  view.bundle = await attempt(() => get(`cloud/${pathOf(backup)}`, {tv: state.tv}),
    (problem) => { view.problem = problem; });
  changed();
}

// The bundle is the zip among the files; a text beside it is its metadata.
export async function inspect(files) {
  const zip = [...files].find((file) => !file.name.endsWith(".json"));
  const metadata = await [...files].find((file) => file.name.endsWith(".json"))?.text();
  if (!zip || !state.tv || !state.shown?.status) {
    toast(zip ? "There is no TV here to look at it with" : "Drop the bundle with its metadata");
    return;
  }
  const work = new AbortController();
  const view = {problem: "", bundle: null};
  const query = {name: zip.name, tv: state.tv, ...metadata ? {metadata} : {}};
  const fail = (problem) => { view.problem = problem; changed(); };
  const bringIn = async () => {
    const made = await attempt(() => send("bundles/import", query, zip, work.signal), fail);
    if (made) closeDialog();
  };
  openDialog(shown(zip.name), () => h("div", {class: "inspected"},
    view.problem ? h("p", {class: "note bad", role: "alert"}, text(view.problem)) : null,
    view.bundle ? [details(view.bundle), h("h3", {}, "Against ", name(entryOf().name)),
      h(Difference, {difference: view.bundle.difference}),
      h("div", {class: "actions"}, h("button", {class: "primary", type: "button", "data-key": "import",
        onclick: bringIn}, "Import it into the cloud")), command([...place(), "cloud", "import", zip.name])]
      : view.problem ? null : h("p", {class: "note muted", role: "status"}, "Looking into it … ",
        h("button", {type: "button", class: "quiet", "data-key": "cancel", onclick: closeDialog}, "Cancel"))));
  state.dialog.end = () => work.abort();
  view.bundle = await attempt(() => send("bundles/inspect", query, zip, work.signal), fail);
  changed();
}

// A drop anywhere is taken, so that none leaves the page.
for (const event of ["dragover", "drop"]) {
  addEventListener(event, (it) => {
    if (!it.dataTransfer?.types.includes("Files")) return;
    it.preventDefault();
    if (event === "drop") inspect(it.dataTransfer.files);
  });
}
