/** The library: projects and clips, and what is being transcribed. */

import { api } from "./api.js";
import {
  alertFailure, announce, button, clock, counted, dropZone, el, fileInput, labelled, languageName, makeDialog, memory, setOptions,
  showDialog,
} from "./dom.js";
import { JobList } from "./jobs.js";
import { askImport, askTransfer } from "./transfer.js";

/** Clips that are put on the page at a time: more come as the reader scrolls. */
const PAGE = 200;
const MOST_FAILURES_SHOWN = 10;

class Library {
  constructor(root) {
    this.aborter = new AbortController();
    this.clips = [];
    this.shown = [];
    this.projects = [];
    this.chosen = new Set();
    this.jobs = new JobList(() => this.load());
    this.more = new IntersectionObserver((entries) => entries.some((entry) => entry.isIntersecting) && this.showMore(), { rootMargin: "800px" });
    this.build(root);
    this.loadLanguages();
    this.load();
  }

  build(root) {
    this.projectName = el("input", {
      type: "text", list: "projects", value: memory.get("newProject"), autocomplete: "off", required: true,
      on: { change: () => memory.set("newProject", this.projectName.value) },
    });
    this.projectNames = el("datalist", { id: "projects" });
    this.language = el("select", { on: { change: () => memory.set("language", this.language.value) } });
    this.files = fileInput("Media files", { multiple: true, accept: "audio/*,video/*,.mxf,.mkv,.mts,.r3d,.braw" }, (files) => this.add(files));
    this.exchangeFile = fileInput("Exchange file", { accept: ".kst" }, ([file]) => askImport(this.dialog, file, () => this.load()));
    this.drop = dropZone("Add media", (files) => this.add(files),
      labelled("Project", this.projectName, this.projectNames), labelled("Language spoken", this.language),
      this.files, button("Choose files…", () => this.projectName.reportValidity() && this.files.click(), { class: "primary" }),
      el("p", { class: "hint" }, "or drop them here. Kestrel transcribes a copy and keeps it."),
      el("span", { class: "spring" }), this.exchangeFile, button("Import transcripts…", () => this.exchangeFile.click()));
    this.projectList = el("ul", { class: "projects" });
    this.nameFilter = el("input", { type: "search", placeholder: "Filter by name", "aria-label": "Filter by name", on: { input: () => this.filter() } });
    const filters = el("div", { class: "filters" }, this.nameFilter);
    const select = (label, all) => {
      const made = el("select", { on: { change: () => this.filter() } }, el("option", { value: "" }, all));
      filters.append(labelled(label, made));
      return made;
    };
    this.project = select("Project", "All projects");
    this.speaker = select("Speaker", "Anyone");
    this.clipLanguage = select("Language", "All languages");
    this.state = select("State", "All");
    setOptions(this.state, [["", "All"], ["complete", "Complete"], ["unfinished", "Not complete"]]);
    this.count = el("p", { class: "count", role: "status" }, "Reading the library…");
    this.chooseAll = el("input", { type: "checkbox", on: { change: () => this.choose(this.shown, this.chooseAll.checked) } });
    this.tools = el("div", { class: "tools", role: "toolbar", "aria-label": "Selected clips" });
    this.list = el("ul", { class: "clips", "aria-label": "Clips", on: { change: (event) => this.onChoice(event) } });
    this.end = el("div", { class: "end" });
    this.dialog = makeDialog();
    root.append(el("h1", {}, "Library"), this.drop, this.jobs.element,
      el("details", {}, el("summary", {}, "Projects"), this.projectList),
      filters, el("div", { class: "results-head" }, el("label", { class: "check" }, this.chooseAll, el("span", {}, "Select all")), this.tools, this.count),
      this.list, this.end, this.dialog);
    this.more.observe(this.end);
    this.showTools();
  }

  async loadLanguages() {
    try {
      const languages = await api.languages();
      setOptions(this.language, [["", "Detect automatically"], ...languages.map(({ language, name }) => [language, name])]);
      this.language.value = memory.get("language");
      if (this.language.selectedIndex < 0) this.language.selectedIndex = 0;
    } catch (failure) {
      alertFailure(failure);
    }
  }

  async load() {
    try {
      const [projects, { clips }] = await Promise.all([api.projects(), api.clips("", this.aborter.signal)]);
      this.clips = clips;
      this.projects = projects;
      this.projectNames.replaceChildren(...projects.map(({ project }) => el("option", { value: project })));
      this.projectList.replaceChildren(...projects.map((project) => this.projectItem(project)));
      const known = new Set(clips.map((clip) => clip.clip));
      this.chosen = new Set([...this.chosen].filter((clip) => known.has(clip)));
      const choices = (all, values, name = (value) => value) =>
        [["", all], ...[...new Set(values)].sort().map((value) => [value, name(value)])];
      setOptions(this.project, choices("All projects", clips.flatMap((clip) => clip.projects)));
      setOptions(this.speaker, choices("Anyone", clips.flatMap((clip) => clip.speakers)));
      setOptions(this.clipLanguage, choices("All languages", clips.flatMap((clip) => clip.languages), languageName));
      this.filter();
    } catch (failure) {
      alertFailure(failure);
    }
  }

  add(files) {
    const project = this.projectName.value.trim();
    if (!project) {
      this.projectName.setCustomValidity("Name the project that the files belong to");
      this.projectName.reportValidity();
      this.projectName.setCustomValidity("");
      return;
    }
    this.jobs.add(files, project, this.language.value);
  }

  /* Projects */

  projectItem({ projectId, project }) {
    const clips = this.clips.filter((clip) => clip.projects.includes(project));
    return el("li", {}, el("span", { class: "job-name" }, project), el("span", { class: "count" }, counted(clips.length, "clip")),
      el("div", { class: "acts" },
        button("Index for search by meaning", () => api.indexByMeaning(projectId).catch(alertFailure), { "aria-label": `Index ${project} for search by meaning` }),
        button("Export…", () => askTransfer(this.dialog, { title: project, projects: [projectId] }, project), { "aria-label": `Export ${project}` }),
        button("Delete…", () => this.askDeleteProject(projectId, project, clips), { class: "danger", "aria-label": `Delete ${project}` })));
  }

  askDeleteProject(projectId, project, clips) {
    const shared = clips.filter((clip) => clip.projects.length > 1).length;
    const remove = async () => {
      showDialog(this.dialog, `Deleting ${project}…`, [el("progress", { "aria-label": "Deleting" })], []);
      try {
        await api.removeProject(projectId);
        announce(`${project} is deleted`);
      } catch (failure) {
        alertFailure(failure);
      }
      this.dialog.close();
      await this.load();
    };
    showDialog(this.dialog, `Delete the project ${project}?`, [
      el("p", {}, `Its ${counted(clips.length, "transcript")} and the names of its speakers are deleted.`),
      shared ? el("p", {}, `${counted(shared, "clip")} of them stay in other projects.`) : null,
      el("p", {}, "Media files stay where they are."),
    ], [button("Cancel", () => this.dialog.close()), button("Delete", remove, { class: "danger" })]);
  }

  /* Clips */

  filter() {
    const name = this.nameFilter.value.trim().toLocaleLowerCase();
    const fits = (select, values) => !select.value || values.includes(select.value);
    this.shown = this.clips.filter((clip) =>
      clip.clipName.toLocaleLowerCase().includes(name) && fits(this.project, clip.projects) && fits(this.speaker, clip.speakers) &&
      fits(this.clipLanguage, clip.languages) && fits(this.state, [clip.state]));
    this.list.replaceChildren();
    this.showMore();
    this.count.textContent = this.clips.length
      ? `${counted(this.shown.length, "clip")}${this.shown.length < this.clips.length ? ` of ${this.clips.length}` : ""}`
      : "Nothing has been transcribed yet: choose files above.";
    this.showTools();
  }

  showMore() {
    const from = this.list.children.length;
    if (from >= this.shown.length) return;
    this.list.append(...this.shown.slice(from, from + PAGE).map((clip) => this.clipItem(clip)));
    // It only tells of changes: the end may still be in sight.
    this.more.unobserve(this.end);
    this.more.observe(this.end);
  }

  clipItem(clip) {
    return el("li", {},
      el("input", { type: "checkbox", "aria-label": `Select ${clip.clipName}`, checked: this.chosen.has(clip.clip), dataset: { clip: clip.clip } }),
      el("a", { class: "clip-name", href: `#/clip/${encodeURIComponent(clip.clip)}` }, clip.clipName || clip.clip),
      el("span", { class: "when" }, clock(clip.endMS)),
      el("span", {}, clip.projects.join(", ")),
      el("span", {}, clip.languages.map(languageName).join(", ")),
      el("span", { class: "people" }, clip.speakers.join(", ")),
      el("span", { class: clip.state === "complete" ? "state" : "state bad" }, clip.state === "complete" ? "" : "not complete"),
      button("Manage", () => this.manage(clip), { "aria-label": `Manage ${clip.clipName}` }));
  }

  onChoice(event) {
    const { clip } = event.target.dataset;
    if (event.target.checked) this.chosen.add(clip);
    else this.chosen.delete(clip);
    this.showTools();
  }

  choose(clips, isChosen) {
    for (const { clip } of clips) {
      if (isChosen) this.chosen.add(clip);
      else this.chosen.delete(clip);
    }
    for (const box of this.list.querySelectorAll("[data-clip]")) box.checked = this.chosen.has(box.dataset.clip);
    this.showTools();
  }

  showTools() {
    const clips = this.clips.filter(({ clip }) => this.chosen.has(clip));
    this.chooseAll.checked = this.shown.length > 0 && this.shown.every(({ clip }) => this.chosen.has(clip));
    this.chooseAll.disabled = !this.shown.length;
    this.tools.hidden = !clips.length;
    if (!clips.length) return;
    this.tools.replaceChildren(
      el("span", { class: "count" }, `${clips.length} selected`),
      button("Add to project…", () => this.askJoin(clips)),
      button("Remove from project…", () => this.askLeave(clips)),
      button("Transcribe again…", () => this.askAgain(clips)),
      button("Export…", () => this.askExport(clips), { "aria-label": "Export the selected clips" }),
      button("Delete…", () => this.askDelete(clips), { class: "danger" }),
      button("Clear selection", () => this.choose(clips, false)));
  }

  /** Does something with each clip in turn, and says what could not be done. */
  async each(doing, clips, action) {
    const aborter = new AbortController();
    const bar = el("progress", { max: clips.length, value: 0, "aria-label": doing });
    showDialog(this.dialog, doing, [bar], [button("Stop", () => aborter.abort())]);
    const onCancel = (event) => {
      event.preventDefault(); // the dialog stays until the present clip is done
      aborter.abort();
    };
    this.dialog.addEventListener("cancel", onCancel, { once: true, signal: aborter.signal });
    let done = 0;
    const failures = [];
    for (const clip of clips) {
      if (aborter.signal.aborted) break;
      try {
        await action(clip);
        ++done;
      } catch (failure) {
        failures.push(`${clip.clipName}: ${failure.message}`);
      }
      bar.value += 1;
    }
    aborter.abort(); // Escape closes the next dialog again
    this.dialog.close();
    await this.load();
    announce(`Done: ${done} of ${clips.length}`);
    if (!failures.length) return;
    const listed = failures.slice(0, MOST_FAILURES_SHOWN);
    if (listed.length < failures.length) listed.push(`and ${failures.length - listed.length} more`);
    alertFailure(new Error(listed.join("\n")));
  }

  nameOf(clips) {
    return clips.length === 1 ? clips[0].clipName : counted(clips.length, "clip");
  }

  /** A question with an answer that begins something. */
  question(title, content, answer, properties, act) {
    showDialog(this.dialog, title, content, [button("Cancel", () => this.dialog.close()), button(answer, act, properties)]);
  }

  askJoin(clips) {
    const project = el("input", { type: "text", list: "projects", autocomplete: "off", required: true });
    this.question(`Add ${this.nameOf(clips)} to a project`, [labelled("Add to project", project)], "Add", { class: "primary" }, () =>
      project.reportValidity() && this.each(`Adding to ${project.value}`, clips, ({ clip }) => api.join(clip, project.value.trim())));
    project.focus();
  }

  askLeave(clips) {
    const projects = [...new Set(clips.flatMap((clip) => clip.projects))].sort();
    const project = el("select", {}, ...projects.map((name) => el("option", {}, name)));
    this.question(`Remove ${this.nameOf(clips)} from a project`,
      [labelled("Remove from project", project), el("p", { class: "hint" }, "A clip stays in its other projects; it cannot be removed from its last one.")],
      "Remove", { class: "primary" }, () => this.each(`Removing from ${project.value}`,
        clips.filter((clip) => clip.projects.includes(project.value)), ({ clip }) => api.leave(clip, project.value)));
  }

  askAgain(clips) {
    const language = this.language.cloneNode(true);
    language.value = "";
    this.question(`Transcribe ${this.nameOf(clips)} again?`,
      [labelled("Language", language), el("p", {}, "The new transcript takes the place of the present one once it is whole. Speakers keep their names.")],
      "Transcribe", { class: "primary" }, () => this.each("Queueing", clips, ({ clip }) => api.again(clip, language.value)));
  }

  askExport(clips) {
    const shared = this.projects.find(({ project }) => clips.every((clip) => clip.projects.includes(project)));
    if (!shared) return alertFailure(new Error("These clips have no project in common: export those of one project at a time."));
    askTransfer(this.dialog, { title: shared.project, projects: [shared.projectId], clips: clips.map(({ clip }) => clip) }, this.nameOf(clips));
  }

  askDelete(clips) {
    const projects = [...new Set(clips.flatMap((clip) => clip.projects))].map((name) => `“${name}”`);
    this.question(`Delete the transcript of ${this.nameOf(clips)}?`,
      [el("p", {}, `Deleted from ${projects.join(", ")}, with the speakers that were named there. Media files stay where they are.`)],
      "Delete", { class: "danger" }, () => this.each("Deleting", clips, ({ clip }) => api.remove(clip)));
  }

  /** All that can be done with one clip. */
  manage(clip) {
    const act = (label, ask, properties = {}) => button(label, () => ask.call(this, [clip]), properties);
    const members = clip.projects.map((name) => el("li", {}, el("span", {}, name), clip.projects.length > 1
      ? button("Remove", () => this.each(`Removing from ${name}`, [clip], () => api.leave(clip.clip, name)), { "aria-label": `Remove from ${name}` })
      : null));
    showDialog(this.dialog, clip.clipName, [
      el("h3", {}, "Projects"), el("ul", { class: "members" }, ...members),
      el("p", { class: "hint" }, clip.path ? `The media file stays where it is: ${clip.path}` : "The media lies on another machine."),
      el("div", { class: "row" },
        clip.state === "complete" ? act("Add to project…", this.askJoin) : null,
        clip.path ? act("Transcribe again…", this.askAgain) : null,
        clip.state === "complete" ? act("Export…", this.askExport) : null,
        act("Delete the transcript…", this.askDelete, { class: "danger" })),
    ], [button("Close", () => this.dialog.close())]);
  }

  close() {
    this.aborter.abort();
    this.more.disconnect();
    this.jobs.close();
  }
}

export function showLibrary(root) {
  const library = new Library(root);
  return () => library.close();
}
