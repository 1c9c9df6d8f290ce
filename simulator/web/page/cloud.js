// The backups, and the bundles that are dropped on the page.
import {find, get, post, remove} from "./api.js";
import {differences} from "./difference.js";
import {action, byId, bytes, command, fill, following, h, itemTitle, moment, numberOf, partsOf, plural, shown}
  from "./dom.js";
import {launch} from "./lab.js";
import {announce, attempt, place, state} from "./state.js";

const verified = new Map();  // the result for each backup; null while it is being verified
const MAX_VERIFIED = 12;
const STEP = 20;  // how many more backups a click shows
const view = {limit: 6};

const pathOf = (backup) => partsOf(backup).map(encodeURIComponent).join("/");

async function verify(backup) {
  const key = pathOf(backup);
  if (verified.has(key) || backup.damage) return;
  verified.set(key, null);
  verified.set(key, await get("cloud", ...partsOf(backup)).catch(() => undefined));
  drawCloud();
}

function badge(backup) {
  if (backup.damage) return h("span", {class: "badge bad"}, "damaged");
  const found = verified.get(pathOf(backup));
  if (!found) return h("span", {class: "badge muted"}, "verifying …");
  if (found.isWhole) return h("span", {class: "badge good"}, "verified");
  if (found.problems.length === 0) return h("span", {class: "badge bad"}, "ambiguous");
  const part = found.items.find((each) => each.state === "damaged");
  return h("span", {class: "badge bad"}, `${part?.item ?? "archive"} damaged`);
}

function open(title, ...content) {
  const dialog = byId("dialog");
  fill(dialog, h("div", {class: "head"}, h("h2", {id: "dialog-title"}, title),
    h("button", {type: "button", onclick: () => dialog.close()}, "Close")), ...content);
  if (!dialog.open) dialog.showModal();
}

function wholeness(bundle) {
  const {isWhole, problems, ambiguities, restore} = bundle;
  const tv = shown(state.tv);
  return h("div", {class: "answer " + (isWhole ? "good" : "bad")},
    h("p", {class: "headline"}, isWhole ? "Whole: each byte was read" : problems.length > 0 ? "Damaged" : "Ambiguous"),
    [...problems, ...ambiguities].map((problem) => h("p", {}, h("bdi", {}, shown(problem)))),
    restore ? h("p", {}, `A restore on ${tv}: ${[restore.outcome, shown(restore.why)].filter(Boolean).join(": ")}`)
      : null);
}

function channelCounts({services, byType}) {
  const counts = Object.entries(byType).map(([kind, count]) => `${count} ${kind}`);
  return h("p", {class: "note"}, `${plural(services, "channel")}: ${counts.join(", ")}`);
}

function entryRow(entry) {
  return h("tr", {}, h("th", {scope: "row"}, h("bdi", {}, shown(entry.name))),
    h("td", {class: "figure"}, entry.bytes.toLocaleString("en")), h("td", {}, h("code", {}, entry.crc32)),
    h("td", {class: entry.problem ? "bad" : "muted"}, entry.problem ? shown(entry.problem) : "whole"));
}

function partRow(part) {
  const tone = {damaged: "bad", whole: "good"}[part.state] ?? "muted";
  return h("tr", {}, h("th", {scope: "row"}, itemTitle(part.item)),
    h("td", {}, h("span", {class: tone}, part.state), part.problem ? ` · ${shown(part.problem)}` : ""));
}

function bundleDetails(bundle) {
  const head = ["entry", "bytes", "CRC-32", ""].map((name) => h("th", {scope: "col"}, name));
  return [wholeness(bundle), bundle.channels ? channelCounts(bundle.channels) : null, h("h3", {}, "Entries"),
    h("table", {class: "entries"}, h("thead", {}, h("tr", {}, head)), h("tbody", {}, bundle.entries.map(entryRow))),
    h("h3", {}, "Items"), h("table", {}, h("tbody", {}, bundle.items.map(partRow)))];
}

async function show(backup) {
  const bundle = await attempt(() => find(`cloud/${pathOf(backup)}`, {tv: state.tv}));
  if (!bundle) return;
  open(`Backup ${numberOf(backup.id)}`, ...bundleDetails(bundle), command(...place(), "bundle", "verify", backup.id));
}

async function drop(backup) {
  await attempt(() => remove("cloud", ...partsOf(backup)));
  byId("dialog").close();
}

function confirmRemoval(backup) {
  open(`Remove backup ${numberOf(backup.id)}?`,
    h("p", {class: "note"}, "It goes for good; no later backup gets its number."),
    h("div", {class: "actions"},
      h("button", {class: "danger", type: "button", onclick: () => drop(backup)}, "Remove it"),
      h("button", {type: "button", onclick: () => byId("dialog").close()}, "Keep it")),
    command(...place(), "cloud", "remove", backup.id));
}

function buttons(backup) {
  const button = (text, onclick, ...words) => action(text, {class: "quiet", disabled: Boolean(state.busy), onclick,
    "data-key": `${text.toLowerCase()}-${backup.id}`, "aria-label": `${text} backup ${numberOf(backup.id)}`},
  () => [...place(), ...words]);
  const name = partsOf(backup).join("/");
  const restore = () => launch({operation: "restore", reply: true, scan: state.status.isScanning, backup: name});
  return h("div", {class: "buttons"},
    button("Restore", restore, "run", "operation=restore", "--backup", backup.id),
    button("Show", () => show(backup), "bundle", "verify", backup.id),
    button("Compare", () => announce("compare", `backup:${name}`), "diff", backup.id),
    button("Remove", () => confirmRemoval(backup), "cloud", "remove", backup.id));
}

function card(backup) {
  const {damage, time, set, services, antenna} = backup;
  const channels = services === null ? "?" : plural(services, "channel");
  return h("li", {class: "backup"}, h("strong", {}, String(numberOf(backup.id))),
    h("div", {},
      h("p", {}, damage ? h("span", {class: "bad"}, shown(damage))
        : `${moment(time)} · from ${shown(set || "an unknown set")}`),
      h("p", {class: "muted"}, `${channels} · antenna ${antenna} · ${bytes(backup.bytes)}`),
      damage ? null : buttons(backup)),
    badge(backup));
}

function base64(buffer) {
  let binary = "";
  const bytesOf = new Uint8Array(buffer);
  for (let i = 0; i < bytesOf.length; i += 0x8000) binary += String.fromCharCode(...bytesOf.subarray(i, i + 0x8000));
  return btoa(binary);
}

async function inspect(file) {
  const sent = {name: file.name, tv: state.tv, zip: base64(await file.arrayBuffer())};
  const bundle = await attempt(() => post(["bundles", "inspect"], sent));
  if (!bundle) return;
  const bringIn = async () => {
    const made = await attempt(() => post(["bundles", "import"], sent));
    if (made) byId("dialog").close();
  };
  open(shown(file.name), ...bundleDetails(bundle),
    h("h3", {}, `Against ${shown(state.tv)}`), ...differences(bundle.difference),
    h("div", {class: "actions"},
      h("button", {class: "primary", type: "button", onclick: bringIn}, "Import it into the cloud")),
    command(...place(), "cloud", "import", file.name));
}

function dropZone() {
  const onchange = (event) => { if (event.target.files[0]) inspect(event.target.files[0]); };
  return h("div", {class: "drop"}, h("input", {type: "file", accept: ".zip", class: "unseen", id: "file", onchange}),
    h("label", {for: "file"}, "Drop a bundle here, or choose one: it is looked into first"));
}

for (const event of ["dragover", "drop"]) {
  byId("cloud").addEventListener(event, (it) => {
    it.preventDefault();
    if (event === "drop" && it.dataTransfer.files[0] && state.tv) inspect(it.dataTransfer.files[0]);
  });
}

// A TV can only restore the backups of its own account.
const ofTv = (backups) => backups.filter((backup) => !state.status || backup.account === state.status.account);

export function drawCloud() {
  const title = h("h2", {id: "cloud-title"}, "Cloud");
  if (!state.backups) return fill(byId("cloud"), title, h("p", {class: "empty"}, "Reading the cloud …"));
  const newest = ofTv(state.backups).reverse();
  newest.slice(0, Math.min(view.limit, MAX_VERIFIED)).forEach(verify);
  const account = state.status?.account ?? "default";
  const more = newest.length - view.limit;
  const showMore = () => { view.limit += STEP; drawCloud(); };
  return fill(byId("cloud"), h("div", {class: "head"}, title, h("span", {class: "muted"},
    plural(newest.length, "backup"), account === "default" ? null : ` of account ${shown(account)}`)),
  newest.length ? h("ul", {class: "backups"}, newest.slice(0, view.limit).map(card))
    : h("p", {class: "empty"}, "No backup yet. Back a TV up, or drop a customer's bundle here."),
  more > 0 ? h("button", {class: "quiet more", type: "button", "data-key": "more", onclick: showMore},
    `Show ${Math.min(STEP, more)} more`) : null,
  state.tv ? dropZone() : null, state.tv ? following([...place(), "cloud", "list"]) : null);
}
