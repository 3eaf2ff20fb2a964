/** Small helpers. Text from outside becomes text nodes only; nothing here reads HTML. */

/**
 * Makes an element. Properties: `class`, `on` (listeners by event), `dataset`; all others are attributes, left out when
 * null or false. Children are elements or texts.
 */
export function el(tag, properties = {}, ...children) {
  const element = document.createElement(tag);
  for (const [name, value] of Object.entries(properties)) {
    if (name === "on") {
      for (const [event, listener] of Object.entries(value)) element.addEventListener(event, listener);
    } else if (name === "dataset") {
      Object.assign(element.dataset, value);
    } else if (value !== null && value !== undefined && value !== false) {
      element.setAttribute(name, value === true ? "" : value);
    }
  }
  element.append(...children.filter((child) => child !== null && child !== undefined));
  return element;
}

export function button(label, onClick, properties = {}) {
  return el("button", { type: "button", on: { click: onClick }, ...properties }, label);
}

/** A labelled field. */
export function labelled(label, field, ...more) {
  return el("label", {}, el("span", {}, label), field, ...more);
}

/** A section on which files can be dropped. */
export function dropZone(label, onFiles, ...children) {
  const over = (isOver) => zone.classList.toggle("over", isOver);
  const zone = el("section", {
    class: "drop", "aria-label": label,
    on: {
      dragover: (event) => {
        event.preventDefault();
        over(true);
      },
      dragleave: () => over(false),
      drop: (event) => {
        event.preventDefault();
        over(false);
        onFiles([...event.dataTransfer.files]);
      },
    },
  }, ...children);
  return zone;
}

/** A hidden file field that a button opens. */
export function fileInput(label, properties, onFiles) {
  const input = el("input", {
    type: "file", class: "unseen", tabindex: "-1", "aria-label": label, ...properties,
    on: {
      change: () => {
        const files = [...input.files];
        input.value = ""; // the same file may be chosen again
        if (files.length) onFiles(files);
      },
    },
  });
  return input;
}

export function makeDialog() {
  return el("dialog", { "aria-labelledby": "dialog-title" });
}

/** Fills the dialog and opens it, if it is not open. */
export function showDialog(dialog, title, content, buttons) {
  dialog.replaceChildren(el("h2", { id: "dialog-title" }, title), ...content.filter(Boolean),
    el("div", { class: "row end" }, ...buttons.filter(Boolean)));
  if (!dialog.open) dialog.showModal();
}

/** Replaces the options of a select and keeps what is chosen, if it is still there. */
export function setOptions(select, options) {
  const chosen = select.value;
  select.replaceChildren(...options.map(([value, text]) => el("option", { value }, text)));
  if (options.some(([value]) => value === chosen)) select.value = chosen;
}

/** Tells people who listen to a screen reader what changed. */
export function announce(text) {
  document.getElementById("announcer").textContent = text;
}

function failureNote(failure) {
  const note = el("p", { class: "alert" }, el("span", {}, failure.message));
  note.append(button("Dismiss", () => note.remove()));
  return note;
}

/** Shows a failure until it is dismissed or another page is opened. */
export function alertFailure(failure) {
  if (failure.name === "AbortError") return;
  document.getElementById("alerts").replaceChildren(failureNote(failure));
}

/** Says what was done, and takes it back on demand; what could not be taken back can be tried again. */
export function offerUndo(text, undo) {
  const note = el("p", { class: "alert done" }, el("span", {}, text));
  const takeBack = button("Undo", async () => {
    takeBack.disabled = true;
    try {
      await undo();
      note.remove();
    } catch (failure) {
      takeBack.disabled = false;
      if (!note.isConnected) return alertFailure(failure);
      note.nextElementSibling?.remove(); // the failure before
      note.after(failureNote(failure));
    }
  });
  note.append(takeBack, button("Dismiss", () => note.remove()));
  document.getElementById("alerts").replaceChildren(note);
}

export function clearAlerts() {
  document.getElementById("alerts").replaceChildren();
}

/** 61_000 is 1:01; hours only when there are some. */
export function clock(ms) {
  const seconds = Math.floor(Math.max(ms, 0) / 1000);
  const two = (number) => String(number).padStart(2, "0");
  const hours = Math.floor(seconds / 3600);
  const minutes = Math.floor(seconds / 60) % 60;
  return hours ? `${hours}:${two(minutes)}:${two(seconds % 60)}` : `${minutes}:${two(seconds % 60)}`;
}

/** "3 clips", "1 clip". */
export function counted(number, noun) {
  return `${number.toLocaleString("en")} ${noun}${number === 1 ? "" : "s"}`;
}

const languageNames = new Intl.DisplayNames(["en"], { type: "language", fallback: "code" });

export function languageName(code) {
  try {
    return languageNames.of(code);
  } catch {
    return code; // not every engine names languages by their codes
  }
}

/** Whether keys typed now belong to a field. */
export function isTyping(target) {
  return target.matches("input, select, textarea, [contenteditable]") || target.closest("dialog") !== null;
}

/** What the browser remembers between visits. */
export const memory = {
  get: (name, standard = "") => localStorage.getItem(`kestrel.${name}`) ?? standard,
  set: (name, value) => localStorage.setItem(`kestrel.${name}`, value),
};
