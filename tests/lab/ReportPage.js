// What scripts/checks/report asks of a page of `tagport-lab run --report`. Runs in the page, before
// the page's own scripts.
"use strict";

{
  const all = (selector) => [...document.querySelectorAll(selector)];

  // Of a colour as computed styles have it.
  const numbersOf = (colour) => colour.match(/[\d.]+/g).map(Number);
  const luminance = (colour) => colour.slice(0, 3).map((one) => one / 255)
    .map((one) => (one <= 0.04045 ? one / 12.92 : ((one + 0.055) / 1.055) ** 2.4))
    .reduce((sum, one, index) => sum + one * [0.2126, 0.7152, 0.0722][index], 0);
  const groundOf = (element) => {
    const ground = numbersOf(getComputedStyle(element).backgroundColor);
    return ground[3] === 0 && element.parentElement ? groundOf(element.parentElement) : ground;
  };
  const contrastOf = (element) => {
    const { color, opacity } = getComputedStyle(element);
    const ground = groundOf(element);
    const ink = numbersOf(color).map((value, index) => value * opacity + ground[index] * (1 - opacity));
    const [dark, bright] = [luminance(ink), luminance(ground)].sort((a, b) => a - b);
    return (bright + 0.05) / (dark + 0.05);
  };
  const hasText = (element) => element.checkVisibility() && !element.closest("svg, .unseen, .skip") &&
    [...element.childNodes].some((node) => node.nodeType === Node.TEXT_NODE && node.data.trim());

  window.questions = {
    // What had the focus of the keyboard.
    reached: [],

    // What the page shows, as one object.
    shown() {
      const width = document.querySelector("svg.lanes").width.baseVal.value;
      const ids = all("[id]").map((one) => one.id);
      return {
        ...Object.fromEntries(all("#figures dd").map((one) =>
          [one.id.replace("figure-", ""), Number(one.textContent)])),
        verdict: document.getElementById("verdict").textContent,
        link: document.querySelector("#verdict a")?.hash || "",
        "listed failures": all("#failures tbody tr").length,
        "repeated ids": ids.length - new Set(ids).size,
        "elements of a text": all("img, iframe, object").length,
        requests: performance.getEntriesByType("resource").length,
        scripts: document.scripts.length,
        stretch: Math.max(0, ...all(".quiet-stretch").map((one) => one.width.baseVal.value / width)),
        call: Math.max(0, ...all("svg.lanes .m-call").flatMap((one) =>
          [...one.getAttribute("d").matchAll(/h([\d.]+)v/g)].map((found) => Number(found[1])))),
        entries: Object.fromEntries(all(".entry").map((one) => [one.id,
          one.closest("tr").querySelector(".c-thread .who").textContent + " " + one.textContent])),
        tag: all(".grids figure:last-child td.byte").map((one) => one.textContent).join(""),
        text: document.body.innerText,
      };
    },

    // The lowest contrast of a text with its ground, and that text.
    lowestContrast: () => all("body *").filter(hasText)
      .map((element) => [contrastOf(element), element.textContent]).sort((a, b) => a[0] - b[0])[0],

    // Whether it holds within a minute.
    async becomes(condition) {
      for (let left = 600; left > 0 && !condition(); --left) {
        await new Promise((done) => setTimeout(done, 100));
      }
      return condition();
    },

    async scroll(frames) {
      for (let frame = 0; frame < frames; ++frame) {
        scrollBy(0, 200);
        await new Promise((done) => requestAnimationFrame(done));
      }
    },
  };
  addEventListener("focusin", ({ target }) =>
    questions.reached.push(target.id || target.getAttribute("href") + target.className));
}
