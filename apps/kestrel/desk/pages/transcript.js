/**
 * Lines of a transcript on the page.
 *
 * Each line is one text node: words are lit, found and marked by highlights over ranges of it, so that a hundred thousand
 * words need no elements of their own. Lines out of sight are not laid out (`content-visibility`).
 */

import { clock, el } from "./dom.js";

const SPEAKER_COLOURS = 8;
const canHighlight = typeof Highlight === "function" && CSS.highlights !== undefined;

/** Last position in a sorted array whose value is not above `value`; -1 when there is none. */
export function lastNotAbove(values, value) {
  let low = 0;
  let high = values.length;
  while (low < high) {
    const middle = (low + high) >> 1;
    if (values[middle] <= value) low = middle + 1;
    else high = middle;
  }
  return low - 1;
}

export class Transcript {
  /** `onWord` is called with the start of the word that is clicked, in milliseconds. */
  constructor(segments, { onWord }) {
    this.segments = segments;
    this.colours = new Map();
    for (const { speaker } of segments) {
      if (!this.colours.has(speaker)) this.colours.set(speaker, this.colours.size % SPEAKER_COLOURS);
    }
    this.#index();
    this.lines = segments.map((segment, i) => this.#line(segment, segments[i - 1]?.speaker));
    this.element = el("div", { class: "lines", on: { click: (event) => this.#click(event, onWord) } }, ...this.lines);
    this.lit = -1;
  }

  /** Words of all lines, one behind the other. */
  #index() {
    const count = this.segments.reduce((sum, segment) => sum + segment.wordStartsMS.length, 0);
    this.starts = new Float64Array(count);
    this.ends = new Float64Array(count);
    this.lineOf = new Uint32Array(count);
    this.firstWord = new Uint32Array(this.segments.length + 1);
    let word = 0;
    this.segments.forEach((segment, line) => {
      this.firstWord[line] = word;
      for (let i = 0; i < segment.wordStartsMS.length; ++i, ++word) {
        this.starts[word] = segment.wordStartsMS[i];
        this.ends[word] = segment.wordEndsMS[i];
        this.lineOf[word] = line;
      }
    });
    this.firstWord[this.segments.length] = word;
  }

  #line(segment, speakerBefore) {
    const isNew = segment.speaker !== speakerBefore;
    return el(
      "div",
      { class: `line voice${this.colours.get(segment.speaker)}${isNew ? " turn" : ""}` },
      el("span", { class: "when" }, clock(segment.startMS)),
      el("span", { class: "who" }, isNew ? segment.speaker : ""),
      el("p", { lang: segment.language || null, dir: "auto" }, segment.text),
    );
  }

  #text(line) {
    return this.lines[line].lastChild.firstChild;
  }

  #click(event, onWord) {
    if (!getSelection().isCollapsed) return; // text is being selected
    const paragraph = event.target.closest("p");
    if (!paragraph) return;
    const line = this.lines.indexOf(paragraph.parentElement);
    const at = document.caretPositionFromPoint
      ? document.caretPositionFromPoint(event.clientX, event.clientY)?.offset
      : document.caretRangeFromPoint(event.clientX, event.clientY)?.startOffset;
    const word = Math.max(lastNotAbove(this.segments[line].wordBegins, at ?? 0), 0);
    onWord(this.segments[line].wordStartsMS[word]);
  }

  /** The word that is spoken at a time or was last; -1 before the first. */
  wordAt(ms) {
    return lastNotAbove(this.starts, ms + 1);
  }

  rangeOf(word) {
    const line = this.lineOf[word];
    const { wordBegins, text } = this.segments[line];
    const own = word - this.firstWord[line];
    const end = own + 1 < wordBegins.length ? wordBegins[own + 1] : text.length;
    const trimmed = text.slice(wordBegins[own], end).trimEnd().length;
    return this.range(line, wordBegins[own], wordBegins[own] + trimmed);
  }

  range(line, begin, end) {
    const text = this.#text(line);
    const range = new Range();
    range.setStart(text, Math.min(begin, text.length));
    range.setEnd(text, Math.min(end, text.length));
    return range;
  }

  /** Lights the word that is spoken; returns its line when that is another than before. */
  light(ms) {
    const word = this.wordAt(ms);
    if (word === this.lit) return -1;
    const before = this.lit < 0 ? -1 : this.lineOf[this.lit];
    this.lit = word;
    highlight("spoken", word < 0 ? [] : [this.rangeOf(word)]);
    const line = word < 0 ? -1 : this.lineOf[word];
    if (line === before) return -1;
    this.lines[before]?.removeAttribute("aria-current");
    this.lines[line]?.setAttribute("aria-current", "true");
    return line;
  }

  /** Where a text stands, whatever its case: [line, begin, end] each. */
  find(text) {
    const wanted = text.trim().toLocaleLowerCase();
    const found = [];
    if (!wanted) return found;
    this.segments.forEach((segment, line) => {
      const content = segment.text.toLocaleLowerCase();
      for (let at = content.indexOf(wanted); at >= 0; at = content.indexOf(wanted, at + wanted.length)) {
        found.push([line, at, at + wanted.length]);
      }
    });
    return found;
  }

  /** Start of the word at a place in a line, in milliseconds. */
  msAt(line, offset) {
    const { wordBegins, wordStartsMS, startMS } = this.segments[line];
    return wordStartsMS[Math.max(lastNotAbove(wordBegins, offset), 0)] ?? startMS;
  }

  /** The words spoken between two times, a paragraph for each line. */
  textBetween(fromMs, toMs) {
    return this.segments
      .map(({ text, wordBegins, wordStartsMS }) => {
        const inside = wordBegins.filter((_, i) => wordStartsMS[i] >= fromMs && wordStartsMS[i] < toMs);
        if (!inside.length) return "";
        const next = wordBegins[wordBegins.indexOf(inside.at(-1)) + 1] ?? text.length;
        return text.slice(inside[0], next).trim();
      })
      .filter(Boolean)
      .join("\n");
  }
}

/** Sets which ranges are shown as what; styles are `::highlight(name)`. */
export function highlight(name, ranges) {
  if (!canHighlight) return;
  if (ranges.length) CSS.highlights.set(name, new Highlight(...ranges));
  else CSS.highlights.delete(name);
}
