"""One list of requests with the answers of this service, which are compared with those of a genuine Elasticsearch
when KESTREL_ELASTICSEARCH_URI (with KESTREL_ELASTICSEARCH_USER and _PASSWORD) names one."""

from __future__ import annotations

import json
import os
import random
import re
from collections.abc import Iterator
from typing import Any

import pytest

from index_process import Answer, Client, IndexProcess, golden
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


@pytest.mark.parametrize("line", golden("searches.txt"), ids=lambda line: line[:80])
def test_searches(clients: list[Client], line: str) -> None:
    body, _, expected = line.rpartition(" < ")
    ours, *genuine = (outcome(client("GET", f"{INDEX}/_search", body)) for client in clients)
    ids = [str(int(hit["_id"][1:])) for hit in ours["hits"]["hits"]] or ["-"]
    assert [str(ours["hits"]["total"]["value"]), ids[0], ids[-1]] == expected.split()
    for answer in genuine:
        assert ours == about(answer)


def refusals() -> Iterator[tuple[bool, str]]:
    """The lines of refusals.txt, and whether a genuine Elasticsearch answers alike."""
    compared = False
    for line in golden("refusals.txt"):
        if line.startswith("["):
            compared = "genuine" in line
        else:
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
