/** The desk's JSON API. */

export class ApiError extends Error {
  constructor(status, message) {
    super(message);
    this.status = status;
  }
}

async function failureOf(answer) {
  let message = `the desk answered ${answer.status}`;
  try {
    message = (await answer.json()).error ?? message;
  } catch {
    // no JSON: the status has to do
  }
  return new ApiError(answer.status, message);
}

async function ask(path, options) {
  let answer;
  try {
    answer = await fetch(path, options);
  } catch (failure) {
    if (failure.name === "AbortError") throw failure;
    throw new ApiError(0, "The desk does not answer: is `kestrel desk` still running?");
  }
  if (!answer.ok) throw await failureOf(answer);
  return answer;
}

async function json(path, options) {
  const answer = await ask(path, options);
  return answer.status === 204 ? null : answer.json();
}

const withBody = (method, body) => ({
  method,
  headers: { "Content-Type": "application/json" },
  body: JSON.stringify(body),
});

export const clipPath = (clip, rest = "") => `/api/clips/${encodeURIComponent(clip)}${rest}`;

export const api = {
  openSession: (token) => json("/api/session", withBody("POST", { token })),
  projects: async () => (await json("/api/projects")).projects,
  languages: async () => (await json("/api/languages")).languages,
  clips: (project, signal) => json(`/api/clips?${new URLSearchParams({ project })}`, { signal }),
  search: (query, signal) => json(`/api/search?${new URLSearchParams(query)}`, { signal }),
  clip: (clip, signal) => json(clipPath(clip), { signal }),
  /** The lines around a segment; for a picture, which has none, those around its time. */
  lines: (clip, { segment, startMS }, signal) =>
    json(clipPath(clip, segment < 0 ? `/lines?at=${startMS}` : `/lines?segment=${segment}`), { signal }),
  join: (clip, project) => json(clipPath(clip, "/join"), withBody("POST", { project })),
  leave: (clip, project) => json(clipPath(clip, "/leave"), withBody("POST", { project })),
  remove: (clip) => json(clipPath(clip), { method: "DELETE" }),
  again: (clip, language) => json(clipPath(clip, "/again"), withBody("POST", { language })),
  removeProject: (project) => json(`/api/projects/${encodeURIComponent(project)}`, { method: "DELETE" }),
  indexByMeaning: (project) => json(`/api/projects/${encodeURIComponent(project)}/meaning`, { method: "POST" }),
  meaning: () => json("/api/meaning"),
  speakers: async (clip) => (await json(clipPath(clip, "/speakers"))).speakers,
  nameSpeaker: (clip, speaker, name) => json(clipPath(clip, "/speakers"), withBody("POST", { speaker, name })),
  assignSegment: (clip, segment, name) => json(clipPath(clip, "/speakers/segment"), withBody("POST", { segment, name })),
  clearSpeaker: (clip, speaker, segment) => json(clipPath(clip, "/speakers/clear"), withBody("POST", { speaker, segment })),
  undoSpeakers: (undo) => json("/api/speakers/undo", withBody("POST", { undo })),
  forms: async () => (await json("/api/forms")).forms,
  align: (request, signal) => json("/api/scripts", { ...withBody("POST", request), signal }),
  export: (request) => json("/api/exports", withBody("POST", request)),
  cancelJob: (job) => json(`/api/jobs/${job}/cancel`, { method: "POST" }),
  retryJob: (job) => json(`/api/jobs/${job}/retry`, { method: "POST" }),
  forgetEnded: () => json("/api/jobs", { method: "DELETE" }),
  forgetJob: (job) => json(`/api/jobs/${job}`, { method: "DELETE" }),

  /** Asks until what is made in the background is there. `onProgress` learns the fraction from 0 to 1. */
  async whenMade(path, signal, onProgress = () => {}) {
    for (;;) {
      const answer = await ask(path, { signal });
      if (answer.status !== 202) return answer;
      onProgress((await answer.json()).fraction);
      await new Promise((resolve) => setTimeout(resolve, 400));
      signal.throwIfAborted();
    }
  },

  /** Copies a file to the desk and lets it be transcribed. */
  upload: (file, project, language, onProgress) =>
    send(file, `/api/uploads?${new URLSearchParams({ name: file.name, project, language })}`, onProgress),

  exportTranscripts: async (request) => (await json("/api/transfers/export", withBody("POST", request))).transfer,
  /** Copies an exchange file to the desk, which reads it later on. */
  addImport: async (file, onProgress, signal) =>
    (await send(file, `/api/transfers?${new URLSearchParams({ name: file.name })}`, onProgress, signal)).transfer,
  previewImport: (transfer, request) => json(`/api/transfers/${transfer}/preview`, withBody("POST", request)),
  import: (transfer, request) => json(`/api/transfers/${transfer}/import`, withBody("POST", request)),
  transfer: (transfer) => json(`/api/transfers/${transfer}`),
  cancelTransfer: (transfer) => json(`/api/transfers/${transfer}/cancel`, { method: "POST" }),
  dropTransfer: (transfer) => json(`/api/transfers/${transfer}`, { method: "DELETE" }),
};

/** Sends a file as a body; unlike `fetch`, this tells how much of it has been sent. */
function send(file, path, onProgress, signal) {
  return new Promise((resolve, reject) => {
    const request = new XMLHttpRequest();
    request.open("POST", path);
    request.responseType = "json";
    request.upload.addEventListener("progress", (event) => onProgress(event.loaded / Math.max(event.total, 1)));
    request.addEventListener("error", () => reject(new ApiError(0, `${file.name} could not be copied to the desk`)));
    request.addEventListener("abort", () => reject(new DOMException("cancelled", "AbortError")));
    request.addEventListener("load", () => {
      if (request.status < 300) resolve(request.response);
      else reject(new ApiError(request.status, request.response?.error ?? `${file.name} could not be copied`));
    });
    signal?.addEventListener("abort", () => request.abort());
    request.send(file);
  });
}
