/** A script beside the takes: where each line is said, and in which take best. */

import { api } from "./api.js";
import { alertFailure, button, clock, counted, dropZone, el, fileInput, labelled, makeDialog } from "./dom.js";
import { askExport } from "./export.js";
import { Player } from "./player.js";
import { Transcript, highlight } from "./transcript.js";

const LONGEST_SCRIPT = 900_000;
const MOST_CLIPS = 200;

class Scripts {
  constructor(root) {
    this.aborter = new AbortController();
    this.lines = [];
    this.build(root);
    this.loadClips();
  }

  build(root) {
    this.file = fileInput("Script file", { accept: ".txt,.fountain,text/plain" }, ([file]) => this.open(file));
    this.format = el("select", { on: { change: () => this.align() } },
      el("option", { value: "auto" }, "Detect automatically"), el("option", { value: "plain" }, "Plain text"),
      el("option", { value: "screenplay" }, "Screenplay, Fountain"));
    this.name = el("p", { class: "hint" }, "or drop it here.");
    this.drop = dropZone("Script", ([file]) => this.open(file),
      this.file, button("Choose a script…", () => this.file.click(), { class: "primary" }), labelled("Format", this.format), this.name);
    this.clipFilter = el("input", { type: "search", placeholder: "Filter the clips", "aria-label": "Filter the clips", on: { input: () => this.showClips() } });
    this.clipList = el("ul", { class: "takes", "aria-label": "Takes" });
    this.count = el("p", { class: "count", role: "status" });
    this.dialog = makeDialog();
    this.exportButton = button("Export the best takes…", () =>
      askExport(this.dialog, "Export the best takes", { ...this.request(), title: this.title }), { disabled: true });
    this.list = el("ol", { class: "script-lines", "aria-label": "Lines" });
    this.player = new Player((ms) => this.transcript?.light(ms));
    this.around = el("div", { class: "around" });
    this.panelTitle = el("h2", {});
    this.panel = el("aside", { class: "panel", "aria-label": "Preview", hidden: true },
      el("div", { class: "panel-head" }, this.panelTitle), this.player.element, this.around);
    root.append(el("h1", {}, "Scripts"), this.drop,
      el("details", { open: true }, el("summary", {}, "Takes"), el("div", { class: "filters" }, this.clipFilter), this.clipList),
      el("div", { class: "results-head" }, this.count, this.exportButton),
      el("div", { class: "columns" }, this.list, this.panel), this.dialog);
  }

  async loadClips() {
    try {
      const { clips } = await api.clips("", this.aborter.signal);
      this.clips = clips.filter((clip) => clip.state === "complete");
      this.chosen = new Set();
      this.showClips();
      this.tell();
    } catch (failure) {
      alertFailure(failure);
    }
  }

  showClips() {
    const wanted = this.clipFilter.value.trim().toLocaleLowerCase();
    const shown = this.clips.filter((clip) =>
      this.chosen.has(clip.clip) || `${clip.clipName} ${clip.projects.join(" ")}`.toLocaleLowerCase().includes(wanted));
    const rest = shown.length - MOST_CLIPS;
    this.clipList.replaceChildren(...shown.slice(0, MOST_CLIPS)
      .map((clip) => el("li", {}, el("label", { class: "check" },
        el("input", { type: "checkbox", checked: this.chosen.has(clip.clip), on: { change: (event) => this.choose(clip.clip, event.target.checked) } }),
        el("span", {}, `${clip.clipName} (${clip.projects.join(", ")}, ${clock(clip.endMS)})`)))),
    ...(rest > 0 ? [el("li", { class: "hint" }, `and ${rest} more: filter the clips`)] : []));
  }

  choose(clip, isChosen) {
    if (isChosen) this.chosen.add(clip);
    else this.chosen.delete(clip);
    this.align();
  }

  async open(file) {
    if (!file) return;
    if (file.size > LONGEST_SCRIPT) return alertFailure(new Error(`${file.name} is too long for a script`));
    this.title = file.name.replace(/\.[^.]*$/, "");
    this.script = await file.text();
    this.name.textContent = file.name;
    this.align();
  }

  request() {
    return { script: this.script, format: this.format.value, clips: [...this.chosen] };
  }

  async align() {
    this.aborter.abort();
    this.aborter = new AbortController();
    this.show([]);
    if (!this.script?.trim() || !this.chosen.size) return this.tell();
    this.count.textContent = "Aligning…";
    try {
      const { lines } = await api.align(this.request(), this.aborter.signal);
      this.show(lines);
    } catch (failure) {
      this.tell();
      alertFailure(failure);
    }
  }

  tell() {
    const found = this.lines.filter((line) => line.takes.length).length;
    if (this.lines.length) this.count.textContent = `${found} of ${counted(this.lines.length, "line")} found`;
    else if (!this.script) this.count.textContent = "Choose a script and the takes to search.";
    else this.count.textContent = "Choose the takes to search.";
  }

  show(lines) {
    this.lines = lines;
    this.exportButton.disabled = !lines.some((line) => line.takes.length);
    this.list.replaceChildren(...lines.map((line) => this.item(line)));
    this.list.hidden = !lines.length;
    if (lines.length) this.tell();
    else this.panel.hidden = true;
  }

  item(line) {
    const takes = line.takes.map((take, i) => el("li", {}, button(
      `${take.clipName} ${clock(take.startMS)}`, () => this.play(take), {
        class: i ? "take" : "take best", "aria-label": `Play in ${take.clipName} at ${clock(take.startMS)}, score ${Math.round(take.score * 100)} %`,
      }), el("span", { class: "score" }, `${Math.round(take.score * 100)} %`)));
    return el("li", { class: takes.length ? "" : "missing" }, el("span", { class: "when" }, String(line.line)),
      el("span", { class: "who" }, line.character),
      el("div", {}, el("p", { dir: "auto" }, line.text),
        takes.length ? el("ul", { class: "places" }, ...takes) : el("p", { class: "state bad" }, "not found")));
  }

  async play(take) {
    try {
      const lines = await api.lines(take.clip, take);
      this.panel.hidden = false;
      this.panelTitle.textContent = take.clipName;
      this.transcript = new Transcript(lines, { onWord: (ms) => this.player.seek(ms) });
      this.around.replaceChildren(this.transcript.element);
      this.player.load(take.clip, lines.media);
      this.player.seek(take.startMS);
      this.player.play();
    } catch (failure) {
      alertFailure(failure);
    }
  }

  close() {
    this.aborter.abort();
    this.player.close();
    highlight("spoken", []);
  }
}

export function showScripts(root) {
  const scripts = new Scripts(root);
  return () => scripts.close();
}
