"""What each family of requests answers."""

from __future__ import annotations

import json
from typing import Any

import pytest

from index_process import Answer, Client, IndexProcess, Served, golden

Document = dict[str, Any]


def segment(number: int, media: str = "clip-1", projects: tuple[str, ...] = ("A",), **more: Any) -> Document:
    document = {
        "segment": number,
        "mediaGuid": media,
        "projectGuidList": list(projects),
        "transcript": f"spoken words number {number}",
        "wordStartsMS": [0, 10, 20],
        "wordEndsMS": [9, 19, 29],
        "language": "en",
        "speakerID": "Speaker 1",
    }
    if number == 0:
        document["projectList"] = [{"projectGuid": p, "projectName": f"Project {p}"} for p in projects]
        document["progressComplete"] = False
    return {**document, **more}


def write(client: Client, index: str, *documents: Document) -> None:
    lines = "".join('{ "create" : {} }\n' + json.dumps(document) + "\n" for document in documents)
    answer = client("PUT", f"{index}/_bulk", lines)
    assert answer.status == 200 and not answer.json["errors"], answer.text


def search(client: Client, index: str, query: Document, **more: Any) -> Answer:
    return client("GET", f"{index}/_search", {"query": query, **more})


def sources(answer: Answer, field: str) -> list[Any]:
    return [hit["_source"].get(field) for hit in answer.hits]


def conversations(own_service: bool) -> list[Any]:
    """Those blocks of conversations.txt that need a service of their own, or the others."""
    blocks: dict[str, list[str]] = {}
    for line in golden("conversations.txt"):
        if line.startswith("["):
            assert line not in blocks, f"two blocks have the title {line}"
            lines = blocks[line] = []
        else:
            lines.append(line)
    return [pytest.param(lines, id=title) for title, lines in blocks.items()
            if any(line.startswith(("AS", "RESTART")) for line in lines) == own_service]


def assert_holds(found: Any, expected: Any) -> None:
    """Objects may hold more keys than are expected."""
    if isinstance(expected, dict):
        for key, value in expected.items():
            assert_holds(found[key], value)
    elif isinstance(expected, list):
        for one, wanted in zip(found, expected, strict=True):
            assert_holds(one, wanted)
    else:
        assert found == expected


def exchange(client: Client, index: str, line: str) -> Answer:
    request, _, expected = line.replace("@index", index).rpartition(" < ")
    method, path, *body = request.split(" ", 2)
    status, _, text = expected.partition(" ")
    answer = client(method, path.removeprefix("/"), *(part.replace("¶ ", "\n").replace("¶", "\n") for part in body))
    assert answer.status == int(status), (line, answer.text)
    if text:
        assert_holds(answer.json, json.loads(text))
    return answer


@pytest.mark.parametrize("lines", conversations(own_service=False))
def test_conversations(client: Client, index: str, lines: list[str]) -> None:
    for line in lines:
        exchange(client, index, line)


@pytest.mark.parametrize("lines", conversations(own_service=True))
def test_conversations_with_a_service_of_their_own(served: Served, lines: list[str]) -> None:
    def answer(line: str) -> Any:
        found = exchange(client, served.INDEX, line)
        return {key: value for key, value in found.json.items() if key != "took"} if found.text else None

    client, user = served.client, list[str]()
    before: dict[str, Any] = {}  # what the user got since the last write
    for line in lines:
        if line == "RESTART":
            served.restart()
            client = served.process.client(*user)
            assert {earlier: answer(earlier) for earlier in before} == before
        elif line.startswith("AS"):
            user = line.split(" ", 2)[1:]
            client = served.process.client(*user)
            before.clear()
        elif line.startswith("GET "):
            before[line] = answer(line)
        else:
            answer(line)
            before.clear()


def test_source_comes_back_as_it_was_written(client: Client, index: str) -> None:
    client("POST", f"{index}/_doc/1", '{"b": 1,  "a": [2.50, 1e3], "c": "ü"}')
    assert '"_source":{"b": 1,  "a": [2.50, 1e3], "c": "ü"}' in client("GET", f"{index}/_doc/1").text


@pytest.mark.parametrize(("shown", "expected"), [
    (["absent", "b", "a"], '{"a":null,"b":{"c":[1.5,123456789012345678901]},"a.d":1}'),
    ("text", '{"text":"long"}'),
    ("absent", "{}"),
])
def test_members_of_a_source(client: Client, index: str, shown: str | list[str], expected: str) -> None:
    client("POST", f"{index}/_doc/1", '{"a": null, "text": "long", "b": {"c": [1.50, 123456789012345678901]}, "a.d": 1}')
    client("POST", f"{index}/_refresh")
    for path in ("_search", "_search?scroll=1m"):
        assert f'"_source":{expected}' in client("GET", f"{index}/{path}", {"_source": shown}).text


def test_document_without_identifier(client: Client, index: str) -> None:
    ids = {client("POST", f"{index}/_doc", {"n": n}).json["_id"] for n in range(3)}
    assert len(ids) == 3 and set(search(client, index, {"match_all": {}}).ids) == ids


def test_query_nested_too_deeply(client: Client, index: str) -> None:
    query: Document = {"match_all": {}}
    for _ in range(40):
        query = {"bool": {"must": query}}
    assert "maximum nested depth" in search(client, index, query).cause


def test_total_is_counted_to_ten_thousand(client: Client, index: str) -> None:
    write(client, index, *[{"n": n} for n in range(10_001)])
    assert client("GET", f"{index}/_search").json["hits"]["total"] == {"value": 10_000, "relation": "gte"}
    exact = client("GET", f"{index}/_search", {"track_total_hits": True})
    assert exact.json["hits"]["total"] == {"value": 10_001, "relation": "eq"}


def test_scroll_shows_the_moment_it_began(client: Client, index: str) -> None:
    write(client, index, *[segment(n) for n in range(5)])
    body = {"size": 2, "query": {"match_all": {}}, "sort": [{"segment": {"order": "asc", "mode": "min"}}]}
    page = client("GET", f"{index}/_search?scroll=10m", body)
    scroll = page.json["_scroll_id"]
    everything: Document = {"query": {"match_all": {}}}
    script = {"source": "ctx._source.projectGuidList.add(params.new_element)"}
    assert client("POST", f"{index}/_update_by_query", {**everything, "script": script}).status == 400
    script["source"] = "ctx._source.remove('speakerGuid')"
    client("POST", f"{index}/_update_by_query", {**everything, "script": script})
    client("POST", f"{index}/_delete_by_query", everything)
    write(client, index, segment(7))
    seen = sources(page, "segment")
    while page.hits:
        page = client("POST", "_search/scroll", {"scroll_id": scroll, "scroll": "10m"})
        seen += sources(page, "segment")
    assert seen == [0, 1, 2, 3, 4]
    assert client("DELETE", "_search/scroll", {"scroll_id": scroll}).json["num_freed"] == 1
    gone = client("POST", "_search/scroll", {"scroll_id": scroll, "scroll": "10m"})
    assert gone.error_type == "search_context_missing_exception"


def test_semantic_scores(client: Client, index: str) -> None:
    vectors = {"same": [1.0, 0.5], "turned": [-0.5, 1.0], "opposite": [-2.0, -1.0]}
    for name, pair in vectors.items():
        client("POST", f"{index}/_doc/{name}", {"semanticImageVector": pair * 64})
    source = 'cosineSimilarity(params.semanticVector,"semanticImageVector")+1.0'
    query = {"script_score": {"query": {"match_all": {}},
                              "script": {"source": source, "params": {"semanticVector": [2.0, 1.0] * 64}}}}
    answer = search(client, index, query)
    assert answer.ids == ["same", "turned", "opposite"]
    assert [hit["_score"] for hit in answer.hits] == pytest.approx([2.0, 1.0, 0.0], abs=1e-6)
    query["script_score"]["script"] = {"source": source, "params": {"semanticVector": [1.0]}}
    assert "different number of dimensions" in search(client, index, query).json["error"]["root_cause"][0]["caused_by"]["reason"]
    assert "different number of dimensions" in client("POST", f"{index}/_doc", {"semanticImageVector": [0.5] * 200}).text


def test_content_type_is_needed(client: Client, index: str) -> None:
    answer = client("POST", f"{index}/_doc", '{"a": 1}', **{"Content-Type": "text/plain"})
    assert answer.status == 406
    assert client("GET", f"{index}/_count").json["count"] == 0
