// A run in the TV's time, in lanes: one for the application and one for each service.
import {Component, checkbox, command, h, saveAs, text} from "./elements.js";
import {chooseEvent} from "./lab.js";
import {changed, place, state} from "./state.js";
import {placed} from "./layout.js";
import {seconds, shown} from "./words.js";
import {whenOf} from "./verdict.js";

const NEAR = 12;  // pixels from an event that still mean it
const view = {details: false, filter: "", zoom: 1, replay: Infinity, isReplaying: false, width: 1000, isOpen: false};
let kept = {};

// As long as nothing that it depends on has changed.
function layoutOf(timeline) {
  const {details, filter, zoom, width} = view;
  const key = JSON.stringify([details, filter, zoom, width]);
  if (kept.timeline !== timeline || kept.key !== key) {
    kept = {timeline, key, layout: placed(timeline, {details, filter, zoom, width})};
  }
  return kept.layout;
}

function full({call, log}) {
  return log ? `${log.file}: ${log.function}(${log.line}) ${log.message.trim()}`
    : `${call.name}(${call.arguments})${call.result ? ` = ${call.result}` : ""}`;
}

function kindOf(event) {
  const kind = event.log ? `log, priority ${event.log.priority}` : event.call.fault === null ? "call"
    : `call, made to fail by fault rule ${event.call.fault}`;
  return event.isDecisive ? `${kind}, decided the outcome` : kind;
}

// The event that is shown: the chosen one; else the one that decided; else the first.
const current = (marks) => marks.find((mark) => mark.events.some((event) => event.seq === state.event)) ??
  marks.find((mark) => mark.isDecisive) ?? marks[0];

function go(mark) {
  if (!mark) return;
  chooseEvent(mark.seq);
  queueMicrotask(() => queueMicrotask(() => {
    const button = document.querySelector(`.mark-button[data-key="${CSS.escape(mark.key)}"]`);
    button?.focus({preventScroll: true});
    button?.scrollIntoView({block: "nearest", inline: "nearest"});
  }));
}

// The mark that a key leads to.
function next(key, marks, from) {
  const at = marks.indexOf(from);
  const nearest = (wanted) => marks.filter((mark) => mark.lane === wanted)
    .sort((a, b) => Math.abs(a.x - from.x) - Math.abs(b.x - from.x))[0];
  const lanes = [...new Set(marks.map((mark) => mark.lane))].sort((a, b) => a - b);
  switch (key) {
  case "ArrowRight": return marks[at + 1];
  case "ArrowLeft": return marks[at - 1];
  case "ArrowUp": return nearest(lanes[lanes.indexOf(from.lane) - 1]);
  case "ArrowDown": return nearest(lanes[lanes.indexOf(from.lane) + 1]);
  case "Home": return marks[0];
  case "End": return marks.at(-1);
  default: return undefined;
  }
}

const marksNow = () => state.run?.timeline.length ? layoutOf(state.run.timeline).marks : [];

export function goToDecided() {
  view.filter = "";
  go(marksNow().find((mark) => mark.isDecisive));
}

// The next call that a fault rule made fail, round and round.
export function goToNextFault() {
  view.filter = "";
  const marks = marksNow();
  const at = marks.findIndex((mark) => mark.events.some((event) => event.seq === state.event));
  go([...marks.slice(at + 1), ...marks.slice(0, at + 1)].find((mark) => mark.isFault));
}
addEventListener("lab:decided", goToDecided);

function markButton(mark, isCurrent) {
  const words = mark.events.length > 1 ? `${mark.events.length} times ` : "";
  return h("button", {type: "button", key: mark.key, "data-key": mark.key, tabindex: isCurrent ? 0 : -1,
    class: ["mark-button", mark.isLog ? "log" : "call", mark.isFault ? "fault" : "", mark.isDecisive ? "decisive" : "",
      isCurrent ? "current" : "", mark.seq > view.replay ? "later" : ""].join(" "),
    style: {left: `${mark.x}px`, width: `${mark.width}px`},
    "aria-label": `${seconds(mark.at)}: ${words}${shown(full(mark.events[0]))}; ${kindOf(mark.events[0])}`,
    onfocus: () => { if (!mark.events.some((event) => event.seq === state.event)) chooseEvent(mark.seq); }});
}

function lane(index, layout, shownMark) {
  const mine = layout.marks.filter((mark) => mark.lane === index);
  // The whole height of the lane is an event's, and some pixels beside it.
  const near = (event) => {
    const x = event.clientX - event.currentTarget.getBoundingClientRect().left;
    const away = (mark) => Math.max(mark.x - x, x - mark.x - mark.width, 0);
    return mine.filter((mark) => away(mark) <= NEAR).sort((a, b) => away(a) - away(b))[0];
  };
  return h("div", {class: "lane-row", key: index},
    h("span", {class: "lane-name"}, layout.lanes[index]),
    h("div", {class: "lane", role: "group", "aria-label": layout.lanes[index],
      onclick: (event) => { if (event.detail) go(near(event)); },
      onpointermove: (event) => {
        const seq = near(event)?.seq ?? 0;
        if (seq !== view.pointed) { view.pointed = seq; changed(); }
      },
      onpointerleave: () => { view.pointed = 0; changed(); }},
    layout.blocks.filter((block) => block.lane === index).map((block) => h("span", {class: "stretch",
      key: `b${block.x}`, style: {left: `${block.x}px`, width: `${block.width}px`}})),
    mine.map((mark) => markButton(mark, mark === shownMark)),
    layout.captions.filter((caption) => caption.lane === index).map((caption) => h("span", {key: `c${caption.seq}`,
      class: ["caption", caption.kind, caption.isBefore ? "before" : "",
        caption.seq > view.replay ? "later" : ""].join(" "), style: {left: `${caption.x}px`}},
    text(caption.words), caption.kind === "decisive" ? h("em", {}, " decided") : null))));
}

class Chart extends Component {
  componentDidMount() {
    this.observer = new ResizeObserver(([{contentRect}]) => {
      const width = Math.max(200, Math.floor(contentRect.width));
      if (width !== view.width) { view.width = width; changed(); }
    });
    this.observer.observe(this.base);
    this.seekDecided();
  }
  componentWillUnmount() { this.observer.disconnect(); }
  componentDidUpdate(before) {
    if (state.run?.outcome === "open") this.base.scrollLeft = this.base.scrollWidth;
    else if (before.which !== this.props.which || this.base.clientWidth !== this.width) this.seekDecided();
  }
  // A run is first shown with the event that decided it in sight.
  seekDecided() {
    this.width = this.base.clientWidth;
    const {marks, left} = this.props.layout;
    const mark = marks.find((each) => each.isDecisive);
    if (mark) this.base.scrollLeft = mark.x + left - this.base.clientWidth / 2;
  }
  render({layout, shownMark}) {
    const onkeydown = (event) => {
      const mark = next(event.key, layout.marks, shownMark);
      if (!mark || event.altKey || event.ctrlKey || event.metaKey) return;
      event.preventDefault();
      go(mark);
    };
    return h("div", {class: "lanes", role: "group", "aria-label": "Timeline; arrow keys go from event to event and " +
      "from lane to lane, F to the next fault, D to the event that decided", onkeydown},
    h("div", {class: "lanes-inside", style: {width: `${layout.width}px`}},
      layout.waits.map((wait) => h("span", {class: "wait", key: wait.x, style: {left: `${wait.x + layout.left}px`,
        width: `${wait.width}px`}}, h("span", {}, `${wait.length.toLocaleString("en")} ms`))),
      layout.lanes.map((_, index) => lane(index, layout, shownMark)),
      h("div", {class: "lane-row axis"}, h("span", {class: "lane-name"}, "ms"), h("div", {class: "lane"},
        layout.times.map(({x, at}) => h("span", {key: x, style: {left: `${x}px`}}, at.toLocaleString("en")))))));
  }
}

function Detail({mark, timeline}) {
  const pointed = view.pointed && layoutOf(timeline).marks.find((each) => each.seq === view.pointed);
  const it = pointed || mark;
  if (!it) return h("p", {id: "event", class: "event-text muted"}, "Nothing has this.");
  const [event] = it.events;
  return h("p", {id: "event", class: "event-text", "aria-live": pointed ? "off" : "polite"},
    h("span", {class: "muted"}, `${whenOf(timeline, event)} · ${kindOf(event)}${it.events.length > 1
      ? ` · ${it.events.length} times in a row` : ""}`),
    h("code", {dir: "ltr", title: shown(full(event))}, text(it.events.length > 1
      ? it.events.map(full).join("; ") : full(event))));
}

function stopReplay() {
  Object.assign(view, {replay: Infinity, isReplaying: false});
  changed();
}

function replay(timeline) {
  let start;
  const perEvent = Math.min(40, 4000 / timeline.length);
  const step = (now) => {
    if (!view.isReplaying) return;
    start ??= now;
    const count = Math.floor((now - start) / perEvent);
    if (count >= timeline.length || state.run?.timeline !== timeline) {
      stopReplay();
      return;
    }
    view.replay = timeline[count].seq;
    changed();
    requestAnimationFrame(step);
  };
  view.isReplaying = true;
  requestAnimationFrame(step);
}

function saveRun(run) {
  const blob = new Blob([JSON.stringify(run, null, 2)], {type: "application/json"});
  saveAs(blob, `run-${run.run}.json`);
}

function tools(run) {
  const zoom = (factor) => () => { view.zoom = Math.min(8, Math.max(1, view.zoom * factor)); changed(); };
  const button = (key, label, words, onclick, disabled) => h("button", {type: "button", class: "quiet", "data-key": key,
    "aria-label": label, title: label, onclick, disabled}, words);
  const {timeline} = run;
  return [
    h("input", {type: "search", placeholder: "Filter", "aria-label": "Filter the timeline", "data-key": "filter",
      value: view.filter, oninput: (event) => { view.filter = event.target.value; changed(); }}),
    checkbox("log", "details", view.details, (isOn) => { view.details = isOn; changed(); }),
    timeline.some((event) => event.call && event.call.fault !== null)
      ? button("next-fault", "Next fault (F)", "Next fault", goToNextFault) : null,
    button("zoom-out", "Zoom out", "−", zoom(0.5), view.zoom <= 1),
    button("zoom-in", "Zoom in", "+", zoom(2), view.zoom >= 8),
    view.isReplaying ? button("replay", "Stop the replay", "Stop", stopReplay)
      : button("replay", "Replay the run", "Replay", () => replay(timeline), run.outcome === "open"),
    button("export", "Export the run as JSON", "Export", () => { view.isOpen = !view.isOpen; changed(); })];
}

export function Timeline() {
  const {run} = state;
  const timeline = run?.timeline ?? [];
  const head = (...more) => h("div", {class: "head"}, h("h2", {id: "timeline-title"}, "When",
    run ? h("span", {class: "muted"}, ` · run ${run.run}`) : null), ...more);
  if (!timeline.length) {
    return h("section", {id: "timeline", class: "card", "aria-labelledby": "timeline-title"}, head(),
      h("p", {class: "empty"}, "Each call and each log record of a run stands here at its moment."));
  }
  const layout = layoutOf(timeline);
  const shownMark = current(layout.marks);
  return h("section", {id: "timeline", class: `card ${run.outcome === "done" ? "well" : ""}`,
    "aria-labelledby": "timeline-title"},
  head(tools(run)),
  view.isOpen ? h("div", {class: "action"}, h("button", {type: "button", class: "quiet", "data-key": "save",
    onclick: () => saveRun(run)}, "Save the file"),
  command([...place(), "--json", "record", String(run.run)])) : null,
  h(Chart, {layout, shownMark, which: `${state.tv}/${run.run}/${run.outcome}`}),
  h(Detail, {mark: shownMark, timeline}));
}
