"""Vectors in the index service beside numpy, beside an earlier build, and beside a genuine Elasticsearch.

    .deps/venv/bin/python bench/semantic/run.py --vectors 200000 [--before /path/to/earlier/kestrel-index]

Checks that the first hits are exactly those of numpy's matrix product, then times queries: the engines and numpy take
turns with every single query, on all cores and then on one. Of this service and of numpy the processor time is shown
too, which on a busy machine says more. A million vectors take long to load: with --data and
--load-seconds that is done piece by piece. An Elasticsearch takes part when KESTREL_ELASTICSEARCH_URI (with KESTREL_ELASTICSEARCH_USER
and _PASSWORD) names one.
"""

from __future__ import annotations

import argparse
import json
import os
import statistics
import sys
import tempfile
import time
from pathlib import Path
from typing import Any, Optional

import numpy as np

ROOT = Path(__file__).resolve().parents[2]
os.environ.setdefault("KESTREL_BUILD_BIN", str(ROOT / "build/bin"))
sys.path.insert(0, str(ROOT / "tests/index"))
from index_process import BINARY, Client, IndexProcess  # noqa: E402

INDEX = "bench_frames"
DIMENSION = 512
BULK = 500
HITS = 10
SCALE = 100_000  # numbers in documents have five digits
TEXTS = [f"{n / SCALE:.5f}" for n in [*range(SCALE + 1), *range(-SCALE, 0)]]  # by the number times the scale
SCRIPT = 'cosineSimilarity(params.semanticVector,"semanticImageVector")+1.0'
MAPPING = {"settings": {"number_of_shards": 1}, "mappings": {"properties": {
    "semanticImageVector": {"type": "dense_vector", "dims": DIMENSION, "index": False}}}}


class Engine:
    def __init__(self, name: str, client: Client, process: Optional[IndexProcess], binary: Path = BINARY) -> None:
        self.name, self.client, self.process, self.binary = name, client, process, binary

    def memory(self) -> float:
        """Resident MiB of a process of ours."""
        if self.process is None:
            return float("nan")
        status = Path(f"/proc/{self.process.process.pid}/status").read_text()
        return int(next(line for line in status.splitlines() if line.startswith("VmRSS")).split()[1]) / 1024

    def processor_seconds(self) -> float:
        """That a process of ours has used so far."""
        if self.process is None:
            return float("nan")
        fields = Path(f"/proc/{self.process.process.pid}/stat").read_text().rpartition(")")[2].split()
        return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")

    def count(self) -> int:
        answer = self.client("GET", f"{INDEX}/_count")
        return int(answer.json["count"]) if answer.status == 200 else 0

    def load(self, vectors: Any, until: float) -> bool:
        """Adds what is missing; false when it stopped before, because of the time."""
        if self.client("GET", INDEX).status == 404:
            assert self.client("PUT", INDEX, MAPPING).status == 200
        start, begin = time.perf_counter(), self.count()
        for first in range(begin, len(vectors), BULK):
            if time.monotonic() > until:
                print(f"{self.name}: {first} vectors so far; run this again", flush=True)
                return False
            lines = []
            for row, vector in enumerate(vectors[first:first + BULK], first):
                lines += [json.dumps({"index": {"_id": str(row)}}),
                          f'{{"mediaGuid": "clip {row // 700}", "framePositionMS": {row % 700 * 4000}, '
                          f'"semanticImageVector": {text(vector)}}}']
            answer = self.client("POST", f"{INDEX}/_bulk", "\n".join(lines) + "\n")
            assert answer.status == 200 and not answer.json["errors"], answer.text[:1000]
        seconds = time.perf_counter() - start
        assert self.client("POST", f"{INDEX}/_refresh").status == 200
        if begin < len(vectors):
            print(f"{self.name}: {(len(vectors) - begin) / seconds:,.0f} vectors/s loaded", flush=True)
        return True

    def report_memory(self, vectors: Any) -> None:
        if self.process is not None:
            each = self.memory() * 2 ** 20 / len(vectors)
            print(f"{self.name}: {self.memory():,.0f} MiB, {each:,.0f} bytes a vector of {DIMENSION * 4}", flush=True)

    def query(self, vector: Any) -> list[str]:
        script = {"source": SCRIPT, "params": {"semanticVector": [float(value) for value in vector]}}
        body = {"query": {"script_score": {"query": {"match_all": {}}, "script": script}}, "size": HITS}
        return self.client("GET", f"{INDEX}/_search", body).ids

    def restart(self, kill: bool = False, one_core: bool = False) -> None:
        """Ends the service and prints how long the vectors take to be there again."""
        process = self.process
        assert process is not None
        if kill:
            process.kill()
        else:
            process.stop()
        pin = (lambda: os.sched_setaffinity(0, {0})) if one_core else None
        start = time.perf_counter()
        self.process = IndexProcess(process.data, binary=self.binary, prepare=pin).wait_until_ready()
        self.client = self.process.client()
        print(f"{self.name}: start after a {'kill' if kill else 'stop'}{', one core' if one_core else ''}: "
              f"{time.perf_counter() - start:.2f} s", flush=True)


def rounded(vectors: Any) -> Any:
    """To numbers that a document gives exactly."""
    return (np.rint(vectors.astype(np.float64) * SCALE) / SCALE).astype(np.float32)


def text(vector: Any) -> str:
    """The rounded numbers as JSON; each is looked up, which takes a fifth of the time that json takes."""
    return "[" + ",".join(map(TEXTS.__getitem__, np.rint(vector * SCALE).astype(np.int32).tolist())) + "]"


def unit_vectors(count: int) -> Any:
    rng = np.random.default_rng(1)
    vectors = np.empty((count, DIMENSION), np.float32)
    for first in range(0, count, 10_000):
        part = rng.standard_normal((min(10_000, count - first), DIMENSION), dtype=np.float32)
        vectors[first:first + len(part)] = rounded(part / np.linalg.norm(part, axis=1, keepdims=True))
    return vectors


def engines(before: Optional[Path], folder: Path) -> list[Engine]:
    taking_part = []
    builds = {"kestrel-index": BINARY} | ({"before": before} if before else {})
    for name, binary in builds.items():
        process = IndexProcess(folder / name, binary=binary).wait_until_ready()
        taking_part.append(Engine(name, process.client(), process, binary))
    if uri := os.environ.get("KESTREL_ELASTICSEARCH_URI"):
        user, password = os.environ["KESTREL_ELASTICSEARCH_USER"], os.environ["KESTREL_ELASTICSEARCH_PASSWORD"]
        taking_part.append(Engine("Elasticsearch", Client(uri, user, password), None))
    return taking_part


class Stopwatch:
    """Times on the clock, and processor time, of one of those who take part."""

    def __init__(self, name: str) -> None:
        self.name = name
        self.times: list[float] = []
        self.processor = 0.0

    def __enter__(self) -> None:
        self.start, self.processor_start = time.perf_counter(), time.process_time()

    def __exit__(self, *_: object) -> None:
        self.times.append(time.perf_counter() - self.start)
        self.processor += time.process_time() - self.processor_start

    def show(self, vectors: Any) -> None:
        median, processor, gigabytes = statistics.median(self.times), self.processor / len(self.times), vectors.nbytes / 1e9
        print(f"{self.name:24} {median * 1000:8.1f} ms median {gigabytes / median:6.1f} GB/s"
              f" {processor * 1000:8.1f} processor ms {gigabytes / processor if processor else 0:6.1f} GB/s", flush=True)


def compare(vectors: Any, queries: Any, taking_part: list[Engine]) -> None:
    """Everybody takes turns with every single query."""
    product, reading = Stopwatch("numpy product"), Stopwatch("reading once, one core")
    watches = [Stopwatch(engine.name) for engine in taking_part]
    for engine in taking_part:
        engine.client.close()  # idle while the others loaded, and closed by the service perhaps
        engine.query(queries[0])
    before = [engine.processor_seconds() for engine in taking_part]
    for query in queries:
        with product:
            scores = vectors @ query
        best = np.argpartition(-scores, HITS)[:HITS]
        exact = [str(row) for row in best[np.argsort(-scores[best])]]
        with reading:  # each byte once, hardly any computing: what the memory gives one core
            vectors.view(np.uint64).max()
        for engine, watch in zip(taking_part, watches):
            with watch:
                found = engine.query(query)
            assert found == exact, f"{engine.name} finds other frames than numpy"
    for engine, watch, used in zip(taking_part, watches, before):
        watch.processor = engine.processor_seconds() - used
    for watch in (product, reading, *watches):
        watch.show(vectors)
    print(f"the first {HITS} hits of {len(queries)} queries are numpy's", flush=True)


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0] if __doc__ else "")
    parser.add_argument("--vectors", type=int, default=200_000)
    parser.add_argument("--queries", type=int, default=50)
    parser.add_argument("--before", type=Path, help="another kestrel-index to compare with")
    parser.add_argument("--data", type=Path, help="folder that keeps what was loaded for the next run")
    parser.add_argument("--load-seconds", type=float, default=float("inf"), help="load for so long at most, then end")
    options = parser.parse_args()

    vectors = unit_vectors(options.vectors)
    rng = np.random.default_rng(2)
    queries = vectors[rng.integers(0, len(vectors), options.queries)] + 0.05 * rng.normal(size=(options.queries, DIMENSION))
    queries = queries.astype(np.float32)

    with tempfile.TemporaryDirectory() as folder:
        taking_part = engines(options.before, options.data or Path(folder))
        until = time.monotonic() + options.load_seconds
        if all(engine.load(vectors, until) for engine in taking_part) and options.queries > 0:
            ours = taking_part[0]
            ours.report_memory(vectors)
            compare(vectors, queries, taking_part)
            ours.restart()
            ours.report_memory(vectors)
            ours.restart(kill=True)
            ours.restart(one_core=True)
            compare(vectors, queries, taking_part[:1])
        for engine in taking_part:
            if engine.process is not None:
                engine.process.stop()


if __name__ == "__main__":
    main()
