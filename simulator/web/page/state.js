// What the page knows of the lab, shared by its cards. Nothing here knows a card: each change is told by an event.
import {Refused} from "./api.js";

export const state = {
  connection: "connecting", lab: null, words: null, calls: [],
  tv: "",            // key of the TV that is shown
  shown: null,       // its state as the server tells it; one with a problem has no more than its entry
  channels: null,    // {list, run, words, channels}: rows of id, number, name, kind, group, provider, mark, was
  run: null,         // with its timeline; of an open run, as far as its events have come
  pinned: 0,         // number of an older run that is studied: a newer one does not replace it
  newer: 0,          // number of a run that has begun meanwhile
  event: 0,          // sequence number of the event that was chosen in the timeline
  runs: null, backups: null, cloudProblem: "",
  busy: {},          // what was launched from here, by TV
  failure: null,     // {operation, problem}: a launch that did not become a run
  toast: "", dialog: null, tab: sessionStorage.getItem("tab") ?? "cloud",
};

let isTold = false;
// Draws once for all changes of a moment.
export function changed() {
  if (isTold) return;
  isTold = true;
  queueMicrotask(() => { isTold = false; dispatchEvent(new Event("lab:changed")); });
}

export const entryOf = (tv = state.tv) => state.lab?.tvs.find((each) => each.tv === tv);
// The options that name a TV and the cloud on a command line.
export const place = (tv = state.tv) => ["--home", entryOf(tv)?.home ?? "", "--cloud", state.lab?.cloud ?? ""];

// Whether a run is under way on the TV, wherever it was launched.
export const isBusy = (tv = state.tv) => Boolean(state.busy[tv] || entryOf(tv)?.newest?.isOpen);

let hiding;
export function toast(message) {
  state.toast = message;
  changed();
  clearTimeout(hiding);
  hiding = setTimeout(() => { state.toast = ""; changed(); }, 8000);
}

// Does something that the server may refuse, and shows its refusal. Returns undefined if it fails.
export async function attempt(act, fail = toast) {
  try {
    return await act();
  } catch (error) {
    if (error instanceof Refused) {
      fail(error.message);
    } else if (error.name !== "AbortError" && state.connection === "connected") {
      fail("The server did not answer");
      console.error(error);
    }
    return undefined;
  }
}

export function openTab(tab) {
  state.tab = tab;
  sessionStorage.setItem("tab", tab);
  changed();
}

export function openDialog(title, draw) {
  state.dialog = {title, draw};
  changed();
}

export function closeDialog() {
  state.dialog = null;
  changed();
}
