/** Asks in which format something leaves, and hands the file to the browser. */

import { api } from "./api.js";
import { alertFailure, announce, button, el, labelled, memory, showDialog } from "./dom.js";

function download(name, text) {
  const address = URL.createObjectURL(new Blob([text], { type: "text/plain" }));
  el("a", { href: address, download: name }).click();
  setTimeout(() => URL.revokeObjectURL(address), 10_000);
}

/** `what` says in a title what is exported; `request` is what the desk is asked besides the form. */
export async function askExport(dialog, what, request) {
  let forms;
  try {
    forms = await api.forms();
  } catch (failure) {
    return alertFailure(failure);
  }
  const form = el("select", {}, ...forms.map(({ form: name, summary }) => el("option", { value: name }, `${name} – ${summary}`)));
  form.value = memory.get("form", "srt");
  const stringOut = el("input", { type: "checkbox" });
  const handles = el("input", { type: "number", min: "0", max: "60", step: "0.5", value: "1" });
  const edits = el("fieldset", {}, el("legend", {}, "For editing programs"),
    el("label", { class: "check" }, stringOut, el("span", {}, "String-out instead of markers on the whole clip")),
    labelled("Handles of a string-out, in seconds", handles));
  const showEdits = () => (edits.hidden = !forms.find(({ form: name }) => name === form.value)?.edit);
  form.addEventListener("change", showEdits);
  showEdits();
  const save = async () => {
    try {
      memory.set("form", form.value);
      const { name, text, warning } = await api.export({
        ...request, form: form.value, stringOut: stringOut.checked && !edits.hidden, handleMS: Math.round(Number(handles.value) * 1000),
      });
      download(name, text);
      dialog.close();
      announce(`${name} is saved`);
      if (warning) alertFailure(new Error(warning));
    } catch (failure) {
      dialog.close();
      alertFailure(failure);
    }
  };
  showDialog(dialog, what, [labelled("Format", form), edits],
    [button("Cancel", () => dialog.close()), button("Save", save, { class: "primary" })]);
}
