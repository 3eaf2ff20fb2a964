/** A clip: its media with the transcript in step. */

import { api, clipPath } from "./api.js";
import {
  alertFailure, announce, button, clock, counted, el, isTyping, labelled, languageName, makeDialog, offerUndo, showDialog,
} from "./dom.js";
import { askExport } from "./export.js";
import { Player } from "./player.js";
import { Transcript, highlight } from "./transcript.js";
import { Wave } from "./wave.js";

/** After scrolling by hand the transcript follows again when the reader has had time to read. */
const READING_MS = 4000;
const MOST_MARKED = 2000;
const SAMPLES = 3;

class ClipPage {
  constructor(root, clip, parameters) {
    this.clip = clip;
    this.start = Number(parameters.get("at") ?? 0);
    this.found = [];
    this.current = -1;
    this.in = null;
    this.out = null;
    this.scrolled = 0;
    this.aborter = new AbortController();
    this.build(root);
    document.addEventListener("keydown", (event) => this.onKey(event), { signal: this.aborter.signal });
    this.load();
  }

  build(root) {
    this.title = el("h1", {}, "…");
    this.facts = el("p", { class: "facts" });
    this.player = new Player((ms) => this.onTime(ms));
    this.wave = new Wave({ onSeek: (ms) => this.goTo(ms) });
    this.position = el("output", { class: "position" }, "0:00");
    this.playButton = button("Play", () => this.player.toggle(), { class: "primary", title: "Space or K" });
    for (const event of ["play", "pause"]) {
      this.player.media.addEventListener(event, () => {
        this.playButton.textContent = this.player.isPlaying ? "Pause" : "Play";
      });
    }
    this.rangeText = el("output", {});
    this.copyButton = button("Copy text", () => this.copyRange(), { disabled: true });
    this.stage = el("section", { class: "clip-stage", "aria-label": "Player" },
      this.player.element, this.wave.element,
      el("div", { class: "transport" }, this.playButton, this.position, el("span", { class: "spring" }),
        button("Set in", () => this.setIn(), { title: "I" }), button("Set out", () => this.setOut(), { title: "O" }),
        this.rangeText, this.copyButton),
      el("p", { class: "keys" }, el("kbd", {}, "Space"), " play ", el("kbd", {}, "J"), el("kbd", {}, "K"), el("kbd", {}, "L"),
        " back, stop, forward ", el("kbd", {}, "←"), el("kbd", {}, "→"), " word ", el("kbd", {}, "↑"), el("kbd", {}, "↓"), " line ",
        el("kbd", {}, "I"), el("kbd", {}, "O"), " in, out ", el("kbd", {}, "V"), " change the line's voice ", el("kbd", {}, "/"), " find"));
    this.voices = el("ul", { class: "voices", "aria-label": "Voices" });
    this.dialog = makeDialog();
    this.stage.append(this.voices);
    this.findField = el("input", {
      type: "search", "aria-label": "Find in this clip", placeholder: "Find in this clip", autocomplete: "off", spellcheck: "false",
      on: { input: () => this.find(), keydown: (event) => this.onFindKey(event) },
    });
    this.findCount = el("span", { class: "count" });
    this.exportButton = button("Export…", () => askExport(this.dialog, `Export ${this.title.textContent}`, { clip: this.clip }),
      { disabled: true });
    this.scroller = el("div", {
      class: "scroller", tabindex: "0", role: "region", "aria-label": "Transcript",
      on: { wheel: () => this.reads(), pointerdown: () => this.reads(), touchmove: () => this.reads() },
    });
    root.append(
      el("div", { class: "clip-head" }, this.title, this.facts),
      el("div", { class: "columns" }, this.stage,
        el("section", { class: "script", "aria-label": "Words" },
          el("div", { class: "find" }, this.findField, this.findCount, this.exportButton), this.scroller)),
      this.dialog,
    );
  }

  async load() {
    try {
      const clip = await api.clip(this.clip, this.aborter.signal);
      this.show(clip);
      if (!clip.media.error) this.loadPeaks();
    } catch (failure) {
      if (failure.name !== "AbortError") this.title.textContent = "This clip cannot be shown";
      alertFailure(failure);
    }
  }

  show(clip) {
    document.title = `${clip.clipName} – Kestrel`;
    this.title.textContent = clip.clipName;
    this.transcript = new Transcript(clip, { onWord: (ms) => this.goTo(ms) });
    this.scroller.replaceChildren(this.transcript.element);
    const speech = clip.segments.at(-1)?.endMS ?? 0;
    const languages = [...new Set(clip.segments.map((segment) => segment.language))].filter(Boolean);
    this.facts.textContent = [
      clip.projects.map(({ project }) => project).join(", "),
      clock(clip.media.durationMS ?? speech),
      languages.map(languageName).join(", "),
      counted(this.transcript.colours.size, "speaker"),
      counted(clip.segments.length, "line"),
      counted(this.transcript.starts.length, "word"),
      clip.media.startTimecode ? `starts at ${clip.media.startTimecode}` : "",
      clip.complete ? "" : "not complete",
    ].filter(Boolean).join(" · ");
    this.exportButton.disabled = false;
    this.showVoices();
    this.player.load(clip.clip, clip.media);
    this.wave.setDuration(clip.media.durationMS || speech);
    this.wave.setSegments(clip.segments, (segment) => this.transcript.colours.get(segment.speaker));
    if (this.start) this.player.seek(this.start);
    this.onTime(this.start || this.player.ms);
    this.start = 0;
  }

  async loadPeaks() {
    try {
      const answer = await api.whenMade(clipPath(this.clip, "/peaks"), this.aborter.signal);
      this.wave.setPeaks(new Uint8Array(await answer.arrayBuffer()));
    } catch {
      // the page does without a wave form; the player says what is wrong with the media
    }
  }

  showVoices() {
    const spoken = new Map();
    for (const { speaker, startMS, endMS } of this.transcript.segments) {
      spoken.set(speaker, (spoken.get(speaker) ?? 0) + endMS - startMS);
    }
    this.voices.replaceChildren(...[...this.transcript.colours].filter(([name]) => name).map(([name, colour]) =>
      el("li", {}, button(`${name}, ${clock(spoken.get(name))}`, () => this.askName(name), {
        class: `voice${colour}`, title: "Hear and name this voice", "aria-haspopup": "dialog",
      }))));
  }

  /** Asks for a name; `save` and `clear` perform a change that the desk can undo. */
  async askWho(title, samples, { value, canClear, save, clear, saved, cleared, hint }) {
    const names = await api.speakers(this.clip).catch(() => []);
    const name = el("input", { type: "text", list: "names", autocomplete: "off", value, required: true });
    const act = async (action, text) => {
      this.dialog.close();
      try {
        const { undo } = await action();
        await this.load();
        if (undo) offerUndo(text, () => api.undoSpeakers(undo).then(() => this.load()));
      } catch (failure) {
        alertFailure(failure);
      }
    };
    showDialog(this.dialog, title, [
      el("ul", { class: "members" }, ...samples.map((sample) =>
        el("li", {}, el("span", {}, sample.text), button("Play", () => this.playSample(sample), { "aria-label": `Play at ${clock(sample.startMS)}` })))),
      labelled("Name", name, el("datalist", { id: "names" }, ...names.map((one) => el("option", { value: one })))),
      el("p", { class: "hint" }, hint),
    ], [
      canClear(names) ? button("Remove the name", () => act(clear, cleared)) : null,
      button("Cancel", () => this.dialog.close()),
      button("Save", () => {
        const wanted = name.value.trim();
        if (name.reportValidity() && wanted) act(() => save(wanted), saved(wanted));
      }, { class: "primary" }),
    ]);
    name.focus();
  }

  /** Three samples of a voice, and its name. */
  askName(speaker) {
    const samples = this.transcript.segments.filter((segment) => segment.speaker === speaker)
      .sort((a, b) => b.endMS - b.startMS - (a.endMS - a.startMS)).slice(0, SAMPLES).sort((a, b) => a.startMS - b.startMS);
    return this.askWho(`Who is ${speaker}?`, samples, {
      value: /^Speaker /.test(speaker) ? "" : speaker,
      hint: "A name that is already in use merges the two voices.",
      canClear: (names) => names.includes(speaker),
      clear: () => api.clearSpeaker(this.clip, speaker),
      cleared: `${speaker} is no longer named here.`,
      save: (name) => api.nameSpeaker(this.clip, speaker, name),
      saved: (name) => `${speaker} is now ${name}.`,
    });
  }

  /** Gives the line that is spoken to another voice. */
  askLine(line) {
    const segment = this.transcript.segments[line];
    if (!segment) return;
    const before = segment.speaker;
    this.askWho("Who says this line?", [segment], {
      value: "",
      hint: `It is ${before}'s now. Other lines keep their voices.`,
      canClear: (names) => names.includes(before),
      clear: () => api.clearSpeaker(this.clip, before, segment.segment),
      cleared: `The line is no longer ${before}'s.`,
      save: (name) => api.assignSegment(this.clip, segment.segment, name),
      saved: (name) => `The line is now ${name}'s.`,
    });
  }

  playSample({ startMS, endMS }) {
    this.player.seek(startMS);
    this.stopAt = endMS;
    this.player.play();
  }

  reads() {
    this.scrolled = performance.now();
  }

  onTime(ms) {
    this.wave.setPosition(ms);
    this.position.textContent = `${clock(ms)} / ${clock(this.wave.durationMs)}`;
    if (this.stopAt && ms >= this.stopAt) {
      this.stopAt = 0;
      this.player.pause();
    }
    if (!this.transcript) return;
    const line = this.transcript.light(ms);
    if (line >= 0 && performance.now() - this.scrolled > READING_MS) this.reveal(line);
  }

  reveal(line) {
    this.transcript.lineElement(line).scrollIntoView({ block: "center" });
  }

  goTo(ms) {
    this.stopAt = 0;
    this.scrolled = 0;
    this.player.seek(ms);
  }

  stepWord(step) {
    const { starts } = this.transcript;
    const word = this.transcript.wordAt(this.player.ms) + step;
    if (starts.length) this.goTo(starts[Math.min(Math.max(word, 0), starts.length - 1)]);
  }

  stepLine(step) {
    const { segments, lineOf } = this.transcript;
    const word = this.transcript.wordAt(this.player.ms);
    const line = word < 0 ? (step > 0 ? 0 : -1) : lineOf[word] + step;
    if (segments[line]) this.goTo(segments[line].startMS);
  }

  find() {
    this.found = this.transcript.find(this.findField.value);
    highlight("found", this.found.slice(0, MOST_MARKED).map((place) => this.transcript.range(...place)));
    this.current = -1;
    if (this.found.length) this.walkFound(1);
    else {
      highlight("found-current", []);
      this.findCount.textContent = this.findField.value.trim() ? "nothing found" : "";
    }
  }

  walkFound(step) {
    if (!this.found.length) return;
    this.current = (this.current + step + this.found.length) % this.found.length;
    const place = this.found[this.current];
    highlight("found-current", [this.transcript.range(...place)]);
    this.reads();
    this.reveal(place[0]);
    this.findCount.textContent = `${this.current + 1} of ${this.found.length}`;
  }

  onFindKey(event) {
    if (event.key === "Enter" && (event.ctrlKey || event.metaKey)) this.playFound();
    else if (event.key === "Enter") this.walkFound(event.shiftKey ? -1 : 1);
    else if (event.key === "ArrowDown") this.walkFound(1);
    else if (event.key === "ArrowUp") this.walkFound(-1);
    else if (event.key === "Escape") {
      this.findField.value = "";
      this.find();
      this.scroller.focus();
    } else return;
    event.preventDefault();
  }

  playFound() {
    const place = this.found[this.current];
    if (!place) return;
    this.player.seek(this.transcript.msAt(place[0], place[1]));
    this.player.play();
  }

  setIn() {
    this.in = this.player.ms;
    if (this.out !== null && this.out <= this.in) this.out = null;
    this.showRange();
  }

  setOut() {
    this.out = this.player.ms;
    if (this.in === null || this.in >= this.out) this.in = 0;
    this.showRange();
  }

  showRange() {
    const isWhole = this.in !== null && this.out !== null;
    this.wave.setRange(this.in, this.out);
    this.copyButton.disabled = !isWhole;
    this.rangeText.textContent = isWhole ? `${clock(this.in)} – ${clock(this.out)}` : this.in === null ? "" : `from ${clock(this.in)}`;
  }

  async copyRange() {
    try {
      await navigator.clipboard.writeText(this.transcript.textBetween(this.in, this.out));
      announce("The text is copied");
      this.copyButton.textContent = "Copied";
      setTimeout(() => (this.copyButton.textContent = "Copy text"), 1500);
    } catch (failure) {
      alertFailure(failure);
    }
  }

  onKey(event) {
    if (isTyping(event.target) || event.ctrlKey || event.metaKey || event.altKey || !this.transcript) return;
    const actions = {
      k: () => this.player.pause(),
      l: () => this.player.forwards(),
      j: () => this.player.reverse(),
      i: () => this.setIn(),
      o: () => this.setOut(),
      v: () => this.askLine(this.transcript.lineOf[this.transcript.wordAt(this.player.ms)]),
      "/": () => this.findField.focus(),
      ArrowLeft: () => this.stepWord(-1),
      ArrowRight: () => this.stepWord(1),
      ArrowUp: () => this.stepLine(-1),
      ArrowDown: () => this.stepLine(1),
    };
    if (!event.target.matches("button, a")) actions[" "] = () => this.player.toggle();
    const action = actions[event.key.length === 1 ? event.key.toLowerCase() : event.key];
    if (!action) return;
    event.preventDefault();
    action();
  }

  close() {
    document.title = "Kestrel";
    this.aborter.abort();
    this.player.close();
    this.wave.close();
    for (const name of ["spoken", "found", "found-current"]) highlight(name, []);
  }
}

export function showClip(root, clip, parameters) {
  const page = new ClipPage(root, clip, parameters);
  return () => page.close();
}
