/** What is being transcribed, copied or indexed, and what came of it. */

import { api } from "./api.js";
import { alertFailure, button, el } from "./dom.js";

/** "2 min left"; nothing for the last seconds. */
function timeLeft(seconds) {
  if (seconds === undefined || seconds < 3) return "";
  return seconds < 90 ? `${seconds} s left` : `${Math.round(seconds / 60)} min left`;
}

const hasEnded = (job) => job.state !== "waiting" && job.state !== "running";

export class JobList {
  /** `onDone` is called when another job is done. */
  constructor(onDone) {
    this.onDone = onDone;
    this.aborter = new AbortController();
    this.uploads = [];
    this.jobs = [];
    this.items = new Map();
    this.list = el("ul", { class: "jobs", "aria-label": "Transcriptions", tabindex: "0" });
    this.retryAll = button("Try all again", () => this.all("failed", api.retryJob));
    this.dismissAll = button("Dismiss all that have ended", () => api.forgetEnded().catch(alertFailure));
    this.tools = el("div", { class: "row end" }, this.retryAll, this.dismissAll);
    this.element = el("section", { class: "job-section", "aria-label": "Jobs" }, this.list, this.tools);
    this.listen();
    this.showJobs();
    document.addEventListener("visibilitychange", () => this.listen(), { signal: this.aborter.signal });
  }

  add(files, project, language) {
    this.uploads.push(...files.map((file) => ({ file, project, language, fraction: 0, state: "waiting" })));
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

  async all(state, action) {
    try {
      for (const job of this.jobs.filter((one) => one.state === state)) await action(job.job);
    } catch (failure) {
      alertFailure(failure);
    }
  }

  listen() {
    this.events?.close();
    this.events = null;
    // A browser has few connections for all its windows: those that nobody sees give theirs back.
    if (document.hidden || this.aborter.signal.aborted) return;
    this.events = new EventSource("/api/events");
    this.events.addEventListener("message", (event) => {
      const before = new Set(this.jobs.filter((job) => job.state === "done").map((job) => job.job));
      const { jobs } = JSON.parse(event.data);
      const isFirst = !this.known;
      this.known = true;
      // What is under way comes first, then what ended last.
      this.jobs = [...jobs.filter((job) => !hasEnded(job)), ...jobs.filter(hasEnded).reverse()];
      this.showJobs();
      if (!isFirst && this.jobs.some((job) => job.state === "done" && !before.has(job.job))) this.onDone();
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
    if (items.length !== this.list.children.length || items.some((item, i) => item !== this.list.children[i])) {
      this.list.replaceChildren(...items);
      for (const [key, { item }] of this.items) if (!items.includes(item)) this.items.delete(key);
    }
    this.element.hidden = !items.length;
    this.retryAll.hidden = this.jobs.filter((job) => job.state === "failed").length < 2;
    this.dismissAll.hidden = this.jobs.filter(hasEnded).length < 2;
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
    const isIndexing = job.kind === "meaning";
    return el("li", {}, el("span", { class: "job-name" }, isIndexing ? `Search by meaning: ${job.name}` : job.name),
      el("span", {}, isIndexing ? "" : job.project),
      el("div", { class: "how" },
        job.state === "running" ? el("progress", { "aria-label": `Progress of ${job.name}`, max: 1 }) : null,
        el("span", { class: job.state === "failed" ? "state bad" : "state" })),
      el("div", { class: "acts" },
        job.clip && job.state === "done" ? el("a", { class: "button", href: `#/clip/${encodeURIComponent(job.clip)}` }, "Open") : null,
        canRetry ? act("Try again", api.retryJob) : null,
        hasEnded(job) ? act("Dismiss", api.forgetJob) : act("Cancel", api.cancelJob)));
  }

  close() {
    this.aborter.abort();
    this.events?.close();
  }
}
