"""Vectors in the index service beside numpy, beside an earlier build, and beside a genuine Elasticsearch.

    .deps/venv/bin/python bench/semantic/run.py --vectors 200000 [--before /path/to/earlier/kestrel-index]

Checks that the first hits are exactly those of numpy's matrix product, then times queries: the engines and numpy take
turns with every single query. An Elasticsearch takes part when KESTREL_ELASTICSEARCH_URI (with KESTREL_ELASTICSEARCH_USER
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
from index_process import Client, IndexProcess  # noqa: E402

INDEX = "bench_frames"
DIMENSION = 512
BULK = 500
HITS = 10
SCRIPT = 'cosineSimilarity(params.semanticVector,"semanticImageVector")+1.0'
MAPPING = {"settings": {"number_of_shards": 1}, "mappings": {"properties": {
    "semanticImageVector": {"type": "dense_vector", "dims": DIMENSION, "index": False}}}}


class Engine:
    def __init__(self, name: str, client: Client, process: Optional[IndexProcess]) -> None:
        self.name, self.client, self.process = name, client, process
        self.times: list[float] = []

    def memory(self) -> float:
        """Resident MiB of a process of ours."""
        if self.process is None:
            return float("nan")
        status = Path(f"/proc/{self.process.process.pid}/status").read_text()
        return int(next(line for line in status.splitlines() if line.startswith("VmRSS")).split()[1]) / 1024

    def load(self, vectors: Any) -> float:
        self.client("DELETE", INDEX)
        assert self.client("PUT", INDEX, MAPPING).status == 200
        start = time.perf_counter()
        for first in range(0, len(vectors), BULK):
            lines = []
            for row, vector in enumerate(vectors[first:first + BULK], first):
                frame = {"mediaGuid": f"clip {row // 700}", "framePositionMS": row % 700 * 4000,
                         "semanticImageVector": vector.tolist()}
                lines += [json.dumps({"index": {"_id": str(row)}}), json.dumps(frame)]
            answer = self.client("POST", f"{INDEX}/_bulk", "\n".join(lines) + "\n")
            assert answer.status == 200 and not answer.json["errors"], answer.text[:1000]
        seconds = time.perf_counter() - start
        assert self.client("POST", f"{INDEX}/_refresh").status == 200
        return seconds

    def query(self, vector: Any) -> list[str]:
        script = {"source": SCRIPT, "params": {"semanticVector": vector.tolist()}}
        body = {"query": {"script_score": {"query": {"match_all": {}}, "script": script}}, "size": HITS}
        start = time.perf_counter()
        answer = self.client("GET", f"{INDEX}/_search", body)
        self.times.append(time.perf_counter() - start)
        return answer.ids


def engines(before: Optional[Path], folder: Path) -> list[Engine]:
    ours = IndexProcess(folder / "ours").wait_until_ready()
    taking_part = [Engine("kestrel-index", ours.client(), ours)]
    if before:
        earlier = IndexProcess(folder / "before", binary=before).wait_until_ready()
        taking_part.append(Engine("before", earlier.client(), earlier))
    if uri := os.environ.get("KESTREL_ELASTICSEARCH_URI"):
        user, password = os.environ["KESTREL_ELASTICSEARCH_USER"], os.environ["KESTREL_ELASTICSEARCH_PASSWORD"]
        taking_part.append(Engine("Elasticsearch", Client(uri, user, password), None))
    return taking_part


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0] if __doc__ else "")
    parser.add_argument("--vectors", type=int, default=200_000)
    parser.add_argument("--queries", type=int, default=50)
    parser.add_argument("--before", type=Path, help="another kestrel-index to compare with")
    options = parser.parse_args()

    rng = np.random.default_rng(1)
    vectors = rng.normal(size=(options.vectors, DIMENSION)).astype(np.float32)
    vectors /= np.linalg.norm(vectors, axis=1, keepdims=True)
    queries = vectors[rng.integers(0, len(vectors), options.queries)] + 0.05 * rng.normal(size=(options.queries, DIMENSION))
    queries = queries.astype(np.float32)
    reading: list[float] = []
    product: list[float] = []

    with tempfile.TemporaryDirectory() as folder:
        taking_part = engines(options.before, Path(folder))
        for engine in taking_part:
            seconds, empty = engine.load(vectors), engine.memory()
            print(f"{engine.name}: {len(vectors) / seconds:,.0f} vectors/s loaded, {empty:,.0f} MiB, "
                  f"{empty * 2 ** 20 / len(vectors) / DIMENSION / 4:.2f} of the vectors themselves")
        for engine in taking_part:
            engine.client.close()  # idle while the others loaded, and closed by the service perhaps
        for query in queries:
            start = time.perf_counter()
            scores = vectors @ query
            product.append(time.perf_counter() - start)
            best = np.argpartition(-scores, HITS)[:HITS]
            exact = [str(row) for row in best[np.argsort(-scores[best])]]
            start = time.perf_counter()
            vectors.view(np.uint64).max()  # each byte once, hardly any computing: what the memory gives one core
            reading.append(time.perf_counter() - start)
            for engine in taking_part:
                assert engine.query(query) == exact, f"{engine.name} finds other frames than numpy"
        gigabytes = vectors.nbytes / 1e9
        rows = [("numpy product", product), ("reading once, one core", reading),
                *((engine.name, engine.times) for engine in taking_part)]
        for name, times in rows:
            median = statistics.median(times)
            print(f"{name:24} {median * 1000:8.1f} ms median {max(times) * 1000:8.1f} ms worst {gigabytes / median:6.1f} GB/s")
        print(f"the first {HITS} hits of {options.queries} queries are numpy's")
        restart(taking_part[0])


def restart(engine: Engine) -> None:
    """How long the vectors take to be there again."""
    process = engine.process
    assert process is not None
    data = process.data
    process.stop()
    start = time.perf_counter()
    again = IndexProcess(data).wait_until_ready()
    print(f"start with the vectors: {time.perf_counter() - start:.2f} s")
    again.stop()


if __name__ == "__main__":
    main()
