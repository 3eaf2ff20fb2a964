/** The library: what is transcribed, and what is being transcribed. */

import { api } from "./api.js";
import { alertFailure, announce, button, clock, counted, el, languageName, memory, setOptions } from "./dom.js";
import { makeDialog } from "./export.js";

/** "2 min left"; nothing for the last seconds. */
function timeLeft(seconds) {
  if (seconds === undefined || seconds < 3) return "";
  return seconds < 90 ? `${seconds} s left` : `${Math.round(seconds / 60)} min left`;
}

class Library {
  constructor(root) {
    this.aborter = new AbortController();
    this.clips = [];
    this.uploads = [];
    this.jobs = [];
    this.items = new Map();
    this.build(root);
    this.loadProjects();
    this.loadLanguages();
    this.load();
    this.listen();
    document.addEventListener("visibilitychange", () => this.listen(), { signal: this.aborter.signal });
  }

  build(root) {
    this.projectName = el("input", {
      type: "text", list: "projects", value: memory.get("newProject"), autocomplete: "off", required: true,
      on: { change: () => memory.set("newProject", this.projectName.value) },
    });
    this.projectList = el("datalist", { id: "projects" });
    this.language = el("select", { on: { change: () => memory.set("language", this.language.value) } });
    this.files = el("input", {
      type: "file", multiple: true, accept: "audio/*,video/*,.mxf,.mkv,.mts,.r3d,.braw", class: "unseen", tabindex: "-1", "aria-label": "Media files",
      on: { change: () => this.add([...this.files.files]) },
    });
    this.drop = el("section", {
      class: "drop", "aria-label": "Add media",
      on: {
        dragover: (event) => {
          event.preventDefault();
          this.drop.classList.add("over");
        },
        dragleave: () => this.drop.classList.remove("over"),
        drop: (event) => {
          event.preventDefault();
          this.drop.classList.remove("over");
          this.add([...event.dataTransfer.files]);
        },
      },
    },
      el("label", {}, el("span", {}, "Project"), this.projectName, this.projectList),
      el("label", {}, el("span", {}, "Language spoken"), this.language),
      this.files, button("Choose files…", () => this.choose(), { class: "primary" }),
      el("p", { class: "hint" }, "or drop them here. Kestrel transcribes a copy and keeps it."));
    this.jobList = el("ul", { class: "jobs", "aria-label": "Transcriptions" });
    this.nameFilter = el("input", { type: "search", placeholder: "Filter by name", "aria-label": "Filter by name", on: { input: () => this.filter() } });
    const select = (label, all) => {
      const made = el("select", { on: { change: () => this.filter() } }, el("option", { value: "" }, all));
      return [made, el("label", {}, el("span", {}, label), made)];
    };
    const [project, projectLabel] = select("Project", "All projects");
    const [speaker, speakerLabel] = select("Speaker", "Anyone");
    const [clipLanguage, languageLabel] = select("Language", "All languages");
    const [state, stateLabel] = select("State", "All");
    Object.assign(this, { project, speaker, clipLanguage, state });
    setOptions(state, [["", "All"], ["complete", "Complete"], ["unfinished", "Not complete"]]);
    this.count = el("p", { class: "count", role: "status" }, "Reading the library…");
    this.list = el("ul", { class: "clips", "aria-label": "Clips" });
    this.dialog = makeDialog();
    root.append(el("h1", {}, "Library"), this.drop, this.jobList,
      el("div", { class: "filters" }, this.nameFilter, projectLabel, speakerLabel, languageLabel, stateLabel), this.count, this.list,
      this.dialog);
  }

  async loadProjects() {
    try {
      const projects = await api.projects();
      this.projectList.replaceChildren(...projects.map(({ project }) => el("option", { value: project })));
    } catch (failure) {
      alertFailure(failure);
    }
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
      const { clips } = await api.clips("", this.aborter.signal);
      this.clips = clips;
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

  filter() {
    const name = this.nameFilter.value.trim().toLocaleLowerCase();
    const fits = (select, values) => !select.value || values.includes(select.value);
    const shown = this.clips.filter((clip) =>
      clip.clipName.toLocaleLowerCase().includes(name) && fits(this.project, clip.projects) && fits(this.speaker, clip.speakers) &&
      fits(this.clipLanguage, clip.languages) && fits(this.state, [clip.complete ? "complete" : "unfinished"]));
    this.list.replaceChildren(...shown.map((clip) => this.clipItem(clip)));
    this.count.textContent = this.clips.length
      ? `${counted(shown.length, "clip")}${shown.length < this.clips.length ? ` of ${this.clips.length}` : ""}`
      : "Nothing has been transcribed yet: choose files above.";
  }

  clipItem(clip) {
    return el("li", {},
      el("a", { class: "clip-name", href: `#/clip/${encodeURIComponent(clip.clip)}` }, clip.clipName || clip.clip),
      el("span", { class: "when" }, clock(clip.endMS)),
      el("span", {}, clip.projects.join(", ")),
      el("span", {}, clip.languages.map(languageName).join(", ")),
      el("span", { class: "people" }, clip.speakers.join(", ")),
      el("span", { class: clip.complete ? "state" : "state bad" }, clip.complete ? "" : "not complete"),
      button("Manage", () => this.manage(clip), { "aria-label": `Manage ${clip.clipName}` }));
  }

  /** Membership and deletion of one clip. */
  manage(clip) {
    const project = el("input", { type: "text", list: "projects", autocomplete: "off" });
    const act = (label, action, properties = {}) => button(label, async () => {
      try {
        await action();
        this.dialog.close();
        this.loadProjects();
        await this.load();
        announce("Done");
      } catch (failure) {
        this.dialog.close();
        alertFailure(failure);
      }
    }, properties);
    const members = clip.projects.map((name) => el("li", {}, el("span", {}, name),
      clip.projects.length > 1 ? act("Remove", () => api.leave(clip.clip, name), { "aria-label": `Remove from ${name}` }) : null));
    this.ask(clip.clipName,
      el("h3", {}, "Projects"), el("ul", { class: "members" }, ...members),
      clip.complete
        ? el("div", { class: "row" }, el("label", {}, el("span", {}, "Add to project"), project),
          act("Add", () => api.join(clip.clip, project.value)))
        : null,
      el("h3", {}, "Transcript"),
      el("p", {}, clip.path ? `The media file stays where it is: ${clip.path}` : "The media lies on another machine."),
      el("div", { class: "row" }, button("Delete the transcript…", () => this.askDelete(clip, act), { class: "danger" })));
  }

  askDelete(clip, act) {
    this.ask(`Delete the transcript of ${clip.clipName}?`,
      el("p", {}, `It is deleted from ${clip.projects.map((name) => `“${name}”`).join(", ")} with the speakers that were named in it.`),
      el("div", { class: "row" }, act("Delete", () => api.remove(clip.clip), { class: "danger" })));
  }

  ask(title, ...content) {
    this.dialog.replaceChildren(el("h2", { id: "dialog-title" }, title), ...content.filter(Boolean),
      el("div", { class: "row end" }, button("Close", () => this.dialog.close())));
    if (!this.dialog.open) this.dialog.showModal();
  }

  choose() {
    if (!this.projectName.reportValidity()) return;
    this.files.value = "";
    this.files.click();
  }

  add(files) {
    if (!this.projectName.value.trim()) {
      this.projectName.setCustomValidity("Name the project that the files belong to");
      this.projectName.reportValidity();
      this.projectName.setCustomValidity("");
      return;
    }
    const project = this.projectName.value.trim();
    this.uploads.push(...files.map((file) => ({ file, project, language: this.language.value, fraction: 0, state: "waiting" })));
    this.showJobs();
    this.copyNext();
  }

  /** One after another: the first is transcribed while the others are copied. */
  async copyNext() {
    const next = this.uploads.find((upload) => upload.state === "waiting");
    if (!next || this.uploads.some((upload) => upload.state === "copying")) return;
    next.state = "copying";
    try {
      await api.upload(next.file, next.project, next.language, (fraction) => {
        next.fraction = fraction;
        this.showJobs();
      });
      this.uploads.splice(this.uploads.indexOf(next), 1);
    } catch (failure) {
      next.state = "failed";
      next.message = failure.message;
    }
    this.showJobs();
    this.copyNext();
  }

  listen() {
    this.events?.close();
    this.events = null;
    // A browser has few connections for all its windows: those that nobody sees give theirs back.
    if (document.hidden || this.aborter.signal.aborted) return;
    this.events = new EventSource("/api/events");
    this.events.addEventListener("message", (event) => {
      const before = this.jobs.filter((job) => job.state === "done").length;
      this.jobs = JSON.parse(event.data).jobs;
      this.showJobs();
      if (this.jobs.filter((job) => job.state === "done").length > before) {
        this.load();
        this.loadProjects();
      }
    });
  }

  /** Items stay in place while only their progress changes, so that a click never misses its button. */
  showJobs() {
    const items = [
      ...this.uploads.map((upload) => this.item(upload, `copy ${upload.state}`, () => this.uploadItem(upload))),
      ...this.jobs.map((job) => this.item(`job ${job.job}`, job.state, () => this.jobItem(job))),
    ];
    this.uploads.forEach((upload, i) => this.showProgress(items[i], upload.fraction, upload.state === "failed" ? upload.message : upload.state));
    this.jobs.forEach((job, i) => this.showProgress(items[this.uploads.length + i], job.fraction,
      job.state === "running"
        ? [job.stage, timeLeft(job.secondsLeft)].filter(Boolean).join(", ")
        : [job.state, job.message].filter(Boolean).join(": ")));
    if (items.length !== this.jobList.children.length || items.some((item, i) => item !== this.jobList.children[i])) {
      this.jobList.replaceChildren(...items);
    }
  }

  item(key, state, make) {
    const known = this.items.get(key);
    if (known?.state === state) return known.item;
    const item = make();
    this.items.set(key, { state, item });
    return item;
  }

  showProgress(item, fraction, state) {
    item.querySelector("progress")?.setAttribute("value", String(fraction ?? 0));
    const shown = item.querySelector(".state");
    if (shown.textContent !== state) shown.textContent = state;
  }

  uploadItem(upload) {
    const { name } = upload.file;
    const dismiss = () => {
      this.uploads.splice(this.uploads.indexOf(upload), 1);
      this.showJobs();
    };
    const hasFailed = upload.state === "failed";
    return el("li", {}, el("span", { class: "job-name" }, name), el("span", {}, upload.project),
      el("div", { class: "how" }, hasFailed ? null : el("progress", { "aria-label": `Copying ${name}`, max: 1 }),
        el("span", { class: hasFailed ? "state bad" : "state" })),
      el("div", { class: "acts" }, hasFailed ? button("Dismiss", dismiss) : null));
  }

  jobItem(job) {
    const act = (label, action) => button(label, () => action(job.job).catch(alertFailure), { "aria-label": `${label}: ${job.name}` });
    const canRetry = job.state === "failed" || job.state === "cancelled";
    return el("li", {}, el("span", { class: "job-name" }, job.name), el("span", {}, job.project),
      el("div", { class: "how" },
        job.state === "running" ? el("progress", { "aria-label": `Transcribing ${job.name}`, max: 1 }) : null,
        el("span", { class: job.state === "failed" ? "state bad" : "state" })),
      el("div", { class: "acts" },
        job.clip && job.state === "done" ? el("a", { class: "button", href: `#/clip/${encodeURIComponent(job.clip)}` }, "Open") : null,
        canRetry ? act("Try again", api.retryJob) : null,
        canRetry || job.state === "done" ? act("Dismiss", api.forgetJob) : act("Cancel", api.cancelJob)));
  }

  close() {
    this.aborter.abort();
    this.events?.close();
  }
}

export function showLibrary(root) {
  const library = new Library(root);
  return () => library.close();
}
