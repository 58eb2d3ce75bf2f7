// The head of the page, the tables, the search and the links. Starts all parts.
"use strict";

const kMostInTable = 200;

const search = (() => {
  const box = document.getElementById("search");
  const state = document.getElementById("search-state");
  let matches = [];
  let matching = new Set();
  let at = -1;

  const textOf = (entry) => {
    entry.text = entry.text || (entry.step ? entry.step.text
      : Object.values(entry.object).map((value) =>
        typeof value === "string" && /^([\dA-F]{2})+$/.test(value)
          ? value + " " + spaced(value) : value).join(" ") + " " + describe(entry)).toLowerCase();
    return entry.text;
  };

  function mark(entry, on) {
    const element = entry.step ? entry.step.heading : document.getElementById("o" + entry.number);
    if (element) {
      element.classList.toggle("match", on);
    }
  }

  // "#1117" is a record; of "1117" an error comes first, and the record of that number last.
  function find() {
    matches.forEach((entry) => mark(entry, false));
    const wanted = box.value.trim().toLowerCase();
    const [, sign, number] = /^([#o]?)(\d+)$/.exec(wanted) || [];
    const named = recordOf.get(Number(number));
    const rank = (entry) => (entry === named ? (sign ? 0 : 3)
      : entry.object && String(entry.object.error) === number ? 1 : 2);
    matches = wanted === "" ? []
      : entries.filter((entry) => entry === named || textOf(entry).includes(wanted))
        .sort((a, b) => (number ? rank(a) - rank(b) : 0));
    matching = new Set(matches);
    matches.forEach((entry) => mark(entry, true));
    at = -1;
    say();
  }

  function say() {
    state.textContent = box.value.trim() === "" ? ""
      : matches.length === 0 ? "nothing found"
        : at < 0 ? plural(matches.length, "match", "matches") : (at + 1) + " of " + matches.length;
  }

  function step(by) {
    if (matches.length > 0) {
      at = at < 0 && by < 0 ? matches.length - 1 : (at + by + matches.length) % matches.length;
      go(matches[at], false);
      say();
    }
  }

  return {
    start() {
      let pending = 0;
      box.addEventListener("input", () => {
        clearTimeout(pending);
        pending = setTimeout(find, 120);
      });
      box.addEventListener("keydown", (event) => {
        if (event.key === "Enter") {
          if (pending) {
            clearTimeout(pending);
            pending = 0;
            find();
          }
          step(event.shiftKey ? -1 : 1);
          event.preventDefault();
        }
      });
      document.getElementById("search-on").addEventListener("click", () => step(1));
      document.getElementById("search-back").addEventListener("click", () => step(-1));
    },
    paint(some) {
      some.filter((record) => matching.has(record)).forEach((record) => mark(record, true));
    },
    focus() {
      box.focus();
      box.select();
    },
  };
})();

// Shows a record or a step, and puts a record's link into the address, without a step in the
// browser's history.
function go(entry, focus) {
  if (entry.object) {
    history.replaceState(null, "", "#o" + entry.number);
  }
  list.show(entry, focus);
}

function showLink(focus) {
  const number = /^#o(\d+)$/.exec(location.hash);
  if (number && recordOf.has(Number(number[1]))) {
    list.show(recordOf.get(Number(number[1])), focus);
  }
}

function showHead() {
  const script = facts.script === "visit" ? "a visit of a phone"
    : facts.script.split(/[\\/]/).pop();
  document.title = "tagport run: " + script;
  document.getElementById("heading").textContent = "A run of tagport: " + script;
  const verdict = document.getElementById("verdict");
  const good = facts.failures === 0;
  verdict.append(good ? (failedCalls.length ? "\u2713 As the script expects" : "\u2713 Everything worked")
    : "\u2715 " + facts.failures + " not as the script expects");
  if (failedCalls.length) {
    verdict.append(good ? ": " : "; ", linkTo(failedCalls[0], plural(failedCalls.length, "failed call")));
  }
  verdict.classList.add(good ? "done" : "fault");
  document.getElementById("setting").append(...[
    ["script", facts.script === "visit" ? "" : facts.script], ["tag on", facts.route], ["chip", facts.chip], ["PC type", facts.pcType],
    ["planned faults", facts.fault],
    ["clock", facts.seed === null ? "real time" : "scheduled, seed " + facts.seed],
  ].filter(([, value]) => value !== null && value !== "").flatMap(([name, value]) =>
    [make("span", {}, name + " ", make("b", {}, String(value))), " "]));
  document.getElementById("figures").append(...kFigures.map(([id, text, value]) =>
    make("div", {}, make("dt", {}, text), make("dd", { id: "figure-" + id }, String(value)))));
}

function showVisits() {
  const body = document.getElementById("visits-body");
  if (visits.length === 0) {
    body.append(make("p", { class: "quiet" }, "No visit was reported."));
    return;
  }
  const several = new Set(visits.map((visit) => visit.route)).size > 1;
  body.append(table("Visits that the library reported",
    ["visit", "entered, s", "left, s", "lasted, s", ...(several ? ["route"] : []), "number",
      "read"],
    visits.map((visit, index) => [String(index + 1), linkTo(visit.enter, seconds(visit.enter.t)),
      visit.leave ? linkTo(visit.leave, seconds(visit.leave.t)) : "never reported",
      visit.leave ? seconds(visit.leave.t - visit.enter.t) : "",
      ...(several ? [kRoutes[visit.route] || "?"] : []),
      make("code", { title: visit.enter.object.number },
        visit.enter.object.number.slice(0, 8) + "\u2026"),
      visit.phones.length === 0 ? "nothing"
        : visit.phones.map((one, place) => [place > 0 ? ", " : "", linkTo(one, one.object.read
          ? "all" : "\u2715 nothing")]).flat()])));
}

// Puts a table of records into a part of the page, with the time of each and some cells of its own;
// without records a text.
function showTable(part, caption, headings, some, cellsOf, none) {
  const note = (text) => make("p", { class: "quiet" }, text);
  const rest = some.length - kMostInTable;
  document.getElementById(part).append(none && some.length === 0 ? note(none)
    : table(caption, ["at, s", ...headings], some.slice(0, kMostInTable).map((record) =>
      [linkTo(record, seconds(record.t)), ...cellsOf(record)])),
  rest > 0 ? note("And " + rest + " more in the records.") : "");
}

function showCalls() {
  showTable("calls-body", "Calls and what they gave", ["call", "by", "result"],
    ordered.filter((record) => record.object.kind === "result"), (record) =>
      [record.object.operation, record.thread, succeeded(record.object.result)
        ? make("span", { class: "done" }, "ok") : faultBadge("failed")]);
}

function showFailures() {
  const kWhat = { bus: "failed request", result: "failed call", phone: "unread tag" };
  showTable("failures-body", "Failures", ["thread", "failed", "what"], failures, (record) =>
    [record.thread, faultBadge(kWhat[record.object.kind]), describe(record)],
  "No request failed, no call failed, every phone could read.");
}

function onKey(event) {
  const typing = /^(INPUT|SELECT|TEXTAREA)$/.test(event.target.tagName);
  if (typing || event.ctrlKey || event.metaKey || event.altKey || ordered.length === 0) {
    return;
  }
  const place = list.current() ? list.current().place : -1;
  if (event.key === "/") {
    search.focus();
  } else if (event.key === "j") {
    go(ordered[Math.min(place + 1, ordered.length - 1)], true);
  } else if (event.key === "k") {
    go(ordered[Math.max(place - 1, 0)], true);
  } else if (event.key === "n" && failures.length > 0) {
    go(failures.find((record) => record.place > place) || failures[0], true);
  } else {
    return;
  }
  event.preventDefault();
}

showHead();
showVisits();
showCalls();
showFailures();
memory.start();
timeline.start();
list.start();
search.start();
document.addEventListener("keydown", onKey);
window.addEventListener("hashchange", () => showLink(true));
window.addEventListener("beforeprint", () => timeline.showAll());
showLink(false);
