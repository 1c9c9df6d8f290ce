// Reads the lab's state from the server, and launches runs.
import {get, post} from "./api.js";
import {announce, attempt, state} from "./state.js";

// The channels are only fetched if the list may have changed, as there may be 50,000.
export async function refreshTv({channels = true} = {}) {
  const {tv} = state;
  if (!tv) return;
  const [status, rules, list, changes] = await Promise.all([
    get("tvs", tv), get("tvs", tv, "faults"), channels || !state.channels ? get("tvs", tv, "channels") : null,
    channels ? get("tvs", tv, "changes") : {difference: state.changes}]);
  if (tv !== state.tv) return;
  Object.assign(state, {status, rules: rules.rules, changes: changes.difference});
  if (list) state.channels = list.channels;
}

export async function refreshRuns(id) {
  const {tv} = state;
  if (!tv) return;
  const {runs} = await get("tvs", tv, "runs");
  const shownRun = id ?? runs.at(-1)?.run;
  const run = shownRun ? await get("tvs", tv, "runs", shownRun) : null;
  if (tv === state.tv) Object.assign(state, {runs, run, live: null});
}

export async function refreshCloud() {
  state.backups = (await get("cloud")).backups;
}

export async function refreshAll() {
  const [lab, words, {calls}] = await Promise.all([get("lab"), get("words"), get("calls")]);
  Object.assign(state, {lab, words, calls});
  if (!lab.tvs.some((tv) => tv.name === state.tv)) state.tv = lab.tvs[0]?.name ?? "";
  await Promise.all([refreshTv(), refreshRuns(), refreshCloud()]);
}

export async function choose(tv) {
  Object.assign(state, {tv, status: null, channels: null, changes: null, run: null, runs: [], live: null});
  announce("changed");
  await attempt(() => Promise.all([refreshTv(), refreshRuns()]));
  announce("changed");
}

// Launches the application on the TV that is shown.
export async function launch(request) {
  state.busy = request.operation;
  announce("changed");
  const run = await attempt(() => post(["tvs", state.tv, "runs"], request));
  state.busy = "";
  await attempt(() => Promise.all([refreshTv(), refreshRuns(run?.run), refreshCloud()]));
  announce("changed");
  announce("ran");
}

export async function showRun(id) {
  await attempt(() => refreshRuns(id));
  announce("changed");
}
