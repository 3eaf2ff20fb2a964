/** Search: hits while typing, walked with the arrows and played at the word. */

import { api } from "./api.js";
import { alertFailure, announce, button, clock, counted, el, labelled, languageName, makeDialog, memory, setOptions } from "./dom.js";
import { askExport } from "./export.js";
import { Player } from "./player.js";
import { Transcript, highlight } from "./transcript.js";

/** Between two searches while somebody types: the first key asks at once. */
const BETWEEN_SEARCHES_MS = 120;
const ACROSS_PAUSE_MS = 200;
const MOST_HITS = 200;
const MOST_LOOKED_AT = 1000; // the server gives no more

const keyOf = (hit) => `${hit.clip} ${hit.segment} ${hit.startMS} ${hit.matchEnd}`;

export const clipAddress = (clip, ms) => `#/clip/${encodeURIComponent(clip)}?at=${Math.round(ms)}`;

class Search {
  constructor(root, parameters) {
    this.aborter = new AbortController();
    this.hits = []; // all that the desk found
    this.shown = []; // those that the filters leave
    this.active = -1;
    this.asked = 0; // when the last search began
    this.build(root);
    this.field.value = parameters.get("phrase") ?? memory.get("phrase");
    this.field.select();
    this.field.focus();
    this.loadProjects();
  }

  build(root) {
    this.field = el("input", {
      type: "text", inputmode: "search", id: "phrase", class: "phrase", placeholder: "Find what is said", autocomplete: "off", spellcheck: "false",
      role: "combobox", "aria-autocomplete": "list", "aria-expanded": "false", "aria-controls": "hits", "aria-label": "Find what is said",
      on: { input: () => this.later(), keydown: (event) => this.onKey(event) },
    });
    const filter = (label, all, onChange) => {
      const select = el("select", { on: { change: onChange } }, el("option", { value: "" }, all));
      this.filters.append(labelled(label, select));
      return select;
    };
    this.filters = el("div", { class: "filters" });
    this.project = filter("Project", "All projects", () => {
      memory.set("project", this.project.value);
      this.clip.value = "";
      this.search();
    });
    // What is chosen may have more hits than are among the best of all.
    this.clip = filter("Clip", "All clips", () => this.search());
    this.speaker = filter("Speaker", "Anyone", () => this.search());
    this.language = filter("Language", "All languages", () => this.search());
    this.by = el("select", { on: { change: () => this.changeKind() } },
      el("option", { value: "spelling" }, "Spelling"), el("option", { value: "meaning", disabled: true }, "Meaning"));
    this.exact = el("select", { on: { change: () => this.search() } },
      el("option", { value: "60" }, "Tolerate misspellings"), el("option", { value: "100" }, "Exact spelling"));
    this.filters.append(labelled("Search by", this.by), labelled("Match", this.exact));
    this.noMeaning = el("p", { class: "hint", id: "no-meaning", hidden: true });

    this.count = el("p", { class: "count" });
    this.dialog = makeDialog();
    this.exportButton = button("Export…", () => this.export(), { disabled: true });
    this.filters.append(el("span", { class: "spring" }), this.exportButton);
    this.list = el("ul", {
      id: "hits", role: "listbox", "aria-label": "Hits", "aria-multiselectable": "true",
      on: { mousedown: (event) => event.preventDefault(), click: (event) => this.onClick(event) },
    });
    this.player = new Player((ms) => this.transcript?.light(ms));
    this.around = el("div", { class: "around" });
    this.title = el("h2", {});
    this.open = el("a", { class: "button", href: "#/" }, "Open the clip");
    this.panel = el("aside", { class: "panel", "aria-label": "Preview", hidden: true },
      el("div", { class: "panel-head" }, this.title, this.open), this.player.element, this.around);
    root.append(
      el("h1", { class: "unseen" }, "Search"),
      el("div", { class: "search-bar" }, this.field, this.filters, this.noMeaning),
      el("div", { class: "columns" },
        el("section", { class: "results", "aria-label": "Results" },
          el("div", { class: "results-head" }, this.count,
            el("p", { class: "keys" }, el("kbd", {}, "↑"), el("kbd", {}, "↓"), " move ", el("kbd", {}, "Enter"), " play ",
              el("kbd", {}, "Ctrl Enter"), " open the clip ", el("kbd", {}, "Ctrl Space"), " select")),
          this.list),
        this.panel),
      this.dialog,
    );
  }

  async loadProjects() {
    try {
      const projects = await api.projects();
      setOptions(this.project, [["", "All projects"], ...projects.map(({ projectId, project }) => [projectId, project])]);
      this.project.value = memory.get("project");
      if (this.project.selectedIndex < 0) this.project.value = "";
      if (!projects.length) this.showEmpty("Nothing has been transcribed yet", "Add media in the Library.");
    } catch (failure) {
      alertFailure(failure);
    }
    await this.loadMeaning();
    if (this.field.value) this.search();
  }

  /** Search by meaning is offered when there is something to find by it. */
  async loadMeaning() {
    try {
      const { ready, problem } = await api.meaning();
      this.by.options[1].disabled = !ready;
      this.by.value = ready ? memory.get("searchBy", "spelling") : "spelling";
      this.noMeaning.hidden = ready;
      this.noMeaning.textContent = `Search by meaning: ${problem}.`;
      if (ready) this.by.removeAttribute("aria-describedby");
      else this.by.setAttribute("aria-describedby", "no-meaning");
      this.exact.disabled = this.by.value === "meaning";
    } catch (failure) {
      alertFailure(failure);
    }
  }

  changeKind() {
    memory.set("searchBy", this.by.value);
    this.exact.disabled = this.by.value === "meaning";
    this.search();
  }

  later() {
    clearTimeout(this.timer);
    this.aborter.abort(); // what it would bring is out of date
    this.list.setAttribute("aria-busy", "true");
    this.timer = setTimeout(() => this.search(), this.asked + BETWEEN_SEARCHES_MS - performance.now());
  }

  async search() {
    clearTimeout(this.timer);
    this.aborter.abort();
    this.aborter = new AbortController();
    const phrase = this.field.value.trim();
    memory.set("phrase", phrase);
    if (!phrase) return this.showHits([]);
    const query = {
      phrase, project: this.project.value, clip: this.clip.value, threshold: this.exact.value, by: this.by.value,
      max: this.most(),
    };
    const { signal } = this.aborter;
    this.asked = performance.now();
    try {
      this.showHits((await api.search(query, signal)).hits);
    } catch (failure) {
      return alertFailure(failure);
    }
    if (phrase.includes(" ")) this.searchAcross(query, signal);
  }

  /** The server filters by project and clip only: of a speaker or a language it gives all hits, to look among. */
  most() {
    return this.speaker.value || this.language.value ? MOST_LOOKED_AT : MOST_HITS;
  }

  /** What runs from one line into the next takes longer to find, and joins what is there already. */
  async searchAcross(query, signal) {
    await new Promise((resolve) => setTimeout(resolve, ACROSS_PAUSE_MS));
    if (signal.aborted) return;
    this.list.setAttribute("aria-busy", "true");
    try {
      const { hits } = await api.search({ ...query, across: 1 }, signal);
      if (hits.map(keyOf).join() !== this.hits.map(keyOf).join()) this.joinHits(hits);
    } catch (failure) {
      if (failure.status !== 409) alertFailure(failure); // another window searches
    }
    if (!signal.aborted) this.list.setAttribute("aria-busy", "false");
  }

  /** More hits of the same phrase: what plays goes on, what is active or chosen stays so. */
  joinHits(hits) {
    const active = this.shown[this.active];
    const chosen = new Set(this.chosen().map(keyOf));
    this.showHits(hits, active && ((hit) => keyOf(hit) === keyOf(active)));
    this.shown.forEach((hit, i) => chosen.has(keyOf(hit)) && this.choose(i));
  }

  showHits(hits, isActive) {
    this.hits = hits;
    this.list.setAttribute("aria-busy", "false");
    const choices = (all, pairs) => [["", all], ...[...new Map(pairs)].sort((a, b) => a[1].localeCompare(b[1]))];
    if (!this.clip.value) setOptions(this.clip, choices("All clips", hits.map((hit) => [hit.clip, hit.clipName || hit.clip])));
    setOptions(this.speaker, choices("Anyone", hits.filter((hit) => hit.speaker).map((hit) => [hit.speaker, hit.speaker])));
    setOptions(this.language, choices("All languages", hits.map((hit) => [hit.language, languageName(hit.language)])));
    this.filter(isActive);
  }

  /** `isActive` says which hit is to be active; without it the first, and what plays stops. */
  filter(isActive) {
    const fits = (select, value) => !select.value || select.value === value;
    this.shown = this.hits.filter((hit) =>
      fits(this.clip, hit.clip) && fits(this.speaker, hit.speaker) && fits(this.language, hit.language));
    this.list.replaceChildren(...this.shown.map((hit, i) => this.item(hit, i)));
    this.list.hidden = !this.shown.length;
    this.field.setAttribute("aria-expanded", String(this.shown.length > 0));
    this.active = -1;
    if (!isActive) this.player.pause();
    this.showExport();
    if (this.shown.length) this.select(Math.max(isActive ? this.shown.findIndex(isActive) : 0, 0));
    else this.selectNothing();
  }

  item(hit, i) {
    return el("li", { id: `hit${i}`, role: "option", "aria-selected": "false", dataset: { hit: i } },
      el("div", { class: "hit-head" }, el("span", { class: "hit-clip" }, hit.clipName || hit.clip),
        el("span", { class: "hit-who" }, hit.speaker), el("span", { class: "when" }, clock(hit.startMS))),
      el("div", { class: "hit-text", lang: hit.language || null, dir: "auto" }, hit.text.slice(0, hit.matchBegin),
        hit.matchEnd > hit.matchBegin ? el("mark", {}, hit.text.slice(hit.matchBegin, hit.matchEnd)) : null, hit.text.slice(hit.matchEnd)));
  }

  selectNothing() {
    this.panel.hidden = true;
    this.field.removeAttribute("aria-activedescendant");
    this.count.textContent = "";
    if (!this.field.value.trim()) return;
    this.count.textContent = this.hits.length || this.clip.value ? "No hit matches the filters" : "Nothing found";
    announce(this.count.textContent);
  }

  showEmpty(title, text) {
    this.count.textContent = `${title}. ${text}`;
  }

  select(i) {
    this.list.children[this.active]?.classList.remove("active");
    this.active = i;
    const item = this.list.children[i];
    item.classList.add("active");
    item.scrollIntoView({ block: "nearest" });
    this.field.setAttribute("aria-activedescendant", item.id);
    const which = this.hits.length < this.most() ? "" : "the best ";
    this.count.textContent = `${i + 1} of ${which}${counted(this.shown.length, "hit")}`;
    this.showAround(this.shown[i]);
  }

  /** The lines around a hit, and its media ready at the word. */
  async showAround(hit) {
    this.title.textContent = hit.clipName || hit.clip;
    this.open.href = clipAddress(hit.clip, hit.startMS);
    this.panel.hidden = false;
    this.aroundAborter?.abort();
    this.aroundAborter = new AbortController();
    try {
      const lines = await api.lines(hit.clip, hit, this.aroundAborter.signal);
      const { segments, media } = lines;
      this.transcript = new Transcript(lines, { onWord: (ms) => this.playAt(ms) });
      this.around.replaceChildren(this.transcript.element);
      const line = segments.findIndex((segment) => segment.segment === hit.segment);
      highlight("hit", line < 0 ? [] : this.transcript.rangesFrom(line, hit.matchBegin, hit.matchEnd));
      this.player.load(hit.clip, media);
      if (this.wanted === hit) this.playAt(hit.startMS);
      else if (!this.player.isPlaying) this.player.seek(hit.startMS);
      this.ready = hit;
    } catch (failure) {
      alertFailure(failure);
    }
  }

  playAt(ms) {
    this.wanted = null;
    this.player.seek(ms);
    this.player.play();
  }

  playActive() {
    const hit = this.shown[this.active];
    if (!hit) return;
    if (this.ready === hit) this.playAt(hit.startMS);
    else this.wanted = hit; // once its lines are there
  }

  walk(step) {
    if (!this.shown.length) return;
    this.player.pause();
    this.select((this.active + step + this.shown.length) % this.shown.length);
  }

  /** Chosen hits are what is exported; without any, all that are shown. */
  choose(i) {
    const item = this.list.children[i];
    const isChosen = item.getAttribute("aria-selected") !== "true";
    item.setAttribute("aria-selected", String(isChosen));
    this.showExport();
  }

  chosen() {
    return this.shown.filter((_, i) => this.list.children[i].getAttribute("aria-selected") === "true");
  }

  showExport() {
    const chosen = this.chosen().length;
    this.exportButton.disabled = !this.shown.length;
    this.exportButton.textContent = chosen ? `Export ${counted(chosen, "hit")}…` : "Export…";
  }

  export() {
    const chosen = this.chosen();
    const hits = (chosen.length ? chosen : this.shown).map((hit) => ({
      clip: hit.clip, segment: hit.segment, startMS: hit.startMS, endMS: hit.endMS, score: hit.score,
      match: hit.text.slice(hit.matchBegin, hit.matchEnd),
    }));
    askExport(this.dialog, `Export ${counted(hits.length, "hit")}`, { hits, title: this.field.value.trim() });
  }

  onClick(event) {
    const item = event.target.closest("[data-hit]");
    if (!item) return;
    if (event.ctrlKey || event.metaKey) return this.choose(Number(item.dataset.hit));
    this.select(Number(item.dataset.hit));
    this.playActive();
  }

  onKey(event) {
    const hit = this.shown[this.active];
    if (event.key === "ArrowDown") this.walk(1);
    else if (event.key === "ArrowUp") this.walk(-1);
    else if (event.key === "Enter" && hit && (event.ctrlKey || event.metaKey)) location.hash = clipAddress(hit.clip, hit.startMS);
    else if (event.key === " " && event.ctrlKey && hit) this.choose(this.active);
    else if (event.key === "Enter") this.playActive();
    else if (event.key === "Escape" && this.player.isPlaying) this.player.pause();
    else return;
    event.preventDefault();
  }

  close() {
    clearTimeout(this.timer);
    this.aborter.abort();
    this.aroundAborter?.abort();
    this.player.close();
    for (const name of ["hit", "spoken"]) highlight(name, []);
  }
}

export function showSearch(root, parameters) {
  const search = new Search(root, parameters);
  return () => search.close();
}
