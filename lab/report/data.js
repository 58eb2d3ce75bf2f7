// Reads the data of the page and derives what the parts show: records in the order of time, visits,
// the stretches of the field, failures, figures. Touches no element but the two data blocks.
"use strict";

const facts = JSON.parse(document.getElementById("facts").textContent);

// A record is one object of the run. Its number is its line in the output of --json, from 1.
const records = JSON.parse(document.getElementById("objects").textContent)
  .map((object, index) => ({ object, number: index + 1, t: object.t, thread: object.thread }));
const recordOf = new Map(records.map((record) => [record.number, record]));
// Each step began after so many objects. A stable sort keeps the order of one thread's records.
const entries = [];
const steps = facts.steps.map((step) => ({ step, t: step.t, after: step.after }));
{
  let next = 0;
  for (const record of records) {
    while (next < steps.length && steps[next].after < record.number) {
      entries.push(steps[next++]);
    }
    entries.push(record);
  }
  entries.push(...steps.slice(next));
  entries.sort((a, b) => a.t - b.t);
}
const ordered = entries.filter((entry) => entry.object);
ordered.forEach((record, place) => { record.place = place; });

const kThreadOrder = ["host", "host 1", "host 2", "host 3", "host 4", "number", "keyboard", "ble",
  "interrupt", "defer"];
const threads = [...new Set(records.map((record) => record.thread))].sort((a, b) => {
  const place = (name) => (kThreadOrder.includes(name) ? kThreadOrder.indexOf(name) : 99);
  return place(a) - place(b) || a.localeCompare(b);
});

const kRoutes = facts.routes;
const kEvents = {
  1: "the phone has left",
  3: "a phone entered the field",
  4: "the tag's microcontroller started, or an unknown chip raised an interrupt",
};
const kInvalidFunction = 1;
const kNotFound = 2;
const kCancelled = 995;
const kErrors = {
  1: "no such function", 2: "not found", 5: "access denied", 6: "invalid handle", 31: "general failure",
  32: "in use by another program", 121: "timed out", 995: "cancelled", 996: "not complete",
  1117: "I/O device error", 1167: "device not connected",
};
const kErrorLevel = 4;

const lastTime = entries.length ? Math.max(entries[entries.length - 1].t, facts.end) : facts.end;

const succeeded = (result) => result === true || result === 0;

const errorText = (error) => "error " + error + (kErrors[error] ? ", " + kErrors[error] : "");

// A request that the library cancelled has not failed. Nor has the search for the driver of another
// route: the library asks for all of them in turn, and a HID keyboard for interrupts.
const kDrivers = { "\\\\.\\SPBNFCDRIVER": "i2c", "\\\\.\\KEYBOARDNFC": "usb" };
const hasRoute = (name) => facts.route.includes(name);
function hasFailed(object) {
  if (object.op === "open" && object.error === kNotFound && kDrivers[object.meaning]) {
    return hasRoute(kDrivers[object.meaning]);
  }
  return "error" in object && object.error !== kCancelled &&
    !(object.op === "wait" && object.error === kInvalidFunction && hasRoute("hid"));
}

// What went wrong in this record, or an empty text.
function failureOf(record) {
  const object = record.object;
  switch (object.kind) {
    case "bus":
      return hasFailed(object) ? errorText(object.error) : "";
    case "phone":
      return object.read ? "" : "the phone reads nothing: " + object.problem;
    case "result":
      return succeeded(object.result) ? "" : "failed";
    default:
      return "";
  }
}
const failures = ordered.filter((record) => failureOf(record));
const failedCalls = failures.filter((record) => record.object.kind === "result");

// A call begins when its step does or when the call before it ended; in a listener, with the event.
{
  const ends = {};
  const stepOf = {};
  for (const entry of entries) {
    if (entry.step) {
      stepOf[entry.step.host ? "host " + entry.step.host : "host"] = entry.t;
    } else if (entry.object.kind === "result") {
      entry.begin = Math.max(ends[entry.thread] ?? 0, stepOf[entry.thread] ?? 0);
    }
    if (entry.object && ["result", "event"].includes(entry.object.kind)) {
      ends[entry.thread] = entry.t;
    }
  }
}

// A visit as the library reports it: event 3 to event 1, for each route.
const visits = [];
{
  const open = {};
  for (const record of ordered) {
    const { kind, event, route } = record.object;
    if (kind === "event" && event === 3) {
      open[route] = { enter: record, leave: null, route, phones: [] };
      visits.push(open[route]);
    } else if (kind === "event" && event === 1 && open[route]) {
      open[route].leave = record;
      open[route] = null;
    }
  }
  for (const record of ordered.filter((one) => one.object.kind === "phone")) {
    const visit = visits.find((one) => one.enter.t <= record.t &&
      (!one.leave || record.t <= one.leave.t));
    if (visit) {
      visit.phones.push(record);
    }
  }
}
const field = facts.field.map((stretch) => ({ from: stretch.from, to: stretch.to ?? lastTime,
  route: stretch.route }));

const counted = (test) => records.filter((record) => test(record.object)).length;
const isBus = (...ops) => (object) => object.kind === "bus" && ops.includes(object.op);
const kFigures = [
  ["records", "records", records.length],
  ["duration", "seconds", seconds(lastTime)],
  ["visits", "visits reported", visits.length],
  ["phones", "readings by a phone", counted((object) => object.kind === "phone" && object.read)],
  ["writes", "frames written", counted(isBus("write"))],
  ["reads", "frames read", counted(isBus("read"))],
  ["errors", "failed requests", counted((object) => object.kind === "bus" && hasFailed(object))],
  ["lines", "lines of the log", counted((object) => object.kind === "log")],
  ["error-lines", "of them at error level", counted((object) =>
    object.kind === "log" && object.level === kErrorLevel)],
  ["results", "calls and checks", counted((object) => object.kind === "result")],
  ["failed-calls", "failed calls", failedCalls.length],
];

// Seconds with three digits after the point and a thin space between thousands.
function seconds(milliseconds) {
  const [whole, part] = (milliseconds / 1000).toFixed(3).split(".");
  return whole.replace(/\B(?=(\d{3})+$)/g, "\u202f") + "." + part;
}

const spaced = (digits) => digits.replace(/(..)(?=.)/g, "$1 ");
const plural = (count, one, many) => count + " " + (count === 1 ? one : many || one + "s");

const eventText = (object) =>
  (kEvents[object.event] || "an unknown event") + " (" + (kRoutes[object.route] || "?") + ")";

// One record in words, as the timeline's cursor and the list of failures say it.
function describe(record) {
  const object = record.object;
  switch (object.kind) {
    case "bus":
      return "bus " + object.op + ": " + object.meaning +
        ("error" in object ? " (" + errorText(object.error) + ")" : "");
    case "log":
      return (object.level === kErrorLevel ? "log, error level: " : "log: ") + object.line.trim();
    case "sleep":
      return "pause of " + object.ms + " ms";
    case "event":
      return "event " + object.event + ": " + eventText(object);
    case "phone":
      return object.read ? "the phone reads " + object.uri : failureOf(record);
    case "result":
      return object.operation + (succeeded(object.result) ? ": ok" : ": FAILED");
    default:
      return JSON.stringify(object);
  }
}

// Makes an element. Text is always set as text, never as markup.
function make(name, properties, ...children) {
  const element = document.createElement(name);
  for (const [key, value] of Object.entries(properties || {})) {
    if (value !== null && value !== undefined && value !== false) {
      element.setAttribute(key, value === true ? "" : value);
    }
  }
  element.append(...children.filter((child) => child !== null && child !== ""));
  return element;
}

const faultBadge = (text) => make("strong", { class: "fault" }, "\u2715 " + text);
const quiet = (text) => make("span", { class: "quiet" }, text);
const linkTo = (record, text) => make("a", { href: "#o" + record.number }, text);

// The first index of a sorted array whose element satisfies the condition, or the length.
function firstIndex(array, holds) {
  let low = 0;
  let high = array.length;
  while (low < high) {
    const middle = (low + high) >> 1;
    if (holds(array[middle])) {
      high = middle;
    } else {
      low = middle + 1;
    }
  }
  return low;
}

// A table with a heading for each column; a cell is a text, an element or a list of them.
function table(caption, headings, rows, className) {
  return make("div", { class: "wide-table", role: "region", "aria-label": caption, tabindex: "0" },
    make("table", { class: className },
      make("caption", { class: "unseen" }, caption),
      make("thead", {}, make("tr", {}, ...headings.map((heading) =>
        make("th", { scope: "col" }, heading)))),
      make("tbody", {}, ...rows.map((cells) => make("tr", {}, ...cells.map((cell) =>
        make("td", {}, ...(Array.isArray(cell) ? cell : [cell]))))))));
}
