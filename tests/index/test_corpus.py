"""One list of requests with the answers of this service, which are compared with those of a genuine Elasticsearch
when KESTREL_ELASTICSEARCH_URI (with KESTREL_ELASTICSEARCH_USER and _PASSWORD) names one."""

from __future__ import annotations

import json
import os
import random
import re
from collections.abc import Iterator
from pathlib import Path
from typing import Any

import pytest

from index_process import Answer, Client, IndexProcess
from store_mapping import MAPPING

INDEX = "compared_rel"
WORDS = (
    "the a river rover rivers light night knight sight stone stones store sea seas said wide near under over "
    "don't it's 42 3.14 café cafe naïve Äpfel Апельсин 東京 hello hallo help held world word words sword editor "
    "editing edited transcript transcripts script clip clips video audio project people peeple"
).split()


def documents() -> list[dict[str, Any]]:
    rng = random.Random(17)
    made: list[dict[str, Any]] = [{"KSNNlock": True}]
    for media in range(12):
        projects = rng.sample(["A", "B", "C", "D"], rng.randint(1, 3))
        for segment in range(rng.randint(3, 20)):
            document: dict[str, Any] = {
                "segment": segment,
                "mediaGuid": f"clip-{media:02}",
                "projectGuidList": projects,
                "transcript": " ".join(rng.choices(WORDS, k=rng.randint(1, 60))),
                "wordStartsMS": list(range(rng.randint(1, 5))),
                "language": rng.choice(["en", "es"]),
                "speakerID": f"Speaker {rng.randint(1, 3)}",
            }
            if rng.random() < 0.4:
                document["speakerGuid"] = f"guid-{rng.randint(1, 14)}"
            if segment == 0:
                document["projectList"] = [{"projectGuid": p, "projectName": f"Project {p}"} for p in projects]
                document["progressComplete"] = rng.random() < 0.5
            made.append(document)
    return made


@pytest.fixture(scope="module")
def clients(service: IndexProcess) -> Iterator[list[Client]]:
    """That of this service, and that of the genuine one if there is one."""
    clients = [service.client()]
    if uri := os.environ.get("KESTREL_ELASTICSEARCH_URI"):
        clients.append(Client(uri, os.environ["KESTREL_ELASTICSEARCH_USER"], os.environ["KESTREL_ELASTICSEARCH_PASSWORD"]))
    lines = [line for number, document in enumerate(documents())
             for line in (json.dumps({"create": {"_id": f"d{number:04}"}}), json.dumps(document))]
    for client in clients:
        client("DELETE", INDEX)
        assert client("PUT", INDEX, MAPPING).status == 200
        assert not client("PUT", f"{INDEX}/_bulk", "\n".join([*lines, ""])).json["errors"]
        client("POST", f"{INDEX}/_refresh")
    yield clients
    for client in clients:
        client("DELETE", INDEX)


def outcome(answer: Answer) -> Any:
    """What has to agree: everything but the times and the names of nodes and shards."""
    if answer.status != 200:
        return answer.status, answer.json.get("error")
    body = answer.json
    body.pop("took")
    body.pop("_scroll_id", None)
    for hit in body["hits"]["hits"]:
        hit.pop("_ignored", None)  # names keywords that were too long to be indexed
    return body


def about(body: Any) -> Any:
    """The outcome with room for the last digit of scores."""
    for scored, key in [(body["hits"], "max_score"), *((hit, "_score") for hit in body["hits"]["hits"])]:
        if scored[key] is not None:
            scored[key] = pytest.approx(scored[key], rel=1e-6)
    return body


def term(field: str, value: Any) -> dict[str, Any]:
    return {"term": {field: value}}


PHRASES = [
    "river", "rivr", "nihgt stone", "the people said hello", "transcritps of editng", "wrod sowrd", "3.14 cafe",
    "Апельсни", "東京", "don't its", "held help hello hallo", "a", "zzzzzz", "", "river river rover",
]
ASCENDING = {"order": "asc", "mode": "min"}
BODIES: list[dict[str, Any]] = [
    *[{"query": {"bool": {"must": term("projectGuidList.keyword", "A"),
                          "should": {"match": {"transcript": {"query": phrase, "fuzziness": "AUTO:4,6"}}}}},
       "size": 25} for phrase in PHRASES],
    *[{"query": {"match": {"transcript": {"query": phrase, "fuzziness": "AUTO:4,6"}}}} for phrase in PHRASES],
    *[{"query": {"match": {"transcript": phrase}}, "size": 50} for phrase in PHRASES],
    {},
    {"query": {"exists": {"field": "KSNNlock"}}},
    {"query": term("segment", 1)}, {"query": term("segment", "2")}, {"query": term("segment", 1.5)},
    {"query": term("wordStartsMS", 3)}, {"query": term("progressComplete", True)}, {"query": term("nothing", "x")},
    {"query": term("mediaGuid", "clip")}, {"query": term("transcript", "river")},
    {"query": {"terms": {"_id": ["d0003", "d0001", "absent"]}}}, {"query": {"bool": {"must": [term("_id", "d0005")]}}},
    {"query": {"bool": {"must": [term("mediaGuid.keyword", "clip-03"), term("projectGuidList.keyword", "B")]}},
     "sort": [{"segment": ASCENDING}], "size": 10000},
    {"query": {"bool": {"must": [term("mediaGuid.keyword", "clip-01"), term("segment", 0)]}}},
    {"query": {"bool": {"must": term("progressComplete", False)}}},
    {"query": {"bool": {"must": [term("projectGuidList.keyword", "C"), {"bool": {"should": [
        term("speakerGuid.keyword", "guid-1"), term("speakerGuid.keyword", "guid-2")]}}]}},
     "sort": [{"segment": ASCENDING}], "size": 10000},
    {"query": {"bool": {"should": [term("mediaGuid.keyword", "clip-01"), term("mediaGuid.keyword", "clip-02")],
                        "minimum_should_match": 1}}, "size": 40},
    {"query": {"bool": {"filter": [term("language.keyword", "en")], "must_not": [term("segment", 0)]}}, "size": 5},
    {"query": {"nested": {"path": "projectList", "query": term("projectList.projectGuid", "B")}}},
    {"query": {"bool": {"must": [{"nested": {"path": "projectList", "query": {
        "bool": {"must": [term("projectList.projectGuid", "A")]}}}}]}}, "size": 10000},
    {"sort": [{"mediaGuid.keyword": ASCENDING}, {"segment": ASCENDING}], "size": 200},
    {"sort": [{"speakerGuid.keyword": "desc"}, {"segment": "desc"}], "size": 30, "from": 10},
    {"size": 0, "aggs": {"g": {"terms": {"field": "speakerGuid.keyword"}}},
     "query": {"terms": {"projectGuidList.keyword": ["A"]}}},
    {"size": 0, "aggs": {"projects": {"nested": {"path": "projectList"}, "aggs": {"projectGuid": {
        "terms": {"field": "projectList.projectGuid", "size": 10000},
        "aggs": {"projectName": {"terms": {"field": "projectList.projectName"}}}}}}}},
    {"size": 0, "aggs": {"n": {"terms": {"field": "segment", "size": 3}}, "b": {"terms": {"field": "progressComplete"}}}},
]


# For each of them the number of hits, and the numbers of the first and last document shown.
EXPECTED = """
23 54 88, 23 89 90, 23 86 89, 23 14 90, 23 19 90, 23 87 90, 23 15 88, 23 88 90, 23 17 90, 23 87 90, 23 14 55,
23 89 90, 23 13 90, 23 13 90, 23 54 88, 75 54 13, 43 89 11, 81 71 50, 85 39 98, 87 19 82, 61 69 100, 78 85 35,
40 12 59, 42 3 26, 46 87 93, 81 78 57, 37 101 69, 0 - -, 0 - -, 79 54 8, 43 89 34, 0 - -, 42 25 104, 79 39 85,
0 - -, 0 - -, 63 85 54, 0 - -, 42 3 67, 46 87 104, 81 78 13, 37 101 104, 0 - -, 0 - -, 66 54 101, 105 0 9, 1 0 0,
12 2 79, 12 3 80, 0 - -, 42 1 27, 8 13 91, 0 - -, 104 1 10, 43 89 11, 2 1 3, 1 5 5, 0 - -, 1 13 13, 4 1 58, 3 28 7,
14 13 26, 58 3 10, 4 1 91, 4 13 86, 105 1 0, 105 80 63, 23 - -, 105 - -, 105 - -
""".split(",")


@pytest.mark.parametrize(("body", "expected"), list(zip(BODIES, EXPECTED, strict=True)), ids=lambda value: str(value)[:80])
def test_searches(clients: list[Client], body: dict[str, Any], expected: str) -> None:
    ours, *genuine = (outcome(client("GET", f"{INDEX}/_search", body)) for client in clients)
    ids = [str(int(hit["_id"][1:])) for hit in ours["hits"]["hits"]] or ["-"]
    assert [str(ours["hits"]["total"]["value"]), ids[0], ids[-1]] == expected.split()
    for answer in genuine:
        assert ours == about(answer)


def refusals() -> Iterator[tuple[bool, str]]:
    """The lines of refusals.txt, and whether a genuine Elasticsearch answers alike."""
    text = (Path(__file__).parent / "refusals.txt").read_text(encoding="utf-8")
    compared = False
    for line in re.sub(r"\n  +", " ", text).splitlines():
        if line.startswith("["):
            compared = "genuine" in line
        elif line and not line.startswith("#"):
            yield compared, line.replace("@index", INDEX).replace("@long", "x" * 256)


@pytest.mark.parametrize(("compared", "line"), list(refusals()), ids=lambda value: str(value)[:80])
def test_refusals(clients: list[Client], compared: bool, line: str) -> None:
    def cause(answer: Answer) -> Any:
        """Type of the error and of its root, or the keys of an answer that has none."""
        found = answer.json.get("error")
        return (found["type"], found["root_cause"][0]["type"]) if isinstance(found, dict) else sorted(answer.json)

    request, _, expected = line.rpartition(" < ")
    method, path, *body = request.split(" ", 2)
    status, _, error = expected.partition(" ")
    ours, *genuine = (client(method, path, *body) for client in clients[: None if compared else 1])
    assert ours.status == int(status), ours.text
    if error and ours.error_type != error:
        assert re.match(".*".join(map(re.escape, error.split("…"))), ours.cause), ours.text
    assert ours.status != 405 or "Allow" in ours.headers
    for answer in genuine:
        assert (ours.status, cause(ours)) == (answer.status, cause(answer)), answer.text


def test_nothing_comes_of_refusals(clients: list[Client]) -> None:
    assert clients[0]("HEAD", "odd_rel").status == 404
    assert clients[0]("GET", f"{INDEX}/_count").json["count"] == len(documents())
