// The list of records: a table for at most fifty rows under the heading of each step of the
// script. A row is one frame, call or event; the lines of the log stand beside it. The tables are
// filled when they come near the window, in idle time, and before printing.
"use strict";

const list = (() => {
  const kMostRows = 50;
  const kShortHex = 18;    // digits that stand beside the text
  const kRowHeight = 31;   // px, estimated
  const kMostInIdle = 6000;  // records that are filled in without need; the browser's search sees them
  const kSlice = 8;        // ms of one turn of the filling in idle time
  const kOps = { write: "\u2192 write", read: "\u2190 read", open: "\u25cb open",
    cancel: "\u00d7 cancel", wait: "\u2026 wait" };
  const kinds = [["bus", "Bus"], ["sleep", "Pauses"], ["log", "Log"], ["other", "Calls, events"]];
  const holder = document.getElementById("list");
  const chunks = [];       // { rows, element, filled }
  const chunkOf = new Map();
  let current = null;      // the record that is marked

  const isAction = (record) => record.object.kind !== "log" && record.object.kind !== "sleep";

  // Rows: an action, then the lines and pauses of its thread at the same time.
  function rowsOf(some) {
    const rows = [];
    let row = null;
    for (const record of some) {
      if (!row || isAction(record) || row[0].thread !== record.thread || row[0].t !== record.t) {
        row = [];
        rows.push(row);
      }
      row.push(record);
    }
    return rows;
  }

  const inStretch = (t, stretches) => stretches.findIndex(([from, to]) => from <= t && t <= to);
  const fieldStretches = field.map((one) => [one.from, one.to]);
  const visitStretches = visits.map((one) => [one.enter.t, one.leave ? one.leave.t : lastTime]);

  const cell = (className, ...content) => make("td", { role: "cell", class: className }, ...content);

  function phoneCell(t) {
    const seen = inStretch(t, fieldStretches) >= 0;
    const visit = inStretch(t, visitStretches);
    return cell("c-phone",
      seen ? make("span", { class: "in-field", title: "a phone is in the field" },
        make("span", { class: "unseen" }, "phone in the field ")) : null,
      visit >= 0 ? make("span", { class: "in-visit", title: "visit " + (visit + 1) },
        make("span", { class: "unseen" }, "visit "), String(visit + 1)) : null);
  }

  function threadCell(name) {
    const dot = make("i", { class: "dot", "aria-hidden": "true" });
    dot.style.setProperty("--lane", threads.indexOf(name));
    return cell("c-thread", make("span", { class: "lines", "aria-hidden": "true" }, dot),
      make("span", { class: "who" }, name));
  }

  const numberLink = (record) => make("a", { class: "own", href: "#o" + record.number,
    tabindex: "-1", "aria-label": "record " + record.number }, String(record.number));
  const bytesOf = (digits) => (digits
    ? make("code", { class: digits.length > kShortHex ? "hex" : "short" }, spaced(digits)) : null);

  function entry(record, className, ...content) {
    const bytes = content.filter((one) => one instanceof Element && one.classList.contains("hex"));
    const others = content.filter((one) => !bytes.includes(one));
    return make("div", { class: "entry " + className, id: "o" + record.number },
      ...others, " ", numberLink(record), ...bytes);
  }

  function actionEntry(record) {
    const object = record.object;
    switch (object.kind) {
      case "bus": {
        const fault = failureOf(record);
        return entry(record, "k-bus", make("span", { class: "op op-" + object.op },
          kOps[object.op] || object.op), " ", object.meaning,
        object.state ? quiet(", " + object.state) : null, " ", fault ? faultBadge(fault)
          : "error" in object ? quiet(errorText(object.error)) : null,
        bytesOf(object.bytes));
      }
      case "event":
        return entry(record, "k-other", make("span", { class: "op op-event" }, "\u25c6 event " +
          object.event), " ", eventText(object), bytesOf(object.number));
      case "phone":
        return object.read
          ? entry(record, "k-other", make("span", { class: "op op-phone" }, "\u2713 phone"),
            " reads ", make("span", { class: "uri" }, object.uri),
            quiet(" " + object.type), bytesOf(object.payload))
          : entry(record, "k-other", make("span", { class: "op op-phone" }, "phone"), " ",
            faultBadge("reads nothing: " + object.problem));
      case "result": {
        const { t, thread, kind, operation, result, ...more } = object;
        const extra = Object.entries(more).map(([name, value]) => name + " " + value).join(", ");
        return entry(record, "k-other", make("span", { class: "op op-call" }, "\u25a0 call"), " ",
          operation, " ", succeeded(result) ? make("span", { class: "done" }, "ok")
            : faultBadge("failed"), extra ? make("code", { class: "hex" }, extra) : null);
      }
      default:
        return entry(record, "k-other", JSON.stringify(object));
    }
  }

  function smallEntry(record) {
    const object = record.object;
    if (object.kind === "sleep") {
      return entry(record, "k-sleep", "pause " + object.ms + " ms");
    }
    const error = object.level === kErrorLevel;
    const [, text, suffix] = /^([^]*?)(\(Log\w+\))?$/.exec(object.line);
    return entry(record, "k-log" + (error ? " error-level" : ""),
      ...(error ? [make("abbr", { class: "level", title: "error level" }, "E"), " "] : []), text.trimEnd(), suffix ? make("span", { class: "suffix" }, suffix) : null);
  }

  function rowElement(row) {
    const first = row[0];
    const left = row.filter((record) => record.object.kind !== "log");
    const right = row.filter((record) => record.object.kind === "log");
    const kindsHere = [...new Set(row.map((record) => "has-" +
      (["bus", "log", "sleep"].includes(record.object.kind) ? record.object.kind : "other")))];
    return make("tr", { role: "row", class: kindsHere.join(" ") +
      (row.some(failureOf) ? " has-fault" : "") },
    make("td", { role: "cell", class: "c-time", title: first.t + " ms" }, seconds(first.t)),
    phoneCell(first.t), threadCell(first.thread),
    cell("c-bus", make("div", { class: "side" },
      ...left.map((record, index) => {
        const element = isAction(record) ? actionEntry(record) : smallEntry(record);
        element.classList.toggle("before-pause", isAction(record) && index + 1 < left.length);
        return element;
      }))),
    cell("c-log", ...right.map(smallEntry)));
  }

  function fill(chunk) {
    if (chunk.filled) {
      return;
    }
    chunk.filled = true;
    const columns = [["c-time", "Time, s"], ["c-phone", "Phone"], ["c-thread", "Thread"],
      ["c-bus", "Bus, calls and events"], ["c-log", "Log"]];
    chunk.element.replaceChildren(make("table", { role: "table", class: "records" },
      make("caption", { class: "unseen" }, "Records " + chunk.rows[0][0].number + " and after"),
      make("thead", { role: "rowgroup" }, make("tr", { role: "row" },
        ...columns.map(([className, text]) =>
          make("th", { role: "columnheader", scope: "col", class: className }, text)))),
      make("tbody", { role: "rowgroup" }, ...chunk.rows.map(rowElement))));
    search.paint(chunk.rows.flat());
  }

  function addChunk(section, rows) {
    const element = make("div", { class: "chunk" });
    element.style.setProperty("--height", rows.length * kRowHeight + "px");
    const chunk = { rows, element, filled: false };
    chunks.push(chunk);
    rows.forEach((row) => row.forEach((record) => chunkOf.set(record.number, chunk)));
    section.append(element);
  }

  function addSection(step, some) {
    const section = make("section", { class: "step" });
    if (step) {
      const outcome = step.succeeded === false ? [" ", faultBadge("failed")] : [];
      step.heading = make("h3", { class: step.host ? "of-host" : "" },
        make("span", { class: "prompt", "aria-hidden": "true" }, "> "),
        step.text, ...outcome,
        quiet(" at " + seconds(step.t) + " s" + (step.line > 0 ? ", line " + step.line : "")));
      section.append(step.heading);
    } else {
      section.append(make("h3", { class: "prose" }, "Before the script",
        quiet(" message, manager, device, first write")));
    }
    const rows = rowsOf(some);
    for (let at = 0; at < rows.length; at += kMostRows) {
      addChunk(section, rows.slice(at, at + kMostRows));
    }
    holder.append(section);
  }

  function build() {
    let step = null;
    let some = [];
    for (const item of entries) {
      if (item.step) {
        if (step || some.length > 0) {
          addSection(step, some);
        }
        step = item.step;
        some = [];
      } else {
        some.push(item);
      }
    }
    addSection(step, some);
    if (ordered.length === 0) {
      holder.append(make("p", {}, "Nothing was recorded."));
    }
  }

  function fillInIdleTime() {
    let next = 0;
    const turn = () => {
      const end = performance.now() + kSlice;
      while (next < chunks.length && performance.now() < end) {
        fill(chunks[next++]);
      }
      if (next < chunks.length && chunks[next].rows[0][0].place < kMostInIdle) {
        later();
      }
    };
    const later = () => (window.requestIdleCallback
      ? requestIdleCallback(turn, { timeout: 200 }) : setTimeout(turn, 20));
    later();
  }

  // Keeps the element in the middle while the tables around it get their heights, which are
  // estimates until then. Ends when somebody scrolls.
  let held = null;
  function hold(element) {
    held = element;
    [0, 60, 250, 1000].forEach((delay) => setTimeout(() => {
      if (held === element) {
        element.scrollIntoView({ block: "center" });
      }
    }, delay));
  }
  ["wheel", "pointerdown", "touchstart", "keydown"].forEach((kind) =>
    window.addEventListener(kind, () => { held = null; }, { passive: true, capture: true }));

  return {
    start() {
      holder.style.setProperty("--lanes", threads.length);
      document.getElementById("kinds").append(...kinds.map(([kind, text]) => {
        const input = make("input", { type: "checkbox", checked: true, id: "kind-" + kind });
        input.addEventListener("change", () =>
          holder.classList.toggle("without-" + kind, !input.checked));
        return make("label", { class: "check" }, input, " " + text);
      }));
      build();
      const near = new IntersectionObserver((seen) => seen.filter((one) => one.isIntersecting)
        .forEach((one) => fill(chunks.find((chunk) => chunk.element === one.target))),
      { rootMargin: "1200px" });
      chunks.forEach((chunk) => near.observe(chunk.element));
      if (chunks.length > 0) {
        fill(chunks[0]);
      }
      fillInIdleTime();
      window.addEventListener("beforeprint", () => chunks.forEach(fill));
    },
    current: () => current,
    // Marks a record or a step's heading and scrolls to it.
    show(record, focus) {
      if (record.object) {
        fill(chunkOf.get(record.number));
      }
      holder.querySelectorAll(".current").forEach((one) => {
        one.classList.remove("current");
        one.removeAttribute("aria-current");
        one.removeAttribute("tabindex");
      });
      const element = record.object ? document.getElementById("o" + record.number)
        : record.step.heading;
      if (element.getClientRects().length === 0) {
        // Its kind is not shown at the moment.
        kinds.forEach(([kind]) => {
          document.getElementById("kind-" + kind).checked = true;
          holder.classList.remove("without-" + kind);
        });
      }
      element.classList.add("current");
      element.setAttribute("aria-current", "true");
      element.setAttribute("tabindex", "-1");
      hold(element);
      if (focus) {
        element.focus({ preventScroll: true });
      }
      if (record.object) {
        current = record;
        timeline.select(record);
      }
    },
  };
})();
