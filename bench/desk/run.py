"""How quick the desk is in a real browser, on a store of many clips and with a clip of ten hours.

    python bench/desk/run.py --bin build/bin --deps .deps [--clips 10000] [--hour]

Prints milliseconds from a key to its hits, from an address to a clip of 100,000 words, frames while that scrolls and plays, and
the memory of the page and of the desk before and after many searches and clips; with --hour after as many as an editor gets done
in an hour.
"""

from __future__ import annotations

import argparse
import json
import os
import random
import statistics
import sys
import tempfile
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
WORDS = ("river bridge water morning evening station letter window garden mountain winter summer doctor teacher captain engine "
         "village market harbour lantern question answer promise silence thunder orchard journey stranger kitchen ladder").split()
LONG_LINES, LONG_WORDS = 8000, 12  # of about ten hours
ROUNDS = 20
MINUTES = 60  # of an hour's use: a round each, without the time that people take to read and listen

TYPE = """
const [phrase, done] = arguments;
const field = document.getElementById('phrase'), hits = document.getElementById('hits');
field.value = phrase;
const begin = performance.now();
field.dispatchEvent(new Event('input'));
const look = () => hits.getAttribute('aria-busy') === 'false'
  ? requestAnimationFrame(() => done([performance.now() - begin, hits.children.length])) : requestAnimationFrame(look);
look();
"""
# Until what is looked for has been painted.
OPEN = """
const [address, what, done] = arguments;
const begin = performance.now();
location.hash = address;
const look = () => document.querySelector(what)
  ? requestAnimationFrame(() => requestAnimationFrame(() => done(performance.now() - begin))) : requestAnimationFrame(look);
look();
"""
SCROLL = """
const [seconds, done] = arguments;
const scroller = document.querySelector('.scroller'), frames = [];
document.querySelector('.transport .primary').click();
let last = performance.now();
const end = last + seconds * 1000;
const step = (now) => {
  frames.push(now - last);
  last = now;
  scroller.scrollTop += 60;
  if (now < end) requestAnimationFrame(step); else done(frames.slice(1));
};
requestAnimationFrame(step);
"""


FIND = """
const [text, done] = arguments;
const field = document.querySelector('.find input');
field.value = text;
field.dispatchEvent(new Event('input'));
requestAnimationFrame(() => requestAnimationFrame(() => done()));
"""
PRESS = """
const [key, count] = arguments;
for (let i = 0; i < count; ++i) document.getElementById('phrase').dispatchEvent(new KeyboardEvent('keydown', {key, bubbles: true, cancelable: true}));
"""


def text(random_words: random.Random, count: int) -> str:
    return " ".join(random_words.choices(WORDS, k=count)).capitalize() + "."


def load(kestrel: object, clips: int) -> str:
    """Fills the store; returns the identifier of the clip of ten hours."""
    from app_under_test import SPEECH, TRANSCRIPTS, make_media
    from stored_clips import Line, StoredClip, put

    generator = random.Random(7)
    once = make_media(kestrel.home / "once.m4a", "-i", SPEECH / "english_long.wav", "-c:a", "aac", "-b:a", "32k")
    media = make_media(kestrel.home / "long.m4a", "-stream_loop", -1, "-i", once, "-t", 36000, "-c", "copy")
    long = StoredClip("long.m4a", "Long", [Line(text(generator, LONG_WORDS), i * 4500, 350, str(i // 9 % 4)) for i in range(LONG_LINES)], media)
    put(kestrel, StoredClip("first.wav", "Many", [Line("First.", 0)]))

    def bulk(some: list[StoredClip]) -> None:
        lines = [json.dumps(line) for clip in some for document in clip.documents() for line in ({"index": {"_index": TRANSCRIPTS}}, document)]
        kestrel.index("POST", "_bulk", "\n".join(lines) + "\n")

    for begin in range(0, clips, 250):
        bulk([StoredClip(f"clip {i}.mov", "Many", [Line(text(generator, 9), n * 4000, 350, str(n % 2)) for n in range(10)])
              for i in range(begin, min(begin + 250, clips))])
    for begin in range(0, LONG_LINES, 2000):
        documents = long.documents()[begin : begin + 2000]
        kestrel.index("POST", "_bulk", "\n".join(json.dumps(line) for document in documents for line in ({"index": {"_index": TRANSCRIPTS}}, document)) + "\n")
    catalogue = {"clips": [{"clip": long.id, "name": long.name, "path": str(media), "project": long.project, "language": "en"}]}
    (kestrel.home / "catalogue.json").write_text(json.dumps(catalogue))
    return long.id


class Memory:
    """What the page and the desk hold at the moment."""

    def __init__(self, browser: object, desk: object) -> None:
        browser.driver.execute_cdp_cmd("HeapProfiler.collectGarbage", {})
        self.heap = browser.driver.execute_cdp_cmd("Runtime.getHeapUsage", {})["usedSize"] / 1e6
        counters = browser.driver.execute_cdp_cmd("Memory.getDOMCounters", {})
        self.nodes, self.listeners = counters["nodes"], counters["jsEventListeners"]
        status = Path(f"/proc/{desk.pid}/status").read_text()
        self.desk = int(status.partition("VmRSS:")[2].split()[0]) / 1e3

    def __str__(self) -> str:
        return f"page {self.heap:.1f} MB, {self.nodes:,} nodes, {self.listeners:,} listeners; desk {self.desk:.0f} MB"


def use(browser: object, phrases: list[str], long: str, thoroughly: bool) -> int:
    """A round of what an editor does; returns the number of actions."""
    ask = browser.driver.execute_async_script
    for phrase in phrases:
        ask(TYPE, phrase)
    if thoroughly:
        browser.js(PRESS, "ArrowDown", 5)
        browser.js(PRESS, "Enter", 1)
    ask(OPEN, f"#/clip/{long}", "main.clip .line")
    if thoroughly:
        browser.wait(lambda: browser.js("return document.querySelector('video').readyState") >= 1)
        ask(SCROLL, 1)
        ask(FIND, phrases[0].split()[0])
        ask(OPEN, "#/scripts", ".takes li")
    ask(OPEN, "#/library", ".clips li")
    ask(OPEN, "#/", "#hits")
    return len(phrases) + (13 if thoroughly else 3)


def main() -> None:
    parser = argparse.ArgumentParser(description=(__doc__ or "").splitlines()[0])
    parser.add_argument("--bin", type=Path, required=True)
    parser.add_argument("--deps", type=Path, required=True)
    parser.add_argument("--clips", type=int, default=10_000)
    parser.add_argument("--hour", action="store_true", help="measure the memory after an hour's use instead of after 20 short rounds")
    options = parser.parse_args()
    os.environ |= {"KESTREL_BUILD_BIN": str(options.bin.resolve()), "KESTREL_DEPS_DIR": str(options.deps.resolve())}
    sys.path[:0] = [str(ROOT / folder) for folder in ("tests/desk", "tests/app", "tools")]
    from app_under_test import Kestrel
    from browser import Browser
    from desk_process import Desk

    with tempfile.TemporaryDirectory() as folder:
        kestrel = Kestrel(Path(folder) / "home")
        kestrel.up()
        try:
            long = load(kestrel, options.clips)
            with Desk(kestrel) as desk, Browser(Path(folder)) as browser:
                browser.desk = desk
                browser.driver.set_script_timeout(120)
                browser.driver.get(desk.address)
                browser.wait_for("#hits")
                ask = browser.driver.execute_async_script
                generator = random.Random(3)
                phrases = [" ".join(generator.choices(WORDS, k=2)).replace("r", "", 1) for _ in range(30)]
                ask(TYPE, "river")
                before = Memory(browser, desk)
                times = sorted(ask(TYPE, phrase)[0] for phrase in phrases)
                print(f"hits after typing: median {statistics.median(times):.0f} ms, 95th {times[28]:.0f} ms")
                opened = []
                for _ in range(5):
                    browser.js("location.hash = '#/'")
                    browser.wait_for("#hits")
                    opened.append(ask(OPEN, f"#/clip/{long}", "main.clip .line"))
                print(f"a clip of {LONG_LINES * LONG_WORDS:,} words: median {statistics.median(opened):.0f} ms, first {opened[0]:.0f} ms")
                browser.wait(lambda: browser.js("return document.querySelector('video').readyState") >= 1)
                frames = sorted(ask(SCROLL, 10))
                print(f"scrolling and playing: {1000 / statistics.mean(frames):.0f} frames a second, 99th {frames[int(len(frames) * 0.99)]:.0f} ms, longest {frames[-1]:.0f} ms")
                browser.js("location.hash = '#/'")
                browser.wait_for("#hits")
                rounds = MINUTES if options.hour else ROUNDS
                actions = sum(use(browser, phrases[:5], long, options.hour) for _ in range(rounds))
                print(f"memory at first: {before}\nafter {actions} actions in {rounds} rounds: {Memory(browser, desk)}")
                listed = []
                for _ in range(5):
                    listed.append(ask(OPEN, "#/library", ".clips li"))
                    ask(OPEN, "#/", "#hits")
                print(f"the library of {options.clips:,} clips: median {statistics.median(listed):.0f} ms, first {listed[0]:.0f} ms")
        finally:
            kestrel.run("down")


if __name__ == "__main__":
    main()
