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
  lines: (clip, segment, signal) => json(clipPath(clip, `/lines?segment=${segment}`), { signal }),
  join: (clip, project) => json(clipPath(clip, "/join"), withBody("POST", { project })),
  leave: (clip, project) => json(clipPath(clip, "/leave"), withBody("POST", { project })),
  remove: (clip) => json(clipPath(clip), { method: "DELETE" }),
  speakers: async (clip) => (await json(clipPath(clip, "/speakers"))).speakers,
  nameSpeaker: (clip, speaker, name) => json(clipPath(clip, "/speakers"), withBody("POST", { speaker, name })),
  assignSegment: (clip, segment, name) => json(clipPath(clip, "/speakers/segment"), withBody("POST", { segment, name })),
  clearSpeaker: (clip, speaker, segment) => json(clipPath(clip, "/speakers/clear"), withBody("POST", { speaker, segment })),
  forms: async () => (await json("/api/forms")).forms,
  align: (request, signal) => json("/api/scripts", { ...withBody("POST", request), signal }),
  export: (request) => json("/api/exports", withBody("POST", request)),
  cancelJob: (job) => json(`/api/jobs/${job}/cancel`, { method: "POST" }),
  retryJob: (job) => json(`/api/jobs/${job}/retry`, { method: "POST" }),
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
  upload(file, project, language, onProgress) {
    return new Promise((resolve, reject) => {
      const request = new XMLHttpRequest();
      request.open("POST", `/api/uploads?${new URLSearchParams({ name: file.name, project, language })}`);
      request.responseType = "json";
      request.upload.addEventListener("progress", (event) => onProgress(event.loaded / Math.max(event.total, 1)));
      request.addEventListener("error", () => reject(new ApiError(0, `${file.name} could not be copied to the desk`)));
      request.addEventListener("load", () => {
        if (request.status < 300) resolve(request.response);
        else reject(new ApiError(request.status, request.response?.error ?? `${file.name} could not be copied`));
      });
      request.send(file);
    });
  },
};
