// The page as a whole: which TV is shown, what is known of it, and when it is drawn anew.
import {get, listen, post, Refused} from "./api.js";
import {byId, fill, h, plural, shown, toast} from "./dom.js";
import {drawCloud} from "./cloud.js";
import {drawCompare} from "./compare.js";
import {drawFaults} from "./faults.js";
import {drawRun} from "./run.js";
import {drawTimeline} from "./timeline.js";
import {drawTv} from "./tv.js";

// What is shown. `run` is the run on the card: of the server, or live as it is told.
export const state = {
  lab: {tvs: [], cloud: ""}, tv: "", status: null, channels: null, changes: null, run: null, runs: [], backups: null,
  calls: [], rules: [], live: null, busy: "", connection: "connecting", marks: true,
};

export const homeOf = (tv = state.tv) => state.lab.tvs.find((each) => each.name === tv)?.home ?? "";
// The options that make a command line mean this TV and this cloud.
export const place = () => ["--home", homeOf(), "--cloud", state.lab.cloud];

// Does something that the server may refuse, and says so.
export async function attempt(action) {
  try {
    return await action();
  } catch (error) {
    if (error instanceof Refused) toast(error.message);
    else if (state.connection === "connected") { toast("The server did not answer"); console.error(error); }
    return undefined;
  }
}

const WORDS = {
  connecting: "connecting", connected: "connected", lost: "the server has gone; start it again, this page will find it",
  refused: "the token is another; open the address that halcyon-tv serve has printed",
};

function drawHeader() {
  fill(byId("tvs"), state.lab.tvs.map((tv) => h("button", {
    type: "button", "data-key": "tv-" + tv.name, "aria-current": tv.name === state.tv ? "true" : undefined,
    onclick: () => choose(tv.name),
  }, shown(tv.name))));
  byId("cloud-summary").textContent = state.backups ? `cloud: ${plural(state.backups.length, "backup")}` : "";
  byId("connection").className = state.connection;
  byId("connection").textContent = WORDS[state.connection];
}

export function draw() {
  drawHeader();
  drawTv();
  drawRun();
  drawCloud();
  drawTimeline();
  drawCompare();
  drawFaults();
}

// Channels are fetched when the list has changed, not with every change of the TV.
export async function refreshTv({channels = true} = {}) {
  const tv = state.tv;
  if (!tv) return;
  const [status, rules, list, changes] = await Promise.all([
    get("tvs", tv), get("tvs", tv, "faults"), channels || !state.channels ? get("tvs", tv, "channels") : null,
    channels ? get("tvs", tv, "changes") : {difference: state.changes}]);
  if (tv !== state.tv) return;
  Object.assign(state, {status, rules: rules.rules, changes: changes.difference});
  if (list) state.channels = list.channels;
}

export async function refreshRuns(id) {
  const tv = state.tv;
  if (!tv) return;
  const {runs} = await get("tvs", tv, "runs");
  const shownRun = id ?? runs.at(-1)?.run;
  const run = shownRun ? await get("tvs", tv, "runs", shownRun) : null;
  if (tv === state.tv) Object.assign(state, {runs, run, live: null});
}

async function refreshCloud() {
  state.backups = (await get("cloud")).backups;
}

async function choose(tv) {
  Object.assign(state, {tv, status: null, channels: null, changes: null, run: null, runs: [], live: null});
  draw();
  await attempt(async () => {
    await Promise.all([refreshTv(), refreshRuns()]);
    draw();
  });
}

// Launches the application on the TV that is shown.
export async function launch(request) {
  state.busy = request.operation;
  draw();
  const run = await attempt(() => post(["tvs", state.tv, "runs"], request));
  state.busy = "";
  await attempt(async () => {
    await Promise.all([refreshTv(), refreshRuns(run?.run), refreshCloud()]);
  });
  draw();
  byId("run").focus({preventScroll: true});
}

export async function showRun(id) {
  await attempt(() => refreshRuns(id));
  draw();
}

let pending = Promise.resolve();
// One refresh after the other, so that an older answer never replaces a newer one.
const soon = (refresh) => { pending = pending.then(() => attempt(async () => { await refresh(); draw(); })); };

async function loadAll() {
  const [lab, calls] = await Promise.all([get("lab"), get("calls")]);
  Object.assign(state, {lab, calls: calls.calls});
  if (!lab.tvs.some((tv) => tv.name === state.tv)) state.tv = lab.tvs[0]?.name ?? "";
  await Promise.all([refreshTv(), refreshRuns(), refreshCloud()]);
}

addEventListener("resize", drawTimeline);
draw();
listen({
  state(connection) {
    const isNew = connection === "connected" && state.connection !== "connected";
    state.connection = connection;
    drawHeader();
    if (isNew) soon(loadAll);
  },
  tv({tv}) { if (tv === state.tv && !state.busy) soon(refreshTv); },
  cloud() { soon(refreshCloud); },
  run(told) {
    if (told.tv !== state.tv) return;
    if (state.live?.run !== told.run) state.live = {run: told.run, operation: "", timeline: []};
    state.live.operation = told.operation;
    state.live.timeline.push(...told.moments);
    if (told.isOpen) {
      drawRun();
      drawTimeline();
    } else if (!state.busy) {
      soon(() => Promise.all([refreshRuns(told.run), refreshTv()]));
    }
  },
});
