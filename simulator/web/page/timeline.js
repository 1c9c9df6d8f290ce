// A run in the TV's time, in lanes: one for the application and one for each service.
import {byId, checkbox, fill, h, shown, wantsLessMotion} from "./dom.js";
import {state} from "./state.js";

// Each with its calls; those that no pattern fits are the framework's. The log is the application's.
const LANES = [["application", null], ["framework", null], ["cloud service", /^(cloud_request|bnr_|disk)/],
  ["TV service", /^(TVServiceAPI|CTVSApiWrapper|CCCategoryUtil|I[A-Z]|tv_)/], ["settings", /^(vconf_|JsonUtil)/],
  ["CI module", /^CIM::/]];
const REPLY = "app_control_reply_to_launch_request";
const TOLD = ["bnr_response", "ReplaceServiceDb", "bnr_backup", REPLY];  // calls that always have a caption
const MIN_UNIT = 9;   // pixels of an event
const MAX_UNIT = 18;
const WAIT = 130;     // pixels of a wait of any length
const MARGIN = 60;
const view = {details: false, focus: 0, replay: Infinity, run: ""};

const laneOf = (event) => event.log ? 0 : Math.max(1, LANES.findIndex(([, pattern]) => pattern?.test(event.call.name)));
const isWait = (milliseconds) => milliseconds >= 50;

// Calls of one moment are spread in their order; a wait is one long bar.
function placed(timeline, room) {
  const units = timeline.reduce((sum, event) => sum + (event.log ? 0.5 : 1), 0);
  const waiting = timeline.filter((event, i) => isWait(event.atMs - (timeline[i - 1]?.atMs ?? 0))).length;
  const unit = Math.min(Math.max((room - MARGIN - waiting * WAIT) / units, MIN_UNIT), MAX_UNIT);
  let x = 0;
  let at = 0;
  const waits = [];
  const events = timeline.map((event) => {
    if (isWait(event.atMs - at)) {
      waits.push({x, from: at, length: event.atMs - at});
      x += WAIT;
    }
    at = event.atMs;
    const it = {...event, lane: laneOf(event), x};
    x += event.log ? unit / 2 : unit;
    return it;
  });
  return {events, waits, unit, width: x + MARGIN};
}

function text(event) {
  if (event.log) return `${event.log.file}: ${event.log.function}(${event.log.line}) ${event.log.message.trim()}`;
  return `${event.call.name}(${event.call.arguments})${event.call.result ? ` = ${event.call.result}` : ""}`;
}

function label(event) {
  if (event.log) return event.isDecisive ? event.log.message.trim() : "";
  const {name, result, fault} = event.call;
  const short = name.replace(/^.*::/, "");
  const isTold = fault !== null || event.isDecisive || TOLD.includes(short);
  const code = /^"?(\S+?)"?(,|$)/.exec(event.call.arguments)?.[1] ?? "";
  const said = {bnr_response: `response ${code}`, [REPLY]: `reply ${event.call.arguments}`}[short] ??
    `${short}${result ? ` = ${result.split(",")[0]}` : ""}`;
  return isTold ? `${said}${fault !== null ? ` · fault rule ${fault}` : ""}` : "";
}

function eventKind({call, log}) {
  if (log) return `log, priority ${log.priority}`;
  return call.fault === null ? "call" : `call, made to fail by rule ${call.fault}`;
}

function show(event, button) {
  const details = byId("event");
  if (!details) return;
  const words = [`${(event.atMs / 1000).toFixed(3)} s`, eventKind(event)];
  if (event.isDecisive) words.push("this decided the outcome");
  details.replaceChildren(h("span", {class: "muted"}, words.join(" · ")), h("code", {}, shown(text(event))));
  for (const each of button.closest(".lanes").querySelectorAll("button[tabindex='0']")) each.tabIndex = -1;
  button.tabIndex = 0;
  view.focus = event.seq;
}

function classesOf({log, call, isDecisive, seq}) {
  return ["event", log ? "log" : "call", call && call.fault !== null ? "fault" : "", isDecisive ? "decisive" : "",
    seq > view.replay ? "later" : ""].join(" ");
}

function chart(timeline, room) {
  const {events, waits, unit, width} = placed(timeline, room);
  const focused = events.find((event) => event.seq === view.focus) ?? events.find((event) => event.isDecisive) ??
    events[0];
  const buttons = new Map();
  const lanes = LANES.map(([name], index) => {
    const mine = events.filter((event) => event.lane === index);
    const lane = h("div", {class: "lane", role: "group", "aria-label": name});
    for (const [i, event] of mine.entries()) {
      const look = () => show(event, button);
      const button = h("button", {type: "button", class: classesOf(event), "aria-label": text(event), onfocus: look,
        onmouseenter: look, "data-key": `${view.run}/${event.seq}`, tabindex: event === focused ? 0 : -1});
      button.style.left = `${event.x}px`;
      buttons.set(event.seq, button);
      lane.append(button);
      const caption = view.details && event.log?.priority >= 6 ? event.log.message.trim() : label(event);
      let last = i;  // of those that stand too close for a caption between them
      while (mine[last + 1] && mine[last + 1].x - mine[last].x < 3 * unit) last++;
      const free = (mine[last + 1]?.x ?? width + 400) - mine[last].x - 16;
      if (caption && (last === i || event.isDecisive) && free > caption.length * 6.6) {
        const element = h("span", {class: "caption" + (event.seq > view.replay ? " later" : "")}, shown(caption));
        element.style.left = `${mine[last].x + 16}px`;
        lane.append(element);
      }
    }
    if (name === "cloud service" || (name === "TV service" && waits.length > 1)) {
      for (const wait of name === "cloud service" ? waits.slice(0, 1) : waits.slice(1)) {
        const bar = h("span", {class: "wait"}, `${wait.length.toLocaleString("en")} ms`);
        bar.style.left = `${wait.x + 4}px`;
        bar.style.width = `${WAIT - 10}px`;
        lane.append(bar);
      }
    }
    return h("div", {class: "lane-row"}, h("span", {class: "lane-name"}, name), lane);
  });
  const marks = [{x: 0, at: 0}, ...waits.map((wait) => ({x: wait.x + WAIT, at: wait.from + wait.length}))];
  const axis = h("div", {class: "lane axis"}, marks.map((mark) => {
    const element = h("span", {}, `${mark.at.toLocaleString("en")} ms`);
    element.style.left = `${mark.x}px`;
    return element;
  }));
  const scroller = h("div", {class: "lanes", role: "application",
    "aria-label": "Timeline; arrow keys go from event to event",
    onkeydown: (event) => {
      const step = {ArrowRight: 1, ArrowLeft: -1}[event.key];
      if (!step) return;
      const at = events.findIndex((each) => each.seq === view.focus);
      const next = events[Math.min(Math.max(at + step, 0), events.length - 1)];
      buttons.get(next.seq).focus();
      event.preventDefault();
    }}, ...lanes, h("div", {class: "lane-row"}, h("span", {class: "lane-name"}), axis));
  scroller.style.setProperty("--width", `${Math.max(width, 600)}px`);
  return scroller;
}

let playing;
function replay(timeline) {
  cancelAnimationFrame(playing);
  if (wantsLessMotion()) return;
  const start = performance.now();
  const perEvent = Math.min(40, 5000 / timeline.length);
  const step = (now) => {
    const shownEvents = Math.floor((now - start) / perEvent);
    view.replay = shownEvents >= timeline.length ? Infinity : timeline[shownEvents].seq;
    drawTimeline();
    if (view.replay !== Infinity) playing = requestAnimationFrame(step);
  };
  playing = requestAnimationFrame(step);
}

export function drawTimeline() {
  const card = byId("timeline");
  const run = state.live ?? state.run;
  const timeline = run?.timeline ?? [];
  const key = `${state.tv}/${run?.run}`;
  const isNew = key !== view.run;
  if (isNew) Object.assign(view, {run: key, focus: 0, replay: Infinity});
  const scrolled = card.querySelector(".lanes")?.scrollLeft ?? 0;
  const told = isNew ? null : byId("event");
  const title = run ? `Timeline of run ${run.run}` : "Timeline";
  fill(card, h("div", {class: "head"}, h("h2", {id: "timeline-title"}, title),
    checkbox("details of the log", "details", view.details, (isOn) => { view.details = isOn; drawTimeline(); }),
    h("button", {type: "button", disabled: !timeline.length || Boolean(state.live), "data-key": "replay",
      onclick: () => replay(timeline)}, "Replay")),
  timeline.length ? chart(timeline, card.clientWidth - 140)
    : h("p", {class: "empty"}, "Each call and each log record of a run stands here at its moment."),
  timeline.length ? told ?? h("p", {id: "event", class: "event-text", "aria-live": "polite"},
    h("span", {class: "muted"}, "Point at an event, or go from one to the next with the arrow keys.")) : null);
  const lanes = card.querySelector(".lanes");
  if (!lanes) return;
  const decisive = isNew ? lanes.querySelector(".decisive") : null;
  lanes.scrollLeft = state.live ? lanes.scrollWidth : decisive ? decisive.offsetLeft - lanes.clientWidth / 2 : scrolled;
}
