/**
 * Lines of a transcript on the page.
 *
 * Each line is one text node: words are lit, found and marked by highlights over ranges of it, so that a hundred thousand
 * words need no elements of their own. Lines come in blocks: those in sight at once, the others while nothing else is to be
 * done, and blocks out of sight are not laid out (`content-visibility`).
 */

import { clock, el } from "./dom.js";

const SPEAKER_COLOURS = 8;
const BLOCK = 100;
const LINE_REM = 1.8; // about the height of a line that has not been laid out
const whenIdle = window.requestIdleCallback ?? ((work) => setTimeout(work, 20));
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
  /**
   * `segments`, `wordBegins`, `wordStartsMS`, `wordEndsMS` are those of the desk's answer; `onWord` is called with the start of
   * the word that is clicked, in milliseconds.
   */
  constructor({ segments, wordBegins, wordStartsMS, wordEndsMS }, { onWord }) {
    this.segments = segments;
    this.begins = wordBegins;
    this.starts = wordStartsMS;
    this.ends = wordEndsMS;
    this.colours = new Map();
    this.firstWord = new Uint32Array(segments.length + 1);
    this.lineOf = new Uint32Array(wordBegins.length);
    segments.forEach(({ speaker, words }, line) => {
      if (!this.colours.has(speaker)) this.colours.set(speaker, this.colours.size % SPEAKER_COLOURS);
      const first = this.firstWord[line];
      this.firstWord[line + 1] = first + words;
      this.lineOf.fill(line, first, first + words);
    });
    this.lines = new Array(segments.length);
    this.blocks = Array.from({ length: Math.ceil(segments.length / BLOCK) }, (_, i) => {
      const block = el("div", { class: "block" });
      block.style.containIntrinsicSize = `auto ${Math.min(BLOCK, segments.length - i * BLOCK) * LINE_REM}rem`;
      return block;
    });
    this.element = el("div", { class: "lines", on: { click: (event) => this.#click(event, onWord) } }, ...this.blocks);
    this.lit = -1;
    this.#fill(0);
    this.#fillWhenIdle();
  }

  /** Makes the lines of a block, once. */
  #fill(block) {
    if (this.blocks[block]?.firstChild !== null) return;
    const first = block * BLOCK;
    for (let line = first; line < Math.min(first + BLOCK, this.segments.length); ++line) {
      this.lines[line] = this.#line(this.segments[line], this.segments[line - 1]?.speaker);
    }
    this.blocks[block].append(...this.lines.slice(first, first + BLOCK));
  }

  #fillWhenIdle(block = 1) {
    if (block >= this.blocks.length) return;
    whenIdle(() => {
      if (block > 1 && !this.element.isConnected) return; // another page is shown by now
      this.#fill(block);
      this.#fillWhenIdle(block + 1);
    });
  }

  /** The element of a line. */
  lineElement(line) {
    this.#fill(Math.floor(line / BLOCK));
    return this.lines[line];
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
    return this.lineElement(line).lastChild.firstChild;
  }

  #click(event, onWord) {
    if (!getSelection().isCollapsed) return; // text is being selected
    const paragraph = event.target.closest("p");
    if (!paragraph) return;
    const line = this.lines.indexOf(paragraph.parentElement);
    const at = document.caretPositionFromPoint
      ? document.caretPositionFromPoint(event.clientX, event.clientY)?.offset
      : document.caretRangeFromPoint(event.clientX, event.clientY)?.startOffset;
    onWord(this.msAt(line, at ?? 0));
  }

  /** The word that is spoken at a time or was last; -1 before the first. */
  wordAt(ms) {
    return lastNotAbove(this.starts, ms + 1);
  }

  /** Where a word ends in its line, up to the next one. */
  #endOf(word) {
    const line = this.lineOf[word];
    return word + 1 < this.firstWord[line + 1] ? this.begins[word + 1] : this.segments[line].text.length;
  }

  rangeOf(word) {
    const line = this.lineOf[word];
    const begin = this.begins[word];
    return this.range(line, begin, begin + this.segments[line].text.slice(begin, this.#endOf(word)).trimEnd().length);
  }

  range(line, begin, end) {
    const text = this.#text(line);
    const range = new Range();
    range.setStart(text, Math.min(begin, text.length));
    range.setEnd(text, Math.min(end, text.length));
    return range;
  }

  /** Part of the text of several lines, counted from the beginning of the first, with a space between lines. */
  rangesFrom(line, begin, end) {
    const ranges = [];
    for (let from = begin, to = end; line < this.segments.length && to > 0; ++line) {
      const { length } = this.segments[line].text;
      if (from < length) ranges.push(this.range(line, from, to));
      from = Math.max(from - length - 1, 0);
      to -= length + 1;
    }
    return ranges;
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
    if (line >= 0) this.lineElement(line).setAttribute("aria-current", "true");
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
    let word = this.firstWord[line];
    while (word + 1 < this.firstWord[line + 1] && this.begins[word + 1] <= offset) ++word;
    if (word === this.firstWord[line + 1]) return this.segments[line].startMS; // a line without words
    return this.starts[word];
  }

  /** The words spoken between two times, a paragraph for each line. */
  textBetween(fromMs, toMs) {
    const paragraphs = [];
    for (let word = Math.max(lastNotAbove(this.starts, fromMs - 1), -1) + 1; word < this.starts.length && this.starts[word] < toMs;) {
      const line = this.lineOf[word];
      const begin = this.begins[word];
      while (word < this.firstWord[line + 1] && this.starts[word] < toMs) ++word;
      paragraphs.push(this.segments[line].text.slice(begin, this.#endOf(word - 1)).trim());
    }
    return paragraphs.join("\n");
  }
}

/** Sets which ranges are shown as what; styles are `::highlight(name)`. */
export function highlight(name, ranges) {
  if (!canHighlight) return;
  if (ranges.length) CSS.highlights.set(name, new Highlight(...ranges));
  else CSS.highlights.delete(name);
}
