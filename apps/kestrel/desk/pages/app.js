/** Opens the session and shows the page that the address names. */

import { api } from "./api.js";
import { clearAlerts, el } from "./dom.js";
import { showClip } from "./clip.js";
import { showLibrary } from "./library.js";
import { showScripts } from "./scripts.js";
import { showSearch } from "./search.js";

const root = document.getElementById("view");
let leave = () => {};

function pageOf(hash) {
  const [path, query = ""] = hash.replace(/^#\/?/, "").split("?");
  const [name, ...rest] = path.split("/");
  const parameters = new URLSearchParams(query);
  if (name === "clip") return ["clip", (view) => showClip(view, decodeURIComponent(rest.join("/")), parameters)];
  if (name === "scripts") return ["scripts", (view) => showScripts(view)];
  if (name === "library") return ["library", (view) => showLibrary(view)];
  return ["search", (view) => showSearch(view, parameters)];
}

function show() {
  leave();
  clearAlerts();
  const [name, page] = pageOf(location.hash);
  for (const link of document.querySelectorAll("nav [data-view]")) {
    if (link.dataset.view === name) link.setAttribute("aria-current", "page");
    else link.removeAttribute("aria-current");
  }
  root.className = name;
  root.replaceChildren();
  leave = page(root);
}

function refuse(failure) {
  root.replaceChildren(
    el("div", { class: "empty" }, el("h1", {}, "Not signed in"), el("p", {}, failure.message)),
  );
}

async function begin() {
  const token = /^#token=(\w+)$/.exec(location.hash)?.[1];
  try {
    if (token) {
      history.replaceState(null, "", "/#/");
      await api.openSession(token);
    } else {
      await api.projects();
    }
  } catch (failure) {
    if (failure.status === 401) return refuse(failure);
  }
  window.addEventListener("hashchange", show);
  show();
}

begin();
