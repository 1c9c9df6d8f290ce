// The page as a whole: draws the cards, and draws them again if something has changed.
import {listen} from "./api.js";
import {drawCloud} from "./cloud.js";
import {compareWith, drawCompare} from "./compare.js";
import {byId, fill, h, plural, shown} from "./dom.js";
import {drawFaults} from "./faults.js";
import {choose, refreshAll, refreshCloud, refreshRuns, refreshTv} from "./lab.js";
import {drawRun} from "./run.js";
import {attempt, state} from "./state.js";
import {drawTimeline} from "./timeline.js";
import {drawTv} from "./tv.js";

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

function draw() {
  drawHeader();
  drawTv();
  drawRun();
  drawCloud();
  drawTimeline();
  drawCompare();
  drawFaults();
}

let pending = Promise.resolve();
// Refreshes run one after the other, so that an older answer never replaces a newer one.
const soon = (refresh) => { pending = pending.then(() => attempt(async () => { await refresh(); draw(); })); };

addEventListener("lab:changed", draw);
addEventListener("lab:ran", () => byId("run").focus({preventScroll: true}));
addEventListener("lab:compare", (event) => compareWith(event.detail));
addEventListener("resize", drawTimeline);
draw();
listen({
  state(connection) {
    const isNew = connection === "connected" && state.connection !== "connected";
    state.connection = connection;
    drawHeader();
    if (isNew) soon(refreshAll);
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
