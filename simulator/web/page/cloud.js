// The backups that the TV can restore.
import {download, get, remove} from "./api.js";
import {inspect, showBackup} from "./bundle.js";
import {compareWith} from "./compare.js";
import {Component, Fragment, action, command, h, name, saveAs, text} from "./elements.js";
import {launch, readCloud} from "./lab.js";
import {attempt, changed, closeDialog, isBusy, openDialog, place, state} from "./state.js";
import {bytes, itemTitle, moment, numberOf, pathOf} from "./words.js";

const MAX_AT_ONCE = 2;
const view = {open: ""};

// What is known of each backup that has been looked at: {key, bundle} or {key, problem}. The key tells for what it was.
const looked = new Map();
const queue = [];
let working = 0;
let change = 0;  // counts changes of the cloud, of which a folder does not say what they are

// Another TV, or other antenna inputs, may take it or not.
const keyOf = (backup) => [state.tv, JSON.stringify(state.shown?.status?.antenna), backup.etag || change].join(" ");

async function work() {
  while (queue.length && working < MAX_AT_ONCE) {
    const backup = queue.shift();
    const [path, key] = [pathOf(backup), keyOf(backup)];
    if (looked.get(path)?.key === key) continue;
    working++;
    try {
      looked.set(path, {key, bundle: await get(`cloud/${path}`, {tv: state.tv})});
    } catch (error) {
      looked.set(path, {key, problem: error.message});
    }
    working--;
    changed();
  }
}

// A backup is looked into as soon as its row is seen, or nearly so, and again after each change while it is.
const visible = new Map();
const watcher = new IntersectionObserver((entries) => {
  for (const {target, isIntersecting} of entries) {
    if (isIntersecting) visible.set(target, target.backup);
    else visible.delete(target);
  }
  lookAgain();
}, {rootMargin: "400px"});

function lookAgain() {
  queue.length = 0;
  if (state.shown?.status) queue.push(...[...visible.values()].filter((backup) => backup && !backup.damage));
  work();
}
addEventListener("lab:cloud", () => { change++; lookAgain(); });

function badgeOf(backup) {
  if (backup.damage) return ["bad", "damaged", backup.damage];
  const found = looked.get(pathOf(backup));
  if (!found) return ["muted", "not looked at yet", ""];
  if (found.problem) return ["bad", "cannot be read", found.problem];
  const {isWhole, problems, ambiguities, items, restore} = found.bundle;
  if (!isWhole && problems.length === 0) return ["bad", "ambiguous", ambiguities.join("\n")];
  if (!isWhole) {
    const part = items.find((each) => each.state === "damaged");
    return ["bad", `${part ? itemTitle(part.item) : "archive"} damaged`, problems.join("\n")];
  }
  if (restore && restore.outcome !== "done") {
    const isAntenna = restore.cause === "antenna";
    return [isAntenna || restore.isPossible ? "part" : "bad",
      isAntenna ? "antenna differs" : `would be ${restore.outcome}`, restore.why];
  }
  return ["good", "verified", ""];
}

async function fetchBundle(backup) {
  const blob = await attempt(() => download(`bundles/${pathOf(backup)}`));
  if (blob) saveAs(blob, backup.name || `${backup.id}.zip`);
}

function confirmRemoval(backup) {
  const drop = async () => { if (await attempt(() => remove(`cloud/${pathOf(backup)}`))) closeDialog(); };
  openDialog(`Remove backup ${numberOf(backup.id)}?`, () => h("div", {},
    h("p", {class: "note"}, "It goes for good; no later backup gets its number."),
    h("div", {class: "actions"},
      h("button", {class: "danger", type: "button", "data-key": "remove-it", onclick: drop}, "Remove it"),
      h("button", {type: "button", onclick: closeDialog}, "Keep it")),
    command([...place(), "cloud", "remove", backup.id])));
}

const restore = (backup) => launch({operation: "restore", reply: true, scan: state.shown.status.isScanning,
  backup: pathOf(backup)});

// Each action with its own command line.
function actions(backup) {
  const key = (word) => ({"data-key": `${word}-${backup.id}`, "aria-label": `${word} backup ${numberOf(backup.id)}`});
  return h("tr", {class: "more", key: `more ${pathOf(backup)}`}, h("td", {colspan: 8},
    action("Restore", {...key("restore-this"), disabled: isBusy(), onclick: () => restore(backup)},
      [...place(), "run", "operation=restore", "--backup", backup.id]),
    action("Show", {...key("show"), onclick: () => showBackup(backup)}, [...place(), "bundle", "verify", backup.id]),
    action("Compare", {...key("compare"), onclick: () => compareWith(`backup:${pathOf(backup)}`)},
      [...place(), "diff", backup.id]),
    action("Download", {...key("download"), onclick: () => fetchBundle(backup)}),
    action("Remove", {...key("remove"), onclick: () => confirmRemoval(backup)},
      [...place(), "cloud", "remove", backup.id])));
}

class Row extends Component {
  componentDidMount() { this.watch(); }
  componentDidUpdate() { this.watch(); }
  componentWillUnmount() { watcher.unobserve(this.row); visible.delete(this.row); }
  watch() {
    const {backup} = this.props;
    this.row.backup = backup;
    if (visible.has(this.row)) {
      visible.set(this.row, backup);
      if (!backup.damage && looked.get(pathOf(backup))?.key !== keyOf(backup)) lookAgain();
    } else {
      watcher.observe(this.row);
    }
  }
  render({backup}) {
    const [tone, words, why] = badgeOf(backup);
    const path = pathOf(backup);
    const number = numberOf(backup.id);
    const isOpen = view.open === path;
    return h(Fragment, {}, h("tr", {ref: (row) => { if (row) this.row = row; }, class: isOpen ? "open" : ""},
      h("td", {class: "figure"}, number), h("td", {}, backup.time ? moment(backup.time) : "–"),
      h("td", {}, backup.set ? name(backup.set) : h("span", {class: "muted"}, "unknown")),
      h("td", {class: "figure"}, backup.services === null ? "–" : backup.services.toLocaleString("en")),
      h("td", {class: "figure"}, bytes(backup.bytes)),
      h("td", {}, h("span", {class: `badge ${tone}`, title: why}, words)),
      h("td", {class: "muted why"}, text(why)),
      h("td", {class: "end"},
        h("button", {type: "button", class: "quiet strong", disabled: isBusy() || !state.shown?.status,
          "data-key": `restore-${backup.id}`, "aria-label": `Restore backup ${number}`, onclick: () => restore(backup)},
        "Restore"), " ",
        h("button", {type: "button", class: "quiet icon", "aria-expanded": String(isOpen),
          "data-key": `more-${backup.id}`, "aria-label": `More for backup ${number}`,
          onclick: () => { view.open = isOpen ? "" : path; changed(); }}, "⋯"))),
    isOpen ? actions(backup) : null);
  }
}

// A TV can only restore the backups of its own account.
export const ofTv = () => (state.backups ?? []).filter((backup) => backup.account === state.shown?.status?.account);

const HEAD = ["No.", "made", "by", "channels", "size", "state", "", ""];

export function Cloud() {
  if (state.cloudProblem) {
    return h("p", {class: "note bad"}, text(state.cloudProblem), " ", h("button", {type: "button", class: "quiet",
      onclick: readCloud}, "Try again"));
  }
  if (state.shown?.problem) return h("p", {class: "empty"}, "Which backups are this TV's is in what cannot be read.");
  if (!state.backups) return h("p", {class: "empty"}, "Reading the cloud …");
  const newest = ofTv().reverse();
  return h("div", {},
    newest.length ? h("table", {class: "cloud"}, h("thead", {}, h("tr", {}, HEAD.map((each, i) =>
      h("th", {scope: "col", key: i, class: each === "channels" || each === "size" ? "figure" : ""}, each)))),
    h("tbody", {}, newest.map((backup) => h(Row, {key: pathOf(backup), backup}))))
      : h("p", {class: "empty"}, "No backup yet. Back a TV up, or drop a customer's bundle anywhere on this page."),
    h("div", {class: "drop"},
      h("input", {type: "file", accept: ".zip,.json", multiple: true, class: "unseen", id: "file",
        onchange: (event) => { inspect(event.target.files); event.target.value = ""; }}),
      h("label", {for: "file"}, "Drop a bundle anywhere on this page, with its metadata if you have them, or choose ",
        "it here: it is looked into first")));
}
