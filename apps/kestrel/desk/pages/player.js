/** Plays a clip's media, or the preview of media that the browser cannot play. */

import { api, clipPath } from "./api.js";
import { el } from "./dom.js";

const FASTEST = 4;
const STEP_BACK_MS = 100;

export class Player {
  /** `onTime` is called with milliseconds, for each frame while it plays and after each jump. */
  constructor(onTime) {
    this.onTime = onTime;
    this.note = el("p", { class: "note", role: "status" });
    this.media = el("video", { preload: "metadata", playsinline: true, tabindex: "-1" });
    this.element = el("div", { class: "stage" }, this.media, this.note);
    this.aborter = new AbortController();
    this.backwards = 0;
    this.media.addEventListener("error", () => this.#usePreview());
    this.media.addEventListener("loadedmetadata", () => this.#checkPicture());
    for (const event of ["seeked", "timeupdate", "loadedmetadata"]) {
      this.media.addEventListener(event, () => this.onTime(this.ms));
    }
    this.media.addEventListener("play", () => this.#follow());
  }

  /** `info` is what the desk knows of the media. */
  load(clip, info) {
    if (this.clip === clip) return;
    this.clip = clip;
    this.info = info;
    this.isPreview = false;
    this.aborter.abort();
    this.aborter = new AbortController();
    this.note.textContent = info.error ?? "";
    this.element.classList.toggle("sound", !info.video);
    if (info.error) this.media.removeAttribute("src");
    else this.media.src = clipPath(clip, "/media");
  }

  get ms() {
    return this.media.currentTime * 1000;
  }

  get durationMs() {
    return Number.isFinite(this.media.duration) ? this.media.duration * 1000 : (this.info?.durationMS ?? 0);
  }

  get isPlaying() {
    return !this.media.paused;
  }

  seek(ms) {
    const most = this.durationMs || Infinity;
    this.media.currentTime = Math.min(Math.max(ms, 0), most) / 1000;
    this.onTime(ms);
  }

  play() {
    this.#stopBackwards();
    // A jump or another clip may come before it begins.
    return this.media.play().catch((failure) => {
      if (failure.name === "NotAllowedError") this.note.textContent = "Press play to begin.";
    });
  }

  pause() {
    this.#stopBackwards();
    this.media.pause();
    this.media.playbackRate = 1;
  }

  toggle() {
    if (this.isPlaying || this.backwards) this.pause();
    else this.play();
  }

  /** Faster with each press. */
  forwards() {
    this.media.playbackRate = this.isPlaying ? Math.min(this.media.playbackRate * 2, FASTEST) : 1;
    this.play();
  }

  /** Browsers play forwards only: we step. */
  reverse() {
    const speed = Math.min((this.speedBack ?? 0) * 2 || 1, FASTEST);
    this.pause();
    this.speedBack = speed;
    this.backwards = setInterval(() => {
      this.seek(this.ms - STEP_BACK_MS * this.speedBack);
      if (this.ms <= 0) this.pause();
    }, STEP_BACK_MS);
  }

  close() {
    this.aborter.abort();
    this.#stopBackwards();
    this.media.pause();
    this.media.removeAttribute("src");
    this.media.load();
  }

  #stopBackwards() {
    clearInterval(this.backwards);
    this.backwards = 0;
    this.speedBack = 0;
  }

  #follow() {
    const frame = () => {
      this.onTime(this.ms);
      if (this.isPlaying) requestAnimationFrame(frame);
    };
    requestAnimationFrame(frame);
  }

  /** Of a picture that they cannot decode, browsers play the sound alone. */
  #checkPicture() {
    if (this.info?.video && this.media.videoWidth === 0) this.#usePreview();
  }

  async #usePreview() {
    if (!this.media.getAttribute("src")) return;
    if (this.isPreview) {
      this.note.textContent = "The preview cannot be played by this browser.";
      return;
    }
    this.isPreview = true;
    const wanted = this.media.currentTime;
    const wasPlaying = this.isPlaying;
    const signal = this.aborter.signal;
    const tell = (fraction) => {
      this.note.textContent = `This browser cannot play the file. Making a preview: ${Math.round(fraction * 100)} %`;
    };
    tell(0);
    try {
      const answer = await api.whenMade(clipPath(this.clip, "/preview"), signal, tell);
      const { address } = await answer.json();
      if (signal.aborted) return;
      this.note.textContent = "Preview";
      this.media.src = address;
      this.media.currentTime = wanted;
      if (wasPlaying) this.play();
    } catch (failure) {
      if (!signal.aborted) this.note.textContent = failure.message;
    }
  }
}
