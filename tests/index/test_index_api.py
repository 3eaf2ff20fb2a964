"""What each family of requests answers."""

from __future__ import annotations

import json
from typing import Any

import pytest

from index_process import Answer, Client

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


def test_root_names_itself(client: Client) -> None:
    assert client("GET", "").json["tagline"] == "You Know, for Search"


def test_index_life(client: Client) -> None:
    assert client("GET", "absent_rel").error_type == "index_not_found_exception"
    assert client("HEAD", "absent_rel").status == 404
    assert client("PUT", "life_rel", {"mappings": {"properties": {"a": {"type": "keyword"}}}}).json["acknowledged"]
    assert client("HEAD", "life_rel").status == 200
    assert client("GET", "life_rel").json["life_rel"]["mappings"]["properties"]["a"] == {"type": "keyword"}
    assert client("PUT", "life_rel").error_type == "resource_already_exists_exception"
    assert client("POST", "life_rel/_refresh").status == 200
    assert client("POST", "/_refresh").json["_shards"]["failed"] == 0
    assert client("DELETE", "life_rel").json == {"acknowledged": True}
    assert client("DELETE", "life_rel").status == 404
    assert client("GET", "life_rel/_count").status == 404


@pytest.mark.parametrize(("name", "body", "error"), [
    ("Upper_rel", None, "invalid_index_name_exception"),
    ("bad%20name", None, "invalid_index_name_exception"),
    ("x" * 256, None, "invalid_index_name_exception"),
    ("odd_rel", '{"settings": {"number_of_shards": "many"}}', "illegal_argument_exception"),
    ("odd_rel", '{"settings": {"colour": 1}}', "illegal_argument_exception"),
    ("odd_rel", '{"mappings": {"properties": {"a": {"type": "shape"}}}}', "mapper_parsing_exception"),
    ("odd_rel", '{"mappings": {"dynamic": "strict"}}', "mapper_parsing_exception"),
    ("odd_rel", '{"mappings"', "x_content_parse_exception"),
])
def test_index_refused(client: Client, name: str, body: str | None, error: str) -> None:
    answer = client("PUT", name, body)
    assert (answer.status, answer.error_type) == (400, error)
    assert client("HEAD", name).status == 404


def test_document_life(client: Client, index: str) -> None:
    path = f"{index}/_doc/clip%20%D0%96"
    assert client("GET", path).json == {"_index": index, "_id": "clip Ж", "found": False}
    created = client("POST", path + "?op_type=create", '{"b": 1,  "a": [2.50, 1e3], "c": "ü"}')
    assert (created.status, created.json["result"], created.json["_version"]) == (201, "created", 1)
    assert client("POST", path + "?op_type=create", {"b": 2}).error_type == "version_conflict_engine_exception"
    assert '"_source":{"b": 1,  "a": [2.50, 1e3], "c": "ü"}' in client("GET", path).text
    replaced = client("POST", path, {"b": 3})
    assert (replaced.status, replaced.json["result"], replaced.json["_version"]) == (200, "updated", 2)
    assert client("DELETE", path).json["result"] == "deleted"
    gone = client("DELETE", path)
    assert (gone.status, gone.json["result"]) == (404, "not_found")
    assert client("GET", f"{index}/_count").json["count"] == 0


def test_document_without_identifier(client: Client, index: str) -> None:
    ids = {client("POST", f"{index}/_doc", {"n": n}).json["_id"] for n in range(3)}
    assert len(ids) == 3 and set(search(client, index, {"match_all": {}}).ids) == ids


@pytest.mark.parametrize(("body", "status", "error"), [
    ("", 400, "parse_exception"),
    ("[1]", 400, "document_parsing_exception"),
    ('{"a": ', 400, "x_content_parse_exception"),
    ('{"segment": "zero"}', 400, "document_parsing_exception"),
    ('{"segment": 99999999999999999999}', 400, "document_parsing_exception"),
    ('{"progressComplete": 1}', 400, "document_parsing_exception"),
    ('{"transcript": {"text": "x"}}', 400, "document_parsing_exception"),
    ('{"projectList": "A"}', 400, "document_parsing_exception"),
    ('{"a":' * 25 + "1" + "}" * 25, 400, "document_parsing_exception"),
])
def test_document_refused(client: Client, index: str, body: str, status: int, error: str) -> None:
    write(client, index, segment(0))
    answer = client("POST", f"{index}/_doc/x", body)
    assert (answer.status, answer.error_type) == (status, error)
    assert client("GET", f"{index}/_count").json["count"] == 1


def test_update(client: Client, index: str) -> None:
    client("POST", f"{index}/_doc/1", {"a": 1, "deep": {"x": 1, "y": 2}})
    updated = client("POST", f"{index}/_update/1", {"doc": {"b": True, "deep": {"y": 3}}})
    assert (updated.status, updated.json["result"], updated.json["_version"]) == (200, "updated", 2)
    assert client("GET", f"{index}/_doc/1").json["_source"] == {"a": 1, "deep": {"x": 1, "y": 3}, "b": True}
    assert client("POST", f"{index}/_update/1", {"doc": {"b": True}}).json["result"] == "noop"
    assert client("POST", f"{index}/_update/2", {"doc": {}}).error_type == "document_missing_exception"
    assert client("POST", f"{index}/_update/1", {"doc": {}, "upsert": {}}).status == 400


@pytest.mark.parametrize(("query", "expected"), [
    ({"term": {"segment": {"value": "1"}}}, {1}),
    ({"terms": {"projectGuidList.keyword": ["B", "C"]}}, {2, 3}),
    ({"bool": {"must": {"term": {"segment": 0}}, "should": {"match": {"transcript": "nothing"}}}}, {0}),
    ({"bool": {"should": [{"term": {"segment": 0}}, {"term": {"mediaGuid.keyword": "clip-1"}}],
               "minimum_should_match": 2}}, {0}),
    ({"match": {"transcript": {"query": "words 2", "operator": "and"}}}, {2}),
    ({"term": {"projectList.projectGuid": "A"}}, set()),
])
def test_queries(client: Client, index: str, query: Document, expected: set[int]) -> None:
    write(client, index, segment(0), segment(1), segment(2, projects=("A", "B")), segment(3, "clip-2", ("C",)))
    answer = search(client, index, query)
    assert set(sources(answer, "segment")) == expected
    assert answer.json["hits"]["total"] == {"value": len(expected), "relation": "eq"}
    assert client("POST", f"{index}/_count", {"query": query}).json["count"] == len(expected)


@pytest.mark.parametrize(("body", "cause"), [
    ({"query": {"match_phrase": {"a": "b"}}}, "parsing_exception: unknown query [match_phrase]"),
    ({"query": {"term": {"a": 1, "b": 2}}}, "parsing_exception: [term] query doesn't support multiple fields"),
    ({"query": {"term": {"segment": "x"}}}, "query_shard_exception: failed to create query"),
    ({"query": {"nested": {"path": "absent", "query": {"match_all": {}}}}}, "query_shard_exception: failed"),
    ({"query": {"match": {"transcript": {"query": "a", "fuzziness": 3}}}}, "illegal_argument_exception: Valid edit"),
    ({"sort": [{"_id": "asc"}]}, "illegal_argument_exception: Fielddata access on the _id field"),
    ({"size": 10001}, "illegal_argument_exception: Result window is too large"),
    ({"size": -1}, "illegal_argument_exception: [size] parameter cannot be negative"),
    ({"highlight": {}}, "parsing_exception: Unknown key for a START_OBJECT in [highlight]."),
    ({"aggs": {"a": {"sum": {}}}}, "parsing_exception: Unknown aggregation type [sum]"),
    ({"query": {"script_score": {"query": {"match_all": {}}, "script": {"source": "1"}}}},
     "illegal_argument_exception: this service runs a fixed set of scripts"),
])
def test_search_refused(client: Client, index: str, body: Document, cause: str) -> None:
    write(client, index, segment(0))
    answer = client("GET", f"{index}/_search", body)
    assert answer.status == 400
    assert answer.cause.startswith(cause)


def test_query_nested_too_deeply(client: Client, index: str) -> None:
    query: Document = {"match_all": {}}
    for _ in range(40):
        query = {"bool": {"must": query}}
    assert "maximum nested depth" in search(client, index, query).cause


def test_sort_and_pages(client: Client, index: str) -> None:
    write(client, index, *[segment(n, media) for media in ("m2", "m1") for n in (10, 9, 2)], {"KSNNlock": True})
    asc = {"order": "asc", "mode": "min"}
    answer = client("GET", f"{index}/_search", {"sort": [{"mediaGuid.keyword": asc}, {"segment": asc}], "size": 100})
    assert [hit["sort"] for hit in answer.hits] == [
        ["m1", 2], ["m1", 9], ["m1", 10], ["m2", 2], ["m2", 9], ["m2", 10], [None, 2**63 - 1],
    ]
    assert answer.json["hits"]["max_score"] is None and answer.hits[0]["_score"] is None
    descending = client("GET", f"{index}/_search", {"sort": [{"segment": "desc"}], "size": 2, "from": 1})
    assert sources(descending, "segment") == [10, 9]
    assert sources(client("POST", f"{index}/_search/", {}), "segment") == [10, 9, 2, 10, 9, 2, None]


def test_sort_by_field_that_nothing_has(client: Client, index: str) -> None:
    client("POST", f"{index}/_doc/lock", {"KSNNlock": True})
    answer = client("GET", f"{index}/_search", {"sort": [{"segment": {"order": "asc", "mode": "min"}}]})
    assert (answer.status, answer.hits) == (200, [])


def test_default_page_and_window(client: Client, index: str) -> None:
    write(client, index, *[segment(n) for n in range(12)])
    assert len(client("GET", f"{index}/_search").hits) == 10
    assert len(client("GET", f"{index}/_search", {"size": 10000}).hits) == 12
    assert client("GET", f"{index}/_search", {"size": 0}).json["hits"] == {
        "total": {"value": 12, "relation": "eq"}, "max_score": None, "hits": [],
    }


def test_total_is_counted_to_ten_thousand(client: Client, index: str) -> None:
    write(client, index, *[{"n": n} for n in range(10_001)])
    assert client("GET", f"{index}/_search").json["hits"]["total"] == {"value": 10_000, "relation": "gte"}
    exact = client("GET", f"{index}/_search", {"track_total_hits": True})
    assert exact.json["hits"]["total"] == {"value": 10_001, "relation": "eq"}


def test_aggregations(client: Client, index: str) -> None:
    write(
        client, index,
        segment(0, "m1", ("A", "B"), speakerGuid="s2"), segment(0, "m2", ("B",), speakerGuid="s1"),
        segment(0, "m3", ("C",), speakerGuid="s1"), segment(1, "m3", ("C",), speakerGuid="s0"),
    )
    names = {"projectName": {"terms": {"field": "projectList.projectName"}}}
    guids = {"terms": {"field": "projectList.projectGuid", "size": 10000}, "aggs": names}
    body = {"aggs": {"projects": {"nested": {"path": "projectList"}, "aggs": {"projectGuid": guids}}}}
    projects = client("POST", f"{index}/_search", body).json["aggregations"]["projects"]
    assert projects["doc_count"] == 4
    found = [(b["key"], b["doc_count"], b["projectName"]["buckets"][0]["key"]) for b in projects["projectGuid"]["buckets"]]
    assert found == [("B", 2, "Project B"), ("A", 1, "Project A"), ("C", 1, "Project C")]

    speakers = {"aggs": {"s": {"terms": {"field": "speakerGuid.keyword", "size": 2}}}, "size": 0}
    answer = client("GET", f"{index}/_search", speakers).json
    assert [(b["key"], b["doc_count"]) for b in answer["aggregations"]["s"]["buckets"]] == [("s1", 2), ("s0", 1)]
    assert answer["aggregations"]["s"]["sum_other_doc_count"] == 1
    only = {**speakers, "query": {"terms": {"projectGuidList.keyword": ["A"]}}}
    assert [b["key"] for b in client("GET", f"{index}/_search", only).json["aggregations"]["s"]["buckets"]] == ["s2"]


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


def test_bulk_items_fail_alone(client: Client, index: str) -> None:
    body = (
        '{"create": {"_id": "1"}}\n{"segment": 1}\n'
        '{"create": {"_id": "1"}}\n{"segment": 2}\n'
        '{"index": {"_id": "2"}}\n{"segment": "no number"}\n'
        '{"delete": {"_id": "3"}}\n'
        '{"update": {"_id": "1"}}\n{"doc": {"segment": 5}}\n'
    )
    answer = client("POST", f"{index}/_bulk", body).json
    assert answer["errors"]
    assert [next(iter(item.values()))["status"] for item in answer["items"]] == [201, 409, 400, 404, 200]
    assert client("GET", f"{index}/_doc/1").json["_source"] == {"segment": 5}
    assert client("PUT", f"{index}/_bulk", '{"create": {}}\n{"a": 1}').status == 400
    assert client("PUT", f"{index}/_bulk", '{"create": {}}\n').status == 400


def test_script_that_fails_on_one_document_changes_none(client: Client, index: str) -> None:
    client("POST", f"{index}/_doc/1", {"projectGuidList": ["A"]})
    client("POST", f"{index}/_doc/2", {"projectGuidList": []})
    script = ('if (ctx._source.projectGuidList[0] == "KST_Import_ProjectGuid") {ctx._source.projectGuidList.remove(0);} '
              "ctx._source.projectGuidList.add(params.new_element);")
    body = {"script": {"source": script, "params": {"new_element": "N"}}, "query": {"match_all": {}}}
    answer = client("POST", f"{index}/_update_by_query", body)
    assert answer.error_type == "script_exception"
    assert answer.json["error"]["caused_by"]["type"] == "index_out_of_bounds_exception"
    assert client("GET", f"{index}/_doc/1").json["_source"] == {"projectGuidList": ["A"]}


def test_delete_by_query_over_all_indices(client: Client, index: str) -> None:
    client("POST", f"other_{index}/_doc", segment(0, "shared"))
    write(client, index, segment(0, "shared"), segment(0, "kept"))
    answer = client("POST", "*/_delete_by_query", {"query": {"term": {"mediaGuid.keyword": "shared"}}})
    assert (answer.status, answer.json["deleted"]) == (200, 2)
    assert client("GET", f"{index}/_count").json["count"] == 1
    client("DELETE", f"other_{index}")
    assert client("POST", f"{index}/_delete_by_query", {}).status == 400


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


@pytest.mark.parametrize(("method", "path", "status"), [
    ("PATCH", "x", 405), ("DELETE", "x/_search", 405), ("GET", "_cat/indices", 400),
    ("GET", "x/_doc/1?routing=a", 400), ("POST", "x/_doc/%zz", 400),
])
def test_unknown_requests(client: Client, method: str, path: str, status: int) -> None:
    answer = client(method, path)
    assert answer.status == status and "error" in answer.json
    if status == 405:
        assert "Allow" in answer.headers


def test_content_type_is_needed(client: Client, index: str) -> None:
    answer = client("POST", f"{index}/_doc", '{"a": 1}', **{"Content-Type": "text/plain"})
    assert answer.status == 406
    assert client("GET", f"{index}/_count").json["count"] == 0
