// Draws the timeline: script, field and visits, then a lane for each thread. One path for each kind
// of mark and lane, so that a long run needs few elements. The cursor steps from record to record.
"use strict";

const timeline = (() => {
  const kSvg = "http://www.w3.org/2000/svg";
  const kAxis = 22;
  const kBand = 24;
  const kLane = 46;
  const kQuiet = 1000;      // ms without a record, from which a stretch is shortened
  const kShortened = 260;   // ms that a shortened stretch takes, at most kMostOfWidth of all
  const kMostOfWidth = 0.09;
  const kMostWidth = 120000;
  const kLabelSpace = 74;   // px up to the next frame, from which a frame has its meaning beside it
  const kGlyph = 5.7;       // px of a character of a label
  const kMostLabels = 600;
  const scroller = document.getElementById("scroller");
  const readout = document.getElementById("readout");
  const bands = [
    { name: "Script", top: kAxis },
    { name: "Phone in the field", top: kAxis + kBand },
    { name: "Visit reported", top: kAxis + 2 * kBand },
  ];
  const lanesTop = kAxis + bands.length * kBand + 4;
  const height = lanesTop + threads.length * kLane + 4;
  const laneOf = new Map(threads.map((name, index) => [name, lanesTop + index * kLane]));

  let perMs = 1;      // px for each ms of the drawn scale
  let knots = [];     // [t, drawn ms], rising; between two the scale is linear
  let cursor = -1;    // place of the record under the cursor
  let svg = null;
  let cursorLine = null;

  function draw(name, attributes, text) {
    const element = document.createElementNS(kSvg, name);
    for (const [key, value] of Object.entries(attributes)) {
      element.setAttribute(key, value);
    }
    if (text !== undefined) {
      element.textContent = text;
    }
    return element;
  }

  function makeScale(shorten) {
    const times = new Set([0, lastTime]);
    entries.forEach((entry) => times.add(entry.t));
    field.forEach((stretch) => times.add(stretch.from).add(Math.min(stretch.to, lastTime)));
    for (const record of records) {
      if (record.object.kind === "sleep") {
        times.add(Math.min(record.t + record.object.ms, lastTime));
      }
    }
    const sorted = [...times].sort((a, b) => a - b);
    const gaps = sorted.slice(1).map((time, index) => time - sorted[index]);
    const isQuiet = (gap) => shorten && gap > kQuiet;
    const busy = gaps.reduce((sum, gap) => sum + (isQuiet(gap) ? 0 : gap), 0);
    // n stretches of w each beside `busy`: w <= kMostOfWidth * (busy + n * w).
    const rest = 1 - kMostOfWidth * gaps.filter(isQuiet).length;
    const shortened = rest > 0 ? Math.min(kShortened, kMostOfWidth * busy / rest) : kShortened;
    knots = [[0, 0, false]];
    let drawn = 0;
    gaps.forEach((gap, index) => {
      drawn += isQuiet(gap) ? shortened : gap;
      knots.push([sorted[index + 1], drawn, isQuiet(gap)]);
    });
  }

  function between(value, from, to) {
    if (knots.length < 2) {
      return 0;
    }
    const after = firstIndex(knots, (knot) => knot[from] > value);
    const at = Math.max(Math.min(after, knots.length - 1) - 1, 0);
    const [left, right] = [knots[at], knots[at + 1]];
    const span = right[from] - left[from];
    return left[to] + (span > 0 ? (value - left[from]) / span : 0) * (right[to] - left[to]);
  }
  const kPad = 8;
  const place = (t) => kPad + between(Math.min(t, lastTime), 0, 1) * perMs;
  const timeAt = (x) => between((x - kPad) / perMs, 1, 0);
  const drawnLength = () => Math.max(knots[knots.length - 1][1], 1);

  const visible = () => Math.max(scroller.clientWidth, 200);
  const fit = () => (visible() - 2 * kPad) / drawnLength();

  // Paths by lane and kind. A mark that would cover another one of its kind is left out.
  class Marks {
    constructor() {
      this.paths = new Map();
      this.taken = new Set();
    }
    add(className, x, top, path) {
      const key = className + Math.round(x * 2) + "," + top;
      if (!this.taken.has(key)) {
        this.taken.add(key);
        this.paths.set(className, (this.paths.get(className) || "") + path);
      }
    }
    into(group) {
      for (const [className, path] of this.paths) {
        group.append(draw("path", { class: className, d: path }));
      }
    }
  }

  const cross = (x, y, r) => `M${x - r} ${y - r}l${2 * r} ${2 * r}m${-2 * r} 0l${2 * r} ${-2 * r}`;
  const diamond = (x, y, r) => `M${x} ${y - r}l${r} ${r}l${-r} ${r}l${-r} ${-r}z`;
  const box = (x, y, width, high) => `M${x} ${y}h${width}v${high}h${-width}z`;
  const round = (value) => Math.round(value * 10) / 10;

  function addMark(marks, record, top) {
    const object = record.object;
    const x = round(place(record.t));
    const middle = top + 24;
    switch (object.kind) {
      case "bus":
        if (object.op === "write") {
          marks.add("m-write", x, top, box(x - 1, middle - 10, 2, 10));
        } else if (object.op === "read") {
          marks.add("m-read", x, top, box(x - 1, middle, 2, 10));
        } else if (object.op !== "wait") {
          marks.add("m-open", x, top, diamond(x, middle, 3.5));
        }
        break;
      case "log":
        marks.add(object.level === kErrorLevel ? "m-line m-line-error" : "m-line", x, top,
          box(x - 0.5, top + 37, 1, object.level === kErrorLevel ? 7 : 4));
        break;
      case "sleep": {
        const width = round(Math.max(place(record.t + object.ms) - x, 0.5));
        marks.add("m-sleep", x, top, box(x, middle - 2, width, 4));
        break;
      }
      case "event":
        marks.add("m-event", x, top, diamond(x, middle, 6));
        break;
      case "result": {
        const from = round(place(record.begin));
        marks.add(succeeded(object.result) ? "m-call" : "m-call failed", from, top,
          box(from, middle - 8, round(Math.max(x - from, 1)), 16));
        marks.add(succeeded(object.result) ? "m-done" : "m-failed", x, top,
          box(x - 3, middle - 3, 6, 6));
        break;
      }
      default:
        break;
    }
    if (failureOf(record)) {
      marks.add("m-fault", x, top, cross(x, middle - 15, 3.5));
    }
  }

  function addWaits(marks) {
    const begun = {};
    for (const record of ordered) {
      const { kind, op, state } = record.object;
      if (kind !== "bus" || op !== "wait") {
        continue;
      }
      if (state === "begun") {
        begun[record.thread] = record;
      } else if (begun[record.thread]) {
        const from = place(begun[record.thread].t);
        const width = round(Math.max(place(record.t) - from, 0.5));
        const top = laneOf.get(record.thread);
        marks.add("m-wait", from, top, `M${round(from)} ${top + 24}h${width}`);
        marks.add("m-wait-end", from + width, top, `M${round(from + width)} ${top + 20}v8`);
        begun[record.thread] = null;
      }
    }
  }

  function labels(group) {
    let left = kMostLabels;
    for (const name of threads) {
      const top = laneOf.get(name);
      const shown = ordered.filter((record) => record.thread === name &&
        (record.object.kind === "event" || (record.object.kind === "bus" &&
          record.object.op !== "wait") || record.object.kind === "result"));
      shown.forEach((record, index) => {
        const object = record.object;
        const x = place(record.t);
        const end = index + 1 < shown.length ? place(shown[index + 1].t) : place(lastTime);
        const space = Math.min(end - x, 420);
        const text = object.kind === "event" ? "event " + object.event
          : object.kind === "result" ? object.operation : object.meaning;
        const fits = Math.floor((space - 8) / kGlyph);
        const short = object.kind !== "bus";
        if (left > 0 && (short ? fits >= Math.min(text.length + 1, 9) : space >= kLabelSpace)) {
          --left;
          group.append(draw("text", { class: "label", x: round(x + (short || failureOf(record) ? 8 : 3)),
            y: short ? top + 14 : top + 9 },
            text.length > fits ? text.slice(0, Math.max(fits - 1, 1)) + "\u2026" : text));
        }
      });
    }
  }

  function band(group, from, to, top, className, text) {
    const x = round(place(from));
    const width = round(Math.max(place(to) - x, 2));
    group.append(draw("rect", { class: className, x, y: top + 4, width, height: kBand - 8, rx: 2 }));
    const fits = Math.floor((width - 6) / kGlyph);
    if (text && fits >= Math.min(text.length, 3)) {
      group.append(draw("text", { class: "label band-label", x: x + 4, y: top + 15.5 },
        text.length > fits ? text.slice(0, fits - 1) + "\u2026" : text));
    }
  }

  function axis(group, width) {
    const steps = [1, 2, 5, 10, 20, 50, 100, 200, 500, 1e3, 2e3, 5e3, 1e4, 3e4, 6e4, 3e5, 6e5];
    const step = steps.find((one) => one * perMs >= 76) || 6e5;
    let free = -Infinity;
    const digits = step >= 1000 ? 0 : step >= 100 ? 1 : step >= 10 ? 2 : 3;
    const tick = (t, always) => {
      const x = place(t);
      if (x >= free && x <= width - 46) {
        const [whole, part] = seconds(t).split(".");
        const shown = Math.max(digits, always ? 1 : 0);
        const text = shown === 0 || t === 0 ? whole : whole + "." + part.slice(0, shown);
        group.append(draw("path", { class: "tick", d: `M${round(x)} ${kAxis - 5}V${height}` }));
        group.append(draw("text", { class: "label axis-label", x: round(x + 3), y: 12 },
          text + "\u2009s"));
        free = x + 70;
      }
    };
    for (let index = 0; index + 1 < knots.length; ++index) {
      const [from] = knots[index];
      const [to, , quiet] = knots[index + 1];
      if (quiet) {
        const x = round(place(from));
        const wide = round(place(to) - x);
        group.append(draw("rect", { class: "quiet-stretch", x, y: kAxis, width: wide,
          height: height - kAxis }));
      }
    }
    // A time where each stretch begins, then the multiples of the step inside it.
    for (let index = 0; index < knots.length;) {
      let end = index;
      while (end + 1 < knots.length && !knots[end + 1][2]) {
        ++end;
      }
      tick(knots[index][0], true);
      for (let t = (Math.floor(knots[index][0] / step) + 1) * step; t <= knots[end][0]; t += step) {
        tick(t, false);
      }
      index = end + 1;
    }
  }

  function redraw() {
    perMs = Math.max(fit(), Math.min(perMs, (kMostWidth - 2 * kPad) / drawnLength()));
    const width = Math.ceil(drawnLength() * perMs + 2 * kPad);
    svg = draw("svg", { width, height, viewBox: `0 0 ${width} ${height}`, "aria-hidden": "true",
      class: "lanes" });
    const defs = draw("defs", {});
    const hatch = draw("pattern", { id: "hatch", width: 6, height: 6,
      patternUnits: "userSpaceOnUse", patternTransform: "rotate(45)" });
    hatch.append(draw("rect", { width: 6, height: 6, class: "hatch-ground" }),
      draw("rect", { width: 2, height: 6, class: "hatch-line" }));
    defs.append(hatch);
    svg.append(defs);
    threads.forEach((name, index) => svg.append(draw("rect", { class: index % 2 ? "lane odd" : "lane",
      x: 0, y: laneOf.get(name), width, height: kLane })));
    axis(svg, width);
    facts.steps.forEach((step) => {
      if (step.host === 0 && !step.block) {
        band(svg, step.t, step.end ?? lastTime, bands[0].top,
          step.succeeded === false ? "band step failed" : "band step", step.text);
      }
    });
    field.forEach((stretch) => band(svg, stretch.from, stretch.to, bands[1].top, "band field",
      stretch.route));
    visits.forEach((visit, index) => band(svg, visit.enter.t, visit.leave ? visit.leave.t : lastTime,
      bands[2].top, "band visit", String(index + 1)));
    const marks = new Marks();
    addWaits(marks);
    ordered.forEach((record) => {
      if (record.object.kind === "phone") {
        const x = round(place(record.t));
        const top = bands[1].top + 12;
        marks.add(record.object.read ? "m-phone" : "m-fault", x, top,
          record.object.read ? `M${x + 3} ${top}l3 3l6 -7` : cross(x + 7, top, 4));
      } else {
        addMark(marks, record, laneOf.get(record.thread));
      }
    });
    marks.into(svg);
    labels(svg);
    cursorLine = draw("path", { class: "cursor", d: "" });
    svg.append(cursorLine);
    scroller.replaceChildren(svg);
    showCursor(false);
  }

  function showCursor(follow) {
    if (cursor < 0) {
      return;
    }
    const record = ordered[cursor];
    const x = place(record.t);
    const top = laneOf.get(record.thread);
    cursorLine.setAttribute("d", `M${x} ${kAxis}V${height}M${x - 7} ${top + 1}h14v${kLane - 2}h-14z`);
    if (follow && (x < scroller.scrollLeft + 30 || x > scroller.scrollLeft + visible() - 30)) {
      scroller.scrollLeft = x - visible() / 2;
    }
    say(record);
    scroller.setAttribute("aria-valuenow", cursor + 1);
    scroller.setAttribute("aria-valuetext", "record " + record.number + ", " + seconds(record.t) +
      " seconds, thread " + record.thread + ", " + describe(record));
  }

  function say(record) {
    readout.replaceChildren(make("strong", {}, seconds(record.t) + " s"), " ",
      make("span", { class: "who" }, record.thread), " ", describe(record), " ",
      linkTo(record, "record " + record.number));
  }

  function zoom(factor, around) {
    const middle = around ?? scroller.scrollLeft + visible() / 2;
    const t = timeAt(middle);
    const offset = middle - scroller.scrollLeft;
    perMs *= factor;
    redraw();
    scroller.scrollLeft = place(t) - offset;
  }

  function showAll() {
    perMs = 0;
    redraw();
  }

  function nearest(event) {
    const bounds = svg.getBoundingClientRect();
    const x = event.clientX - bounds.left;
    const y = event.clientY - bounds.top;
    const thread = threads.find((name) => y >= laneOf.get(name) && y < laneOf.get(name) + kLane);
    let low = firstIndex(ordered, (record) => place(record.t) >= x - 10);
    // A frame is easier to mean than a pause or a line of the log at the same time.
    const rank = (record) => (failureOf(record) ? 0 : record.object.kind === "log" ? 6
      : record.object.kind === "sleep" ? 4 : 2);
    let best = null;
    let bestCost = Infinity;
    for (; low < ordered.length && place(ordered[low].t) <= x + 10; ++low) {
      const record = ordered[low];
      const cost = Math.abs(place(record.t) - x) + rank(record);
      if (record.thread === thread && cost < bestCost) {
        best = record;
        bestCost = cost;
      }
    }
    return best;
  }

  function moveTo(next) {
    cursor = Math.max(0, Math.min(ordered.length - 1, next));
    showCursor(true);
  }

  function onKey(event) {
    const moves = { ArrowRight: 1, ArrowUp: 1, ArrowLeft: -1, ArrowDown: -1, PageUp: 20,
      PageDown: -20, Home: -Infinity, End: Infinity };
    if (event.ctrlKey || event.metaKey || event.altKey || ordered.length === 0) {
      return;
    }
    if (event.key in moves) {
      moveTo(cursor + moves[event.key]);
    } else if (event.key === "Enter" && cursor >= 0) {
      location.hash = "#o" + ordered[cursor].number;
    } else if (event.key === "+" || event.key === "-") {
      zoom(event.key === "+" ? 2 : 0.5, cursor >= 0 ? place(ordered[cursor].t) : undefined);
    } else {
      return;
    }
    event.preventDefault();
  }

  function legend() {
    const entriesOfLegend = [
      ["m-write", box(6, 3, 2, 8), "written (up)"], ["m-read", box(6, 7, 2, 8), "read (down)"],
      ["m-open", diamond(8, 8, 4), "open or cancel"], ["m-wait", "M0 8h16", "waits for an interrupt"],
      ["m-sleep", box(0, 6, 16, 4), "pause"], ["m-event", diamond(8, 8, 6), "event"],
      ["m-call", box(0, 2, 16, 12), "call, up to its end"],
      ["m-done", box(5, 5, 6, 6), "call worked"], ["m-failed", box(5, 5, 6, 6), "call failed"],
      ["m-fault", cross(8, 8, 4), "failure"], ["m-line", box(7, 8, 1, 4), "log line"],
      ["m-line m-line-error", box(7, 5, 1, 7), "log line, error level"],
      ["m-phone", "M3 8l4 4l7 -8", "phone has read the tag"],
    ];
    document.getElementById("legend").append(...entriesOfLegend.map(([className, path, text]) => {
      const sign = draw("svg", { width: 16, height: 16, viewBox: "0 0 16 16", "aria-hidden": "true" });
      sign.append(draw("path", { class: className, d: path }));
      return make("span", {}, sign, text);
    }));
  }

  function describeAll() {
    document.getElementById("timeline-text").textContent = ordered.length === 0
      ? "Nothing was recorded." : plural(records.length, "record") + " of " + plural(threads.length, "thread") + " (" +
        threads.join(", ") + ") in " + seconds(lastTime) + " seconds, with " +
        plural(visits.length, "visit") + " and " + plural(failures.length, "failure") +
        ". The tables below list the same records as text.";
  }

  return {
    start() {
      document.getElementById("lane-names").append(
        ...bands.map(({ name }) => make("span", { class: "band-name" }, name)),
        ...threads.map((name) => make("span", { class: "lane-name" }, name)));
      makeScale(true);
      describeAll();
      legend();
      scroller.setAttribute("aria-valuemin", Math.min(1, ordered.length));
      scroller.setAttribute("aria-valuemax", ordered.length);
      scroller.setAttribute("aria-valuenow", Math.min(1, ordered.length));
      scroller.setAttribute("aria-valuetext", "no record chosen yet");
      showAll();
      document.getElementById("shorten").addEventListener("change", (event) => {
        makeScale(event.target.checked);
        showAll();
      });
      document.getElementById("zoom-in").addEventListener("click", () => zoom(2));
      document.getElementById("zoom-out").addEventListener("click", () => zoom(0.5));
      document.getElementById("zoom-fit").addEventListener("click", showAll);
      scroller.addEventListener("keydown", onKey);
      scroller.addEventListener("mousemove", (event) => {
        const record = nearest(event);
        if (record) {
          say(record);
        }
      });
      scroller.addEventListener("click", (event) => {
        const record = nearest(event);
        if (record) {
          cursor = record.place;
          showCursor(false);
        }
      });
      scroller.addEventListener("wheel", (event) => {
        if (event.ctrlKey) {
          event.preventDefault();
          zoom(event.deltaY < 0 ? 1.4 : 1 / 1.4,
            event.clientX - svg.getBoundingClientRect().left);
        }
      }, { passive: false });
      let pending = 0;
      window.addEventListener("resize", () => {
        cancelAnimationFrame(pending);
        pending = requestAnimationFrame(redraw);
      });
    },
    select(record) {
      cursor = record.place;
      showCursor(true);
    },
    showAll,
  };
})();
