// Shows the tag's memory in two states side by side, coloured by field, and the fields as a table.
"use strict";

const memory = (() => {
  const kInRow = 16;
  // Fields of one group have one colour, one letter and a name in the legend.
  const kGroups = [
    ["F", "frame", "frame", ["TLV tag", "TLV length", "terminator"]],
    ["H", "head", "head of the URI record", ["URI record", "URI type length", "URI payload length", "URI type",
      "URI identifier code"]],
    ["U", "uri", "URI text", ["URI text"]],
    ["D", "head2", "head of the media record", ["media record", "media type length", "media payload length"]],
    ["T", "type", "media type", ["media type"]],
    ["V", "version", "version", ["version"]],
    ["A", "mac", "MAC address", ["MAC address"]],
    ["N", "number", "random number", ["random number"]],
    ["P", "model", "PC model", ["PC model"]],
  ];
  const kOther = ["X", "rest", "other"];
  const states = facts.tag.states;
  const body = document.getElementById("tag-body");

  const groupOf = (name) => kGroups.find((group) => group[3].includes(name)) || kOther;
  const hexOf = (state, offset, size = 1) => state.bytes.slice(2 * offset, 2 * (offset + size));
  const hexRange = (state, one) => hexOf(state, one.offset, one.size);

  function fieldsByOffset(state) {
    const at = [];
    for (const one of facts.tag.layouts[state.layout] || []) {
      for (let offset = one.offset; offset < one.offset + one.size; ++offset) {
        at[offset] = { one, first: offset === one.offset };
      }
    }
    return at;
  }

  function printable(hex) {
    const code = parseInt(hex, 16);
    return code >= 0x20 && code < 0x7f ? String.fromCharCode(code) : "\u00b7";
  }

  function grid(title, state, other, size) {
    const at = fieldsByOffset(state);
    const rows = [];
    for (let row = 0; row < size; row += kInRow) {
      const cells = [];
      let text = "";
      for (let offset = row; offset < row + kInRow; ++offset) {
        if (offset >= size) {
          cells.push(make("td", { class: "none" }));
          continue;
        }
        const hex = hexOf(state, offset);
        const found = at[offset];
        const group = found ? groupOf(found.one.name) : null;
        const changed = other && !other.blank && hex !== hexOf(other, offset);
        const name = found ? found.one.name : "no field";
        const cell = make("td", {
          class: ["byte", group ? "g-" + group[1] : "g-blank", found && found.first ? "first" : "",
            changed ? "changed" : "",
            state.fault && state.fault.offset === offset ? "refused" : ""].join(" ").trim(),
          title: `offset ${offset}, register ${facts.tag.register + offset}: ${name}` +
            (changed ? ", changed from " + hexOf(other, offset) : ""),
        }, hex);
        if (found && found.first) {
          cell.dataset.letter = group[0];
        }
        cells.push(cell);
        text += printable(hex);
      }
      rows.push(make("tr", {}, make("th", { scope: "row" }, String(row)), ...cells,
        make("td", { class: "text", "aria-hidden": "true" }, text)));
    }
    const heads = Array.from({ length: kInRow }, (_, index) =>
      make("th", { scope: "col" }, index.toString(16).toUpperCase()));
    return make("figure", { class: "grid" },
      make("figcaption", {}, make("strong", {}, title + ":"), " ", state.label,
        quiet(" at " + seconds(state.t) + " s" +
          (state.blank ? ", blank" : ", image of " + plural(state.size, "byte")))),
      make("table", { class: "bytes" },
        make("caption", { class: "unseen" }, title + ": the bytes of the tag, sixteen in a row"),
        make("thead", {}, make("tr", {}, make("th", { scope: "col", class: "quiet" }, "offset"),
          ...heads, make("th", { scope: "col", class: "text" }, "text"))),
        make("tbody", {}, ...rows)),
      state.fault ? make("p", { class: "fault" }, "\u2715 not a valid image: offset " +
        state.fault.offset + ": " + state.fault.check) : null,
      ...state.remarks.map((remark) => make("p", { class: "quiet" }, remark)));
  }

  // Long values are cut in the middle of no byte; the grid has all of them.
  function value(state, one) {
    const hex = hexRange(state, one);
    return make("code", {}, spaced(hex.length > 32 ? hex.slice(0, 32) : hex) +
      (hex.length > 32 ? " \u2026" : ""));
  }

  // The letters and colours; the fields one by one are folded away.
  function legend(from, to) {
    const used = new Set([from, to].flatMap((state) => (facts.tag.layouts[state.layout] || [])
      .map((one) => groupOf(one.name))));
    return make("div", { class: "legend" }, ...[...kGroups, kOther].filter((one) => used.has(one))
      .map(([letter, className, name]) =>
        make("span", {}, make("span", { class: "letter g-" + className }, letter), name)),
    from.blank ? null : make("span", {}, make("span", { class: "mark-changed" }, "00"),
      "changed since before"));
  }

  function fieldTable(from, to) {
    const layout = facts.tag.layouts[to.layout] || [];
    const rows = layout.map((one) => {
      const [letter, className] = groupOf(one.name);
      const before = hexRange(from, one);
      const was = from.blank ? "blank" : before === hexRange(to, one) ? "same" : null;
      return [make("span", { class: "letter g-" + className }, letter), String(one.offset),
        String(one.size), one.name + (one.meaning && one.meaning.length < 40 ? ": " + one.meaning : ""),
        value(to, one), was || make("span", { class: "mark-changed" }, "changed")];
    });
    return table("Fields of the tag after", ["", "offset", "bytes", "field", "value after",
      "before"], rows, "fields");
  }

  function show(from, to) {
    const size = Math.min(Math.max(from.size, to.size), to.bytes.length / 2) ||
      to.bytes.length / 2;
    body.replaceChildren(make("div", { class: "grids" },
      grid("Before", from, null, size), grid("After", to, from, size)), legend(from, to),
    make("details", {}, make("summary", {}, "Fields one by one"), fieldTable(from, to)));
  }

  function choice(id, text, chosen, onChange) {
    const select = make("select", { id }, ...states.map((state, index) =>
      make("option", { value: index, selected: index === chosen },
        seconds(state.t) + " s, " + state.label)));
    select.addEventListener("change", onChange);
    return make("label", {}, text + " ", select);
  }

  return {
    start() {
      if (states.length === 0) {
        body.append(make("p", {}, "The memory of this PC's tag cannot be read."));
        return;
      }
      const last = states.length - 1;
      // Where the tag was written again after the first time, the comparison with a blank one would
      // say nothing.
      const written = states.findIndex((state) => !state.blank);
      const first = written >= 0 && states.slice(written + 1).some((state) =>
        state.bytes !== states[written].bytes) ? written : 0;
      const chosen = () => {
        const at = (id) => states[Number(document.getElementById(id).value)];
        show(at("tag-from"), at("tag-to"));
      };
      document.getElementById("tag-tools").append(choice("tag-from", "Before", first, chosen),
        choice("tag-to", "After", last, chosen));
      show(states[first], states[last]);
      window.addEventListener("beforeprint", () => body.querySelectorAll("details")
        .forEach((one) => { one.open = true; }));
    },
  };
})();
