// What came of the run, why, when, and what helps.
import {h, text} from "./elements.js";
import {launch, removeFault, setValue} from "./lab.js";
import {entryOf, isBusy, openTab, state} from "./state.js";
import {itemTitle, numberOf, seconds, toneOf} from "./words.js";

const lost = (run) => run.items.filter((item) => !item.isWell).map((item) => itemTitle(item.item)).join(", ");
const HEADLINES = {
  done: (run) => run.operation === "backup" ? "Everything is in the cloud" : "Everything is back",
  "done in part": (run) => lost(run) === "" ? "Not all of it can be found"
    : `The ${lost(run)} ${run.operation === "backup" ? "are not in the backup as they are here" : "did not come back"}`,
  refused: () => "The backup does not fit this TV",
  failed: (run) => `No ${run.operation || "run"}`,
  crashed: () => "The application ended before its work was done",
  unchecked: () => "The run has ended, but the TV or the store cannot be looked at",
};

// How the restored list is received, if that is not as the TV's last scan found it.
function receptionOf({reception}) {
  if (!reception) return "";
  const {gone, moved, missing} = reception;
  const said = [[gone, "off the air"], [moved, "moved"], [missing, "new dropped"]]
    .filter(([count]) => count > 0).map(([count, what]) => `${count} ${what}`);
  return said.length ? ` Channels: ${said.join(", ")}.` : "";
}

// "at 2.500 s, call 71 of 106".
export function whenOf(timeline, event) {
  const kind = event.call ? "call" : "log";
  const alike = timeline.filter((each) => each[kind]);
  const name = kind === "call" ? "call" : "log record";
  const number = alike.findIndex((each) => each.seq === event.seq) + 1;
  return `at ${seconds(event.atMs)}, ${name} ${number} of ${alike.length}`;
}

const again = (run) => launch({operation: run.operation, reply: run.replyRequested, scan: state.shown.status.isScanning,
  backup: run.operation === "restore" && run.backup || ""});

const REMEDIES = {
  disarm: ({rules}) => [`Disarm rule${rules.length > 1 ? "s" : ""} ${rules.join(", ")}`, async () => {
    for (const rule of rules) if (!await removeFault(rule)) return false;
    return true;
  }],
  set: ({name, value}) => [`Set ${name} ${value}`, () => setValue(name, value)],
  "back up": () => ["Back up", () => launch({operation: "backup", reply: true})],
};

function remedyButton(remedy, run) {
  const [words, act] = REMEDIES[remedy.kind](remedy);
  const onclick = async () => { if (await act()) await again(run); };
  return h("button", {type: "button", key: remedy.kind, "data-key": "remedy", disabled: isBusy(), onclick},
    `${words} and ${run.operation} again`);
}

function band(tone, word, headline, why, ...side) {
  return h("section", {id: "verdict", class: `verdict ${tone}`, "aria-label": "What came of the run"},
    h("p", {class: "outcome"}, word),
    h("div", {class: "said", role: "status"}, h("h2", {}, headline), h("p", {class: "why", title: why}, text(why))),
    h("div", {class: "side"}, ...side));
}

// What an open run waits for, as far as its calls tell.
function awaited(timeline) {
  const calls = timeline.filter((each) => each.call);
  const last = calls.at(-1);
  if (!last) return "The application is starting.";
  const asked = /^bnr_(backup|restore)$/.test(last.call.name) ? "the cloud service's response to" : "what comes after";
  return `Since ${seconds(last.atMs)} it waits for ${asked} ${last.call.name}.`;
}

function offers() {
  if (!state.newer) return null;
  return h("a", {class: "button", href: `#/${state.tv}`, "data-key": "newer"}, `Run ${state.newer} is newer: show it`);
}

export function Verdict() {
  const {run, failure} = state;
  const busy = state.busy[state.tv];
  if (!state.tv) return null;
  if (state.shown?.problem) {
    return band("bad", "BROKEN", "This TV cannot be read", state.shown.problem);
  }
  if (failure) {
    return band("bad", "NOT STARTED", `The ${failure.operation} did not begin`, failure.problem);
  }
  if (busy && run?.outcome !== "open") {
    return band("calm", "UNDER WAY", `A ${busy} begins`, "The application is starting.");
  }
  if (!run) {
    return band("calm", "NO RUN", entryOf()?.newest ? "Reading the run …" : "Nothing has been run on this TV yet",
      entryOf()?.newest ? "" : "Back it up, or restore it: what came of each item is told here.");
  }
  if (run.outcome === "open") {
    const headline = `Run ${run.run} · ${run.operation || "starting"}`;
    return band("calm", "UNDER WAY", headline, awaited(run.timeline), offers());
  }
  const decisive = run.timeline.find((event) => event.isDecisive);
  const which = run.backup && run.operation === "restore" ? `from backup ${numberOf(run.backup)}, ` : "";
  const when = decisive ? h("button", {type: "button", class: "link", "data-key": "decided",
    onclick: () => dispatchEvent(new Event("lab:decided"))}, which + whenOf(run.timeline, decisive))
    : h("p", {class: "muted"}, `Run ${run.run}`);
  return band(toneOf(run.outcome), run.outcome.toUpperCase(), HEADLINES[run.outcome](run),
    (run.why || "Each item was read back from the TV and the store.") + receptionOf(run), when,
    h("div", {class: "buttons"}, offers(),
      run.remedies.length ? run.remedies.map((remedy) => remedyButton(remedy, run))
        : ["done", "open"].includes(run.outcome) ? null
          : h("button", {type: "button", class: "quiet", onclick: () => openTab("log")}, "Read the log")));
}
