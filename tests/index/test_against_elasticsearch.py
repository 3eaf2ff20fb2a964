"""The same requests to this service and to a genuine Elasticsearch, whose answers decide.

Runs when KESTREL_ELASTICSEARCH_URI (with KESTREL_ELASTICSEARCH_USER and _PASSWORD) names one.
"""

from __future__ import annotations

import json
import os
import random
from collections.abc import Iterator
from typing import Any

import pytest

from conftest import MAPPING
from index_process import Answer, Client, IndexProcess

URI = os.environ.get("KESTREL_ELASTICSEARCH_URI", "")
pytestmark = pytest.mark.skipif(not URI, reason="no Elasticsearch is given")

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
def both(service: IndexProcess) -> Iterator[tuple[Client, Client]]:
    genuine = Client(URI, os.environ["KESTREL_ELASTICSEARCH_USER"], os.environ["KESTREL_ELASTICSEARCH_PASSWORD"])
    clients = (service.client(), genuine)
    for client in clients:
        client("DELETE", INDEX)
        assert client("PUT", INDEX, MAPPING).status == 200
        lines = "".join(
            json.dumps({"create": {"_id": f"d{number:04}"}}) + "\n" + json.dumps(document) + "\n"
            for number, document in enumerate(documents())
        )
        assert not client("PUT", f"{INDEX}/_bulk", lines).json["errors"]
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


@pytest.mark.parametrize("body", BODIES, ids=lambda body: str(body)[:80])
def test_searches_agree(both: tuple[Client, Client], body: dict[str, Any]) -> None:
    ours, genuine = (outcome(client("GET", f"{INDEX}/_search", body)) for client in both)
    assert ours == about(genuine)


@pytest.mark.parametrize(
    ("method", "path", "body"),
    [
        ("GET", "absent_rel", None), ("GET", "absent_rel/_count", None), ("GET", f"{INDEX}/_doc/absent", None),
        ("DELETE", f"{INDEX}/_doc/absent", None), ("POST", f"{INDEX}/_doc/d0000?op_type=create", {"KSNNlock": True}),
        ("POST", f"{INDEX}/_update/absent", {"doc": {"a": 1}}), ("PUT", INDEX, None), ("PUT", "Upper", None),
        ("GET", f"{INDEX}/_search", {"size": 10001}), ("GET", f"{INDEX}/_search?scroll=1m", {"size": 10001}),
        ("GET", f"{INDEX}/_search", {"query": {"foo": {}}}), ("GET", f"{INDEX}/_search", {"sort": ["transcript"]}),
        ("GET", f"{INDEX}/_search", {"query": term("segment", "x")}), ("GET", "a/b/c", None),
        ("PUT", f"{INDEX}/_search", None), ("GET", f"{INDEX}/_search?colour=1", None), ("DELETE", "*", None),
        ("DELETE", "_security/user/ghost", None), ("DELETE", "_security/role/ghost", None),
        ("POST", f"{INDEX}/_doc", {"segment": "x"}), ("POST", f"{INDEX}/_doc", None),
        ("PUT", f"{INDEX}/_bulk", "{}"), ("POST", f"{INDEX}/_delete_by_query", {}),
    ],
)
def test_refusals_agree(both: tuple[Client, Client], method: str, path: str, body: Any) -> None:
    ours, genuine = (client(method, path, body) for client in both)
    assert ours.status == genuine.status, genuine.text
    error, expected = ours.json.get("error"), genuine.json.get("error")
    if isinstance(expected, dict):
        assert error["type"] == expected["type"], genuine.text
        assert error["root_cause"][0]["type"] == expected["root_cause"][0]["type"], genuine.text
    else:
        assert ours.json.keys() == genuine.json.keys()
