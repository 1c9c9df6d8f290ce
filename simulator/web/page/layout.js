// Where the events of a run stand on its timeline.
// Each lane with its calls; those that no pattern fits are the framework's. The log is the application's.
const LANES = [["application", null], ["framework", null], ["cloud service", /^(cloud_request|bnr_|disk)/],
  ["TV service", /^(TVServiceAPI|CTVSApiWrapper|CCCategoryUtil|I[A-Z]|tv_)/], ["settings", /^(vconf_|JsonUtil)/],
  ["CI module", /^CIM::/]];
const REPLY = "app_control_reply_to_launch_request";
const TOLD = ["bnr_response", "ReplaceServiceDb", "bnr_backup", "bnr_restore", REPLY];  // captions are worth it
const LEFT = 120;      // pixels of the lanes' names
const WAIT_WIDTH = 96; // pixels of a wait, however long it is
const END = 24;
const LETTER = 7;      // pixels of a letter of a caption, at most
const [MIN_UNIT, MAX_UNIT] = [3, 14];  // pixels of a call
const LONG = 50;       // milliseconds from which a pause is a wait

const laneOf = (event) => event.log ? 0 : Math.max(1, LANES.findIndex(([, pattern]) => pattern?.test(event.call.name)));
const shortName = (call) => call.name.replace(/^.*::/, "");

function wordsOf(event, count) {
  if (event.log) return event.log.message.trim().replace(/^.* > /, "").slice(0, 90);
  const {call} = event;
  const short = shortName(call);
  const code = /^"?(\S+?)"?(,|$)/.exec(call.arguments)?.[1] ?? "";
  const result = call.result ? ` = ${call.result.split(",")[0]}` : "";
  const said = {bnr_response: `response ${code}`, [REPLY]: `reply ${call.arguments}`}[short] ?? `${short}${result}`;
  return `${count > 1 ? `${count} × ` : ""}${said}${call.fault !== null ? ` · fault rule ${call.fault}` : ""}`;
}

// Equal neighbours of a lane, which nothing else stands between, are one mark.
function folded(timeline, isFolding) {
  const marks = [];
  for (const event of timeline) {
    const lane = laneOf(event);
    const isFault = Boolean(event.call) && event.call.fault !== null;
    const last = marks.at(-1);
    const isAlike = isFolding && last && event.call && last.events[0].call && !isFault && !last.isFault &&
      !event.isDecisive && !last.isDecisive && last.at === event.atMs && last.events[0].call.name === event.call.name &&
      last.events[0].call.result === event.call.result;
    if (isAlike) last.events.push(event);
    else {
      marks.push({seq: event.seq, key: `event-${event.seq}`, at: event.atMs, lane, isLog: Boolean(event.log), isFault,
        isDecisive: event.isDecisive, events: [event]});
    }
  }
  return marks;
}

const unitsOf = (mark) => mark.isLog ? 0.5 : 1 + Math.log2(mark.events.length);

// Sets x and width of the marks; calls of one moment are spread in their order. Returns the waits, the times and the
// width of all.
function spread(marks, room, zoom) {
  const isWait = (mark, i) => mark.at - (marks[i - 1]?.at ?? 0) >= LONG;
  const units = marks.reduce((sum, mark) => sum + unitsOf(mark), 0);
  const waiting = marks.filter(isWait).length * WAIT_WIDTH;
  const unit = zoom * Math.min(Math.max((room - waiting - END) / Math.max(units, 1), MIN_UNIT), MAX_UNIT);
  const waits = [];
  const times = [{x: 0, at: marks[0]?.at ?? 0}];
  let x = 0;
  for (const [i, mark] of marks.entries()) {
    const before = marks[i - 1]?.at ?? 0;
    if (isWait(mark, i)) {
      waits.push({x: x + 4, width: WAIT_WIDTH - 8, length: mark.at - before});
      x += WAIT_WIDTH;
    }
    if (i > 0 && mark.at !== before) times.push({x, at: mark.at});
    mark.x = x;
    mark.width = mark.isLog ? 3 : Math.max(3, unitsOf(mark) * unit - 1);
    x += unitsOf(mark) * unit;
  }
  // A time is left out if there is no room for it beside the one before.
  const readable = times.filter((time, i) => i === 0 || time.x - times[i - 1].x > 44);
  return {waits, times: readable, width: Math.max(x + END, room)};
}

// Calls of a lane that only the log stands between.
function blocksOf(marks) {
  const blocks = [];
  for (const mark of marks.filter((each) => !each.isLog)) {
    const last = blocks.at(-1);
    if (last?.lane === mark.lane && last.at === mark.at) {
      last.width = mark.x + mark.width - last.x;
      last.marks.push(mark);
    } else {
      blocks.push({lane: mark.lane, at: mark.at, x: mark.x, width: mark.width, marks: [mark]});
    }
  }
  return blocks;
}

// Captions in the order of their worth, each where nothing is in its way. That of the deciding event is always there.
function captionsOf(marks, blocks, waits, width) {
  const wanted = [];
  for (const mark of marks) {
    const [event] = mark.events;
    const isTold = event.call && TOLD.includes(shortName(event.call));
    const kind = mark.isDecisive ? "decisive" : mark.isFault ? "fault" : isTold ? "told" : "";
    if (kind) wanted.push({kind, mark, words: wordsOf(event, mark.events.length)});
    else if (mark.events.length > 2) wanted.push({kind: "many", mark, words: wordsOf(event, mark.events.length)});
  }
  for (const block of blocks.filter(({marks: inside}) => inside.length > 3)) {
    wanted.push({kind: "block", mark: block.marks.at(-1), words: `${block.marks.length} calls`});
  }
  const worth = ["decisive", "fault", "told", "many", "block"];
  wanted.sort((a, b) => worth.indexOf(a.kind) - worth.indexOf(b.kind));
  const captions = [];
  for (const {kind, mark, words} of wanted) {
    const length = words.length * LETTER + (kind === "decisive" ? 64 : 8);
    const right = mark.x + mark.width + 8;
    const isClear = (x, {from, width: wide}) => x + length < from - 2 || x > from + wide + 2;
    const inTheWay = kind === "decisive" ? []
      : [...waits, ...marks.filter((other) => other.lane === mark.lane && other !== mark)];
    const isFree = (x) => x >= 0 && x + length <= width - 4 &&
      captions.every((other) => other.lane !== mark.lane || isClear(x, {from: other.from, width: other.length})) &&
      inTheWay.every((other) => isClear(x, {from: other.x, width: other.width}));
    const left = mark.x - 8 - length;
    const from = [right, left].find(isFree) ?? (kind === "decisive" ? left < 0 ? right : left : undefined);
    if (from === undefined) continue;
    const isBefore = from === left;  // ends at the mark
    const x = isBefore ? mark.x - 8 : from;
    captions.push({kind, lane: mark.lane, seq: mark.seq, words, length, from, isBefore, x});
  }
  return captions;
}

export function placed(timeline, {details, filter, zoom, width}) {
  const wanted = filter.trim().toLowerCase();
  const wordsIn = ({call, log}) => log ? `${log.message} ${log.file}`
    : `${call.name}(${call.arguments}) = ${call.result}`;
  const isWanted = (event) => wordsIn(event).toLowerCase().includes(wanted);
  const events = wanted ? timeline.filter(isWanted) : timeline;
  const marks = folded(events, !details);
  const {waits, times, width: inside} = spread(marks, width - LEFT - 16, zoom);
  const blocks = blocksOf(marks);
  const captions = captionsOf(marks, blocks, waits, inside);
  const lanes = LANES.map(([lane]) => lane);
  // On a narrow screen a caption may need more than the marks.
  const end = Math.max(inside, ...captions.map(({from, length, isBefore}) => isBefore ? 0 : from + length));
  return {marks, waits, times, blocks, captions, left: LEFT, width: end + LEFT + 8, lanes};
}
