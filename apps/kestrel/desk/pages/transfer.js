/** Encrypted exchange files: transcripts out to another installation, and in from one. */

import { api } from "./api.js";
import { alertFailure, announce, button, counted, el, labelled, showDialog } from "./dom.js";

const POLL_MS = 300;
const MOST_LISTED = 200;

const secret = () => el("input", { type: "password", autocomplete: "off", required: true });

/** Shows the progress of a transfer until it ends, and returns how it did. */
async function follow(dialog, title, transfer) {
  const bar = el("progress", { max: 1, "aria-label": title });
  const stage = el("p", { class: "hint", role: "status" });
  const cancel = (event) => {
    event.preventDefault(); // the dialog stays until the desk has stopped
    api.cancelTransfer(transfer).catch(alertFailure);
  };
  showDialog(dialog, title, [bar, stage], [button("Cancel", cancel)]);
  dialog.addEventListener("cancel", cancel);
  try {
    for (;;) {
      const state = await api.transfer(transfer);
      if (state.state !== "running") return state;
      bar.value = state.fraction;
      stage.textContent = state.stage ? `${state.stage}: ${Math.round(state.fraction * 100)} %` : "starting";
      await new Promise((resolve) => setTimeout(resolve, POLL_MS));
    }
  } finally {
    dialog.removeEventListener("cancel", cancel);
  }
}

/** Asks for a pass phrase and saves the clips, or all of the projects. */
export function askTransfer(dialog, { title, projects, clips = [] }, what) {
  const phrase = secret();
  const again = secret();
  const problem = el("p", { class: "state bad", role: "alert" });
  const ask = (message = "") => {
    problem.textContent = message;
    showDialog(dialog, `Export ${what}`, [
      el("p", {}, "The file is encrypted. Whoever imports it needs the same pass phrase; without it nobody can read it."),
      labelled("Pass phrase", phrase), labelled("The same again", again), problem],
    [button("Cancel", () => dialog.close()), button("Save", save, { class: "primary" })]);
  };
  const save = async () => {
    if (!phrase.reportValidity()) return;
    if (phrase.value !== again.value) return ask("The two pass phrases differ.");
    try {
      const transfer = await api.exportTranscripts({ title, projects, clips, passPhrase: phrase.value });
      const end = await follow(dialog, `Exporting ${what}`, transfer);
      if (end.state !== "done") {
        api.dropTransfer(transfer).catch(() => {}); // the desk removes it when it ends
        return ask(end.message ?? "The export was cancelled.");
      }
      el("a", { href: `/api/transfers/${transfer}/file`, download: end.name }).click();
      dialog.close();
      announce(`${end.name} is saved: ${counted(end.result.segments, "segment")} of ${counted(end.result.clips, "clip")}`);
    } catch (failure) {
      dialog.close();
      alertFailure(failure);
    }
  };
  ask();
  phrase.focus();
}

/** What an import would do, in words and by clip. */
function planContent(plan) {
  const kinds = [
    ["new", "is new", "are new"],
    ["replaced", "replaces a transcript of this library", "replace transcripts of this library"],
    ["unfinishedReplaced", "replaces a transcript that was never completed", "replace transcripts that were never completed"],
  ];
  const parts = kinds.filter(([kind]) => plan[kind].length).flatMap(([kind, one, several]) => {
    const clips = plan[kind];
    return [
      el("h3", {}, `${counted(clips.length, "clip")} ${clips.length === 1 ? one : several}`),
      el("ul", { class: "plan", tabindex: "0", "aria-label": `Clips: ${kind}` }, ...clips.slice(0, MOST_LISTED)
        .map((clip) => el("li", {}, el("span", {}, clip.clipName || clip.clip), el("span", { class: "when" }, counted(clip.segments, "segment")))),
      clips.length > MOST_LISTED ? el("li", {}, `and ${clips.length - MOST_LISTED} more`) : null),
    ];
  });
  const unlisted = plan.speakers.length - MOST_LISTED;
  if (plan.speakers.length) {
    const names = plan.speakers.slice(0, MOST_LISTED).join(", ");
    parts.push(el("p", {}, `Names of speakers come along: ${names}${unlisted > 0 ? ` and ${unlisted} more` : ""}.`));
  }
  const strangers = plan.filedUnderProject.length;
  if (strangers) parts.push(el("p", {}, `${counted(strangers, "clip")} of a project that is not known here: filed under “${plan.project}”.`));
  return parts;
}

/** Asks for an exchange file, shows what it would change, and imports it. */
export function askImport(dialog, file, onDone) {
  const phrase = secret();
  const project = el("input", { type: "text", list: "projects", autocomplete: "off", value: file.name.replace(/\.kst$/i, "") });
  const problem = el("p", { class: "state bad", role: "alert" });
  let transfer = 0;
  const request = () => ({ passPhrase: phrase.value, project: project.value.trim() });
  const end = () => {
    dialog.close();
    if (transfer) api.dropTransfer(transfer).catch(() => {}); // the desk removes it when it ends
  };
  const ask = (message = "") => {
    problem.textContent = message;
    showDialog(dialog, `Import ${file.name}`, [
      labelled("Pass phrase of the file", phrase),
      labelled("Project for clips whose own project is not known here", project), problem],
    [button("Cancel", end), button("Preview", preview, { class: "primary" })]);
  };
  const askAfter = (failure) => {
    if (failure.status === 404) transfer = 0; // the desk has dropped the file: the next try copies it again
    ask(failure.name === "AbortError" ? "" : failure.message);
  };
  const copy = async () => {
    const aborter = new AbortController();
    const bar = el("progress", { max: 1, "aria-label": "Copying" });
    showDialog(dialog, `Copying ${file.name}`, [bar], [button("Cancel", () => aborter.abort())]);
    transfer = await api.addImport(file, (fraction) => (bar.value = fraction), aborter.signal);
  };
  const preview = async () => {
    if (!phrase.reportValidity()) return;
    try {
      if (!transfer) await copy();
      await api.previewImport(transfer, request());
      const state = await follow(dialog, `Checking ${file.name}`, transfer);
      if (state.state !== "done") return ask(state.message ?? "");
      showPlan(state.result);
    } catch (failure) {
      askAfter(failure);
    }
  };
  const showPlan = (plan) => showDialog(dialog, `What ${file.name} brings`, planContent(plan),
    [button("Cancel", end), button("Back", () => ask()), button("Import", run, { class: "primary" })]);
  const run = async () => {
    try {
      await api.import(transfer, request());
      const state = await follow(dialog, `Importing ${file.name}`, transfer);
      if (state.state !== "done") return ask(state.message ?? "");
      end();
      const { warnings } = state.result;
      if (warnings.length) alertFailure(new Error(`The transcripts are in, but ${warnings.slice(0, 3).join("; ")}`));
      announce(`${file.name} is imported: ${counted(state.result.new.length, "new clip")}`);
      onDone();
    } catch (failure) {
      askAfter(failure);
    }
  };
  ask();
  phrase.focus();
}
