/** The wave form of a clip in its speakers' colours; a click jumps. */

import { clock, el } from "./dom.js";

export class Wave {
  constructor({ onSeek }) {
    this.canvas = el("canvas", {});
    this.cursor = el("div", { class: "cursor" });
    this.range = el("div", { class: "range", hidden: true });
    this.element = el("div", {
      class: "wave", role: "slider", tabindex: "0", "aria-label": "Position in the clip", "aria-valuemin": "0",
      "aria-valuemax": "0", "aria-valuenow": "0", "aria-valuetext": "0:00",
      on: {
        pointerdown: (event) => {
          this.element.setPointerCapture(event.pointerId);
          this.#jump(event, onSeek);
        },
        pointermove: (event) => {
          if (event.buttons & 1) this.#jump(event, onSeek);
        },
      },
    }, this.canvas, this.range, this.cursor);
    this.durationMs = 0;
    this.peaks = new Uint8Array();
    this.segments = [];
    this.observer = new ResizeObserver(() => this.draw());
    this.observer.observe(this.element);
    this.scheme = matchMedia("(prefers-color-scheme: dark)");
    this.redraw = () => this.draw();
    this.scheme.addEventListener("change", this.redraw);
  }

  #jump(event, onSeek) {
    const box = this.element.getBoundingClientRect();
    onSeek(((event.clientX - box.left) / box.width) * this.durationMs);
  }

  setDuration(ms) {
    this.durationMs = ms;
    this.element.setAttribute("aria-valuemax", String(Math.round(ms / 1000)));
    this.draw();
  }

  /** `colourOf` gives the number of a segment's colour. */
  setSegments(segments, colourOf) {
    this.segments = segments;
    this.colourOf = colourOf;
    this.draw();
  }

  setPeaks(peaks) {
    this.peaks = peaks;
    this.draw();
  }

  setPosition(ms) {
    const part = this.durationMs ? Math.min(ms / this.durationMs, 1) : 0;
    this.cursor.style.left = `${part * 100}%`;
    const seconds = String(Math.round(ms / 1000));
    if (this.element.getAttribute("aria-valuenow") === seconds) return;
    this.element.setAttribute("aria-valuenow", seconds);
    this.element.setAttribute("aria-valuetext", clock(ms));
  }

  setRange(fromMs, toMs) {
    this.range.hidden = fromMs === null || toMs === null || !this.durationMs;
    if (this.range.hidden) return;
    this.range.style.left = `${(fromMs / this.durationMs) * 100}%`;
    this.range.style.width = `${((toMs - fromMs) / this.durationMs) * 100}%`;
  }

  draw() {
    const scale = devicePixelRatio;
    const width = Math.round(this.element.clientWidth * scale);
    const height = Math.round(this.element.clientHeight * scale);
    if (!width || !this.durationMs) return;
    this.canvas.width = width;
    this.canvas.height = height;
    const colours = this.#colours(width);
    const context = this.canvas.getContext("2d");
    const perMs = this.peaks.length / this.durationMs;
    for (let x = 0; x < width; ++x) {
      const begin = Math.floor((x / width) * this.durationMs * perMs);
      const end = Math.max(Math.floor(((x + 1) / width) * this.durationMs * perMs), begin + 1);
      let loudest = 0;
      for (let i = begin; i < Math.min(end, this.peaks.length); ++i) loudest = Math.max(loudest, this.peaks[i]);
      const bar = Math.max(Math.sqrt(loudest / 255) * height * 0.92, scale);
      context.fillStyle = colours[x];
      context.fillRect(x, (height - bar) / 2, 1, bar);
    }
  }

  /** The colour of each column. */
  #colours(width) {
    const style = getComputedStyle(this.element);
    const palette = Array.from({ length: 8 }, (_, i) => style.getPropertyValue(`--voice${i}`));
    const colours = new Array(width).fill(style.getPropertyValue("--quiet"));
    for (const segment of this.segments) {
      const from = Math.floor((segment.startMS / this.durationMs) * width);
      const to = Math.ceil((segment.endMS / this.durationMs) * width);
      colours.fill(palette[this.colourOf(segment)], from, Math.max(to, from + 1));
    }
    return colours;
  }

  close() {
    this.observer.disconnect();
    this.scheme.removeEventListener("change", this.redraw);
  }
}
