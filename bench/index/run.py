"""The library's own requests on the index service, beside an earlier build of it and beside a genuine Elasticsearch.

    .deps/venv/bin/python bench/index/run.py --before /path/to/earlier/kestrel-index --segments 10000 100000 1000000

An Elasticsearch takes part when KESTREL_ELASTICSEARCH_URI (with KESTREL_ELASTICSEARCH_USER and _PASSWORD) names one. The
engines take turns with every single request, in changing order, so that whatever else the machine does meets all of
them. Of this service's processes the processor time is shown too, which on a busy machine says more.
"""

from __future__ import annotations

import argparse
import itertools
import json
import os
import random
import statistics
import sys
import tempfile
import time
from collections.abc import Callable, Iterator
from pathlib import Path
from typing import Any, Optional

ROOT = Path(__file__).resolve().parents[2]
os.environ.setdefault("KESTREL_BUILD_BIN", str(ROOT / "build/bin"))
sys.path.insert(0, str(ROOT / "tests/index"))
from index_process import Answer, Client, IndexProcess  # noqa: E402

INDEX = "bench_rel"
SEGMENTS_PER_CLIP = 50
BULK = 2000
PROJECT = {"type": "nested", "properties": {"projectGuid": {"type": "keyword"}, "projectName": {"type": "keyword"}}}
MAPPING = {"settings": {"number_of_shards": 1}, "mappings": {"properties": {"projectList": PROJECT}}}
ASCENDING = {"order": "asc", "mode": "min"}


def vocabulary(rng: random.Random) -> tuple[list[str], list[float]]:
    """Words as frequent as those of a language, the n-th with a share of 1/n, and the sums of these shares."""
    letters, weights = "etaoinshrdlcumwfgypbvk", [12, 9, 8, 8, 7, 7, 6, 6, 6, 4, 4, 3, 3, 2, 2, 2, 2, 2, 2, 1, 1, 1]
    words = list({"".join(rng.choices(letters, weights, k=rng.randint(2, 10))) for _ in range(30_000)})
    return sorted(words), list(itertools.accumulate(1 / (n + 1) for n in range(len(words))))


def documents(segments: int) -> Iterator[dict[str, Any]]:
    rng = random.Random(3)
    words, shares = vocabulary(rng)
    clips = max(1, segments // SEGMENTS_PER_CLIP)
    projects = max(1, clips // 20)
    for clip in range(clips):
        own = [f"project-{clip % projects:06}"] + ([f"project-{rng.randrange(projects):06}"] if rng.random() < 0.2 else [])
        for segment in range(SEGMENTS_PER_CLIP):
            said = rng.choices(words, cum_weights=shares, k=12)
            document: dict[str, Any] = {
                "mediaGuid": f"clip-{clip:06}", "projectGuidList": own, "segment": segment, "transcript": " ".join(said),
                "wordStartsMS": list(range(segment * 4000, segment * 4000 + 12 * 300, 300)),
                "wordEndsMS": list(range(segment * 4000 + 250, segment * 4000 + 12 * 300 + 250, 300)),
                "language": "en", "speakerID": f"Speaker {segment % 3 + 1}",
            }
            if segment == 0:
                document["projectList"] = [{"projectGuid": p, "projectName": f"The project {p}"} for p in own]
                document |= {"progressComplete": clip % 50 != 0, "model": "small", "clipName": f"Clip {clip}"}
            yield document


class Engine:
    def __init__(self, name: str, client: Client, process: Optional[IndexProcess] = None) -> None:
        self.name = name
        self.client = client
        self.process = process

    def memory(self) -> Optional[float]:
        """Resident MiB."""
        if self.process is None:
            return None
        for line in Path(f"/proc/{self.process.process.pid}/status").read_text().splitlines():
            if line.startswith("VmRSS"):
                return int(line.split()[1]) / 1024
        return None

    def processor_ms(self) -> Optional[float]:
        """That the process has used so far."""
        if self.process is None:
            return None
        fields = Path(f"/proc/{self.process.process.pid}/stat").read_text().rpartition(")")[2].split()
        return (int(fields[11]) + int(fields[12])) * 1000 / os.sysconf("SC_CLK_TCK")


def check(answer: Answer) -> Answer:
    assert answer.status < 300, answer.text[:2000]
    return answer


Request = Callable[[Client, random.Random], Any]


def term(field: str, value: Any) -> dict[str, Any]:
    return {"term": {field: value}}


def requests(segments: int) -> dict[str, Request]:
    """What the library sends, by the operation that sends it."""
    words, shares = vocabulary(random.Random(3))
    clips = max(1, segments // SEGMENTS_PER_CLIP)
    projects = max(1, clips // 20)

    def clip(rng: random.Random) -> str:
        return f"clip-{rng.randrange(clips):06}"

    def project(rng: random.Random) -> str:
        return f"project-{rng.randrange(projects):06}"

    def search(client: Client, body: dict[str, Any]) -> Answer:
        return check(client("GET", f"{INDEX}/_search", body))

    def phrase(client: Client, rng: random.Random) -> None:
        match = {"query": " ".join(rng.choices(words, cum_weights=shares, k=4)), "fuzziness": "AUTO:4,6"}
        conditions = {"must": term("projectGuidList.keyword", project(rng)), "should": {"match": {"transcript": match}}}
        search(client, {"query": {"bool": conditions}, "size": 50})

    def phrase_everywhere(client: Client, rng: random.Random) -> None:
        match = {"query": " ".join(rng.choices(words, cum_weights=shares, k=4)), "fuzziness": "AUTO:4,6"}
        search(client, {"query": {"match": {"transcript": match}}, "size": 50})

    def read_clip(client: Client, rng: random.Random) -> None:
        query = {"bool": {"must": [term("mediaGuid.keyword", clip(rng))]}}
        search(client, {"query": query, "sort": [{"segment": ASCENDING}], "size": 10_000})

    def list_projects(client: Client, rng: random.Random) -> None:
        names = {"projectName": {"terms": {"field": "projectList.projectName"}}}
        guids = {"projectGuid": {"terms": {"field": "projectList.projectGuid", "size": 10_000}, "aggs": names}}
        search(client, {"aggs": {"projects": {"nested": {"path": "projectList"}, "aggs": guids}}})

    def list_clips(client: Client, rng: random.Random) -> None:
        conditions = [term("projectGuidList.keyword", project(rng)), term("progressComplete", True), term("segment", 0)]
        body = {"size": 100, "query": {"bool": {"must": conditions}}}
        page = check(client("GET", f"{INDEX}/_search?scroll=10m", body))
        check(client("DELETE", "_search/scroll", {"scroll_id": page.json["_scroll_id"]}))

    def in_progress(client: Client, rng: random.Random) -> None:
        search(client, {"query": {"bool": {"must": term("progressComplete", False)}}})

    def locks(client: Client, rng: random.Random) -> None:
        search(client, {"query": {"exists": {"field": "KSNNlock"}}})

    def count(client: Client, rng: random.Random) -> None:
        conditions = [term("mediaGuid.keyword", clip(rng)), term("segment", 0)]
        check(client("GET", f"{INDEX}/_count", {"query": {"bool": {"must": conditions}}}))

    def write_segment(client: Client, rng: random.Random) -> None:
        text = " ".join(rng.choices(words, cum_weights=shares, k=12))
        body = {"mediaGuid": "written", "projectGuidList": ["written"], "segment": 1, "transcript": text, "language": "en"}
        check(client("POST", f"{INDEX}/_doc", body))

    def lock(client: Client, rng: random.Random) -> None:
        check(client("POST", f"{INDEX}/_doc/lock?op_type=create", {"KSNNlock": True}))
        check(client("DELETE", f"{INDEX}/_doc/lock"))

    def add_project(client: Client, rng: random.Random) -> None:
        source = ('if (ctx._source.projectGuidList[0] == "KST_Import_ProjectGuid") {ctx._source.projectGuidList.remove(0);} '
                  "ctx._source.projectGuidList.add(params.new_element);")
        body = {"script": {"source": source, "params": {"new_element": "added"}},
                "query": {"bool": {"must": [term("mediaGuid.keyword", clip(rng))]}}}
        check(client("POST", f"{INDEX}/_update_by_query?conflicts=proceed&refresh=true", body))

    def connect(client: Client, rng: random.Random) -> None:
        client.close()
        check(client("GET", ""))

    return {
        "phrase search in a project": phrase, "phrase search everywhere": phrase_everywhere, "read a clip": read_clip,
        "list projects": list_projects, "list the clips of a project": list_clips, "clips in progress": in_progress,
        "locks": locks, "count": count, "write a segment": write_segment, "lock and unlock": lock,
        "add a project to a clip": add_project, "new connection": connect,
    }


def load(engines: list[Engine], segments: int) -> list[float]:
    """Seconds that each engine took for the documents of all bulk requests."""
    for engine in engines:
        engine.client("DELETE", INDEX)
        check(engine.client("PUT", INDEX, MAPPING))
    seconds = [0.0] * len(engines)
    lines = ('{"create":{}}\n' + json.dumps(document) + "\n" for document in documents(segments))
    while body := "".join(itertools.islice(lines, BULK)).encode():
        for position, engine in enumerate(engines):
            started = time.monotonic()
            assert not check(engine.client("PUT", f"{INDEX}/_bulk", body)).json["errors"]
            seconds[position] += time.monotonic() - started
    for engine in engines:
        check(engine.client("POST", f"{INDEX}/_refresh"))
    return seconds


def measure(engines: list[Engine], name: str, request: Request, repetitions: int) -> None:
    """Prints the median time, and the mean processor time, of a request."""
    times: list[list[float]] = [[] for _ in engines]
    before = [engine.processor_ms() for engine in engines]
    for repetition in range(repetitions):
        # In changing order: who comes after a busy engine finds the processor's caches full of its work.
        for position in random.sample(range(len(engines)), len(engines)):
            rng = random.Random(repetition)
            started = time.monotonic()
            request(engines[position].client, rng)
            times[position].append((time.monotonic() - started) * 1000)
    row(name, "ms", [statistics.median(own) for own in times])
    after = [engine.processor_ms() for engine in engines]
    row("", "processor ms", [(new - old) / repetitions if new is not None and old is not None else None
                             for old, new in zip(before, after)])


def restart(engine: Engine, binary: Path, data: Path, kill: bool) -> tuple[float, float]:
    """Seconds until the service answers again, and its processor time until then."""
    assert engine.process is not None
    if kill:
        engine.process.kill()
    else:
        engine.process.stop()
    started = time.monotonic()
    engine.process = IndexProcess(data, "--log-level", "error", binary=binary).wait_until_ready()
    engine.client = engine.process.client()
    return time.monotonic() - started, (engine.processor_ms() or 0) / 1000


def row(name: str, unit: str, values: list[Optional[float]]) -> None:
    shown = "".join(f"{'-' if value is None else f'{value:.2f}':>14}" for value in values)
    ratios = "".join(f"{values[0] / other if values[0] and other else float('nan'):>16.2f}" for other in values[1:])
    print(f"{f'{name}, {unit}' if name else f'    {unit}':<40}{shown}{ratios}", flush=True)


def bench(segments: int, builds: dict[str, Path], repetitions: int) -> None:
    with tempfile.TemporaryDirectory() as folder:
        engines = []
        for name, binary in builds.items():
            process = IndexProcess(Path(folder) / name, "--log-level", "error", binary=binary).wait_until_ready()
            engines.append(Engine(name, process.client(), process))
        if uri := os.environ.get("KESTREL_ELASTICSEARCH_URI"):
            user, password = os.environ["KESTREL_ELASTICSEARCH_USER"], os.environ["KESTREL_ELASTICSEARCH_PASSWORD"]
            engines.append(Engine("elasticsearch", Client(uri, user, password)))
        ratios = "".join(f"{'/ ' + engine.name:>16}" for engine in engines[1:])
        print(f"\n{f'{segments} segments':<40}" + "".join(f"{engine.name:>14}" for engine in engines) + ratios)
        for engine in engines:
            check(engine.client("GET", ""))  # the first login, whose hash is slow on purpose, is no part of the load
        before = [engine.processor_ms() for engine in engines]
        row("bulk load", "s", list(load(engines, segments)))
        row("", "processor s", [None if old is None else ((engine.processor_ms() or 0) - old) / 1000
                                for engine, old in zip(engines, before)])
        for name, request in requests(segments).items():
            for engine in engines:
                request(engine.client, random.Random(0))
            measure(engines, name, request, repetitions)
        row("memory", "MiB", [engine.memory() for engine in engines])
        for kill in (False, True):
            starts = [restart(engine, builds[engine.name], Path(folder) / engine.name, kill)
                      if engine.process is not None else (None, None) for engine in engines]
            row(f"start after {'a kill' if kill else 'a stop'}", "s", [taken for taken, _ in starts])
            row("", "processor s", [used for _, used in starts])
        row("memory after the start", "MiB", [engine.memory() for engine in engines])
        for engine in engines:
            if engine.process is not None:
                engine.process.stop()
            else:
                engine.client("DELETE", INDEX)


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--binary", type=Path, default=ROOT / "build/bin/kestrel-index")
    parser.add_argument("--before", type=Path, help="an earlier build to compare with")
    parser.add_argument("--segments", type=int, nargs="+", default=[10_000, 100_000, 1_000_000])
    parser.add_argument("--repetitions", type=int, default=51)
    options = parser.parse_args()
    builds = {"now": options.binary} | ({"before": options.before} if options.before else {})
    for segments in options.segments:
        bench(segments, builds, options.repetitions)


if __name__ == "__main__":
    main()
