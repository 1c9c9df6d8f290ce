// Keeps the state as the server tells it, and acts on the TVs.
import {get, post, remove} from "./api.js";
import {attempt, changed, entryOf, state} from "./state.js";

// Refreshes of one kind run one after the other, and one that is wanted twice meanwhile runs once.
const waiting = new Map();
function soon(kind, refresh) {
  const known = waiting.get(kind);
  if (known) {
    known.again = refresh;
    return;
  }
  const job = {again: refresh};
  waiting.set(kind, job);
  (async () => {
    while (job.again) {
      const next = job.again;
      job.again = null;
      await attempt(next);
      changed();
    }
    waiting.delete(kind);
  })();
}

async function readChannels() {
  const {tv} = state;
  const channels = await get(`tvs/${tv}/channels`);
  if (tv === state.tv) state.channels = channels;
}

// The address names the place: the TV, a run if it is not simply the newest, an event.
export function placeOf() {
  if (!state.tv) return "#/";
  const run = state.pinned || (state.event ? state.run?.run : 0);
  return `#/${[state.tv, run, run && state.event].filter(Boolean).join("/")}`;
}

function remember(isNew) {
  if (placeOf() === location.hash) return;
  history[isNew ? "pushState" : "replaceState"](null, "", placeOf());
}

function apply(told) {
  const entry = entryOf(told.tv);
  if (entry) Object.assign(entry, {newest: told.newest, problem: told.problem});
  if (told.tv !== state.tv) return;
  state.shown = told;
  if (!told.problem && told.list !== state.channels?.list) soon("channels", readChannels);
}

const readTv = (tv) => async () => {
  if (entryOf(tv)?.problem) apply(entryOf(tv));
  else apply(await get(`tvs/${tv}`).catch((error) => ({...entryOf(tv), problem: error.message})));
};

// The run with that number; else the newest.
const readRun = (wanted) => async () => {
  const {tv} = state;
  const id = wanted || entryOf(tv)?.newest?.run;
  const run = id ? await get(`tvs/${tv}/runs/${id}`) : null;
  if (tv !== state.tv) return;
  Object.assign(state, {run, newer: 0});
};

export const readRuns = () => soon("runs", async () => {
  const {tv} = state;
  const {runs} = await get(`tvs/${tv}/runs`);
  if (tv === state.tv) state.runs = runs;
});

export const readCloud = () => soon("cloud", async () => {
  try {
    state.backups = (await get("cloud")).backups;
    state.cloudProblem = "";
  } catch (error) {
    state.cloudProblem = error.message;
  }
  dispatchEvent(new Event("lab:cloud"));
});

// Shows a TV; `run` and `event` are 0 for the newest and for none.
export function choose(tv, {run = 0, event = 0, isNew = true} = {}) {
  if (tv !== state.tv) {
    Object.assign(state, {tv, shown: null, channels: null, run: null, runs: null, failure: null, newer: 0});
    soon("tv", readTv(tv));
  }
  Object.assign(state, {pinned: run && run !== entryOf(tv)?.newest?.run ? run : 0, event});
  const wanted = run || entryOf(tv)?.newest?.run;
  if (wanted !== state.run?.run || state.newer) soon("run", readRun(wanted));
  if (state.tab === "history") readRuns();
  remember(isNew);
  changed();
}

// An event of the timeline.
export function chooseEvent(seq) {
  state.event = seq;
  remember(false);
  changed();
}

// Goes where the address says; to the first TV that can be read if it names none.
export function followAddress() {
  const [, tv, run, event] = location.hash.split("/");
  const known = entryOf(tv) ?? entryOf() ?? state.lab.tvs.find((each) => !each.problem) ?? state.lab.tvs[0];
  if (known) choose(known.tv, {run: Number(run) || 0, event: Number(event) || 0, isNew: false});
  else Object.assign(state, {tv: "", shown: null, channels: null, run: null, runs: null});
}

export const on = {
  state(connection) {
    state.connection = connection;
    changed();
  },
  async hello(lab) {
    state.lab = lab;
    state.shown = null;
    const [words, calls] = await Promise.all([state.words ?? get("words"), state.calls.length ? null : get("calls")]);
    Object.assign(state, {words, calls: calls?.calls ?? state.calls});
    if (entryOf()) {
      soon("tv", readTv(state.tv));
      soon("run", readRun(state.pinned));
    }
    followAddress();
    readCloud();
    changed();
  },
  lab(lab) {
    state.lab = lab;
    if (!entryOf()) followAddress();
    changed();
  },
  tv(told) {
    apply(told);
    if (told.tv === state.tv && state.run && (told.newest?.run ?? 0) < state.run.run) {
      state.pinned = 0;  // a reset has undone it
      state.event = 0;
      soon("run", readRun());
    }
    dispatchEvent(new CustomEvent("lab:tv", {detail: told.tv}));
    changed();
  },
  run(told) {
    if (told.tv !== state.tv) return;
    if (state.pinned && state.pinned !== told.run) {
      state.newer = told.run;
    } else if (state.run?.run === told.run) {
      follow(told);
    } else {
      const {run, started, operation} = told;
      state.run = {run, started, operation, outcome: "open", why: "", items: [], remedies: [], timeline: []};
      Object.assign(state, {event: 0, failure: null});
      remember(false);
      follow(told);
    }
    if (!told.isOpen && state.tab === "history") readRuns();
    changed();
  },
  cloud: readCloud,
};

// What was launched from here is answered with the whole run. An event may come with more of a record that is known.
function follow({run, operation, before, moments, isOpen}) {
  if (state.run.outcome !== "open") return;
  state.run.operation = operation;
  if (before > state.run.timeline.length) soon("run", readRun(run));
  const bySeq = new Map([...state.run.timeline, ...moments].map((each) => [each.seq, each]));
  state.run.timeline = [...bySeq.values()].sort((a, b) => a.seq - b.seq);
  if (!isOpen && !state.busy[state.tv]) soon("run", readRun(run));
}

// Launches the application on the TV that is shown. Returns the run, or undefined.
export async function launch(request) {
  const {tv} = state;
  Object.assign(state, {failure: null, pinned: 0, event: 0});
  state.busy[tv] = request.operation;
  changed();
  const run = await attempt(() => post(`tvs/${tv}/runs`, request),
    (problem) => { if (tv === state.tv) state.failure = {operation: request.operation, problem}; });
  delete state.busy[tv];
  if (run && tv === state.tv) {
    Object.assign(state, {run, newer: 0});
    remember(false);
  }
  changed();
  return run;
}

// Each returns whether it was done. The server's events tell the new state.
const done = async (act) => await attempt(act) !== undefined;
export const setValue = (key, value) => done(() => post(`tvs/${state.tv}/set`, {name: key, value: String(value)}));
export const reset = (snapshot) => done(() => post(`tvs/${state.tv}/reset`, {name: snapshot}));
export const snapshot = (named) => done(() => post(`tvs/${state.tv}/snapshots`, {name: named}));
export const addFault = (rule) => done(() => post(`tvs/${state.tv}/faults`, rule));
export const removeFault = (rule) => done(() => remove(`tvs/${state.tv}/faults/${rule}`));
export const clearFaults = () => done(() => remove(`tvs/${state.tv}/faults`));
