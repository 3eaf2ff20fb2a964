"""Requests and clients that ask too much get a clear answer, and the service lives."""

from __future__ import annotations

import socket
from contextlib import suppress

import pytest

from index_process import Client, IndexProcess


def test_body_over_the_limit(service: IndexProcess, index: str) -> None:
    answer = service.client()("POST", f"{index}/_doc", b" " * (100 * 1024 * 1024 + 1))
    assert (answer.status, answer.error_type) == (413, "content_too_long_exception")


@pytest.mark.parametrize(
    ("body", "reason"),
    [
        ("[" * 501, "nested more than [500] levels"),
        ('{"a":' * 100_000, "nested more than [500] levels"),
        ("{" + ",".join(f'"k{n}":{n}' for n in range(20_000)) + "}", "more than [10000] keys"),
        ("[" + "[]," * 1_000_001 + "[]]", "more than [1000000] values"),
        ('{"a": "\ud800"}'.encode("utf-8", "surrogatepass"), "ill-formed UTF-8"),
    ],
)
def test_hostile_json(client: Client, index: str, body: str | bytes, reason: str) -> None:
    for path in (f"{index}/_doc", f"{index}/_search"):
        answer = client("POST", path, body)
        assert answer.status == 400 and reason in answer.cause


def test_too_many_fields(client: Client, index: str) -> None:
    answer = client("POST", f"{index}/_doc", {f"field{n}": n for n in range(2000)})
    assert answer.status == 400 and "Limit of total fields [1000]" in answer.cause


def test_identifier_length(client: Client, index: str) -> None:
    longest = "я" * 256
    assert client("PUT", f"{index}/_doc/{'%D1%8F' * 256}", {"a": 1}).json["_id"] == longest
    answer = client("PUT", f"{index}/_doc/{'%D1%8F' * 257}", {"a": 1})
    assert answer.status == 400 and "no longer than 512 bytes but was: 514" in answer.cause


def test_endless_request_line(service: IndexProcess) -> None:
    answer = service.client()("GET", "x" * 20_000)
    assert (answer.status, answer.error_type) == (400, "too_long_http_line_exception")


def test_too_many_scrolls(service: IndexProcess, client: Client, index: str) -> None:
    client("POST", f"{index}/_bulk", '{"create":{}}\n{"a":1}\n' * 2)
    opened = [client("GET", f"{index}/_search?scroll=1m", {"size": 1}) for _ in range(501)]
    assert [answer.status for answer in opened] == [200] * 500 + [429]
    assert client("DELETE", "_search/scroll", {"scroll_id": "_all"}).json["num_freed"] >= 500
    # A scroll that has shown everything holds nothing and does not count.
    assert all(client("GET", f"{index}/_search?scroll=1m", {"size": 9}).status == 200 for _ in range(501))


def test_bytes_that_are_no_request(service: IndexProcess) -> None:
    for garbage in (b"\x00\xff" * 1000 + b"\r\n\r\n", b"GET\r\n\r\n", b"GET / HTTP/1.1\r\n" + b"A: b\r\n" * 10_000 + b"\r\n"):
        with service.connect() as secure:
            secure.sendall(garbage)
            assert b" 200 " not in secure.recv(4096)[:20]
    with socket.create_connection(service.address) as plain:
        plain.sendall(b"GET / HTTP/1.1\r\n\r\n")
        with suppress(ConnectionResetError):
            assert not plain.recv(4096).startswith(b"HTTP")
    assert service.client()("GET", "").status == 200


def test_bodies_with_a_byte_order_mark_or_a_nul(client: Client, index: str) -> None:
    assert client("POST", f"{index}/_doc/1", '\ufeff{"a": 1}').status == 201
    assert '"_source":{"a": 1}' in client("GET", f"{index}/_doc/1").text
    for path, body in ((f"{index}/_doc/2", '{"a": 1}\0'), (f"{index}/_doc/2", '{"a": 1}\0{"b": 2}'), (f"{index}/_search", "{}\0")):
        answer = client("POST", path, body)
        assert (answer.status, answer.error_type) == (400, "x_content_parse_exception")
    bulk = client("POST", f"{index}/_bulk", '\ufeff{"index": {"_id": "3"}}\n\ufeff{"a": 1}\n{"index": {"_id": "4"}}\n{"a": 1}\0\n')
    assert [item["index"]["status"] for item in bulk.json["items"]] == [400, 400]
    assert client("GET", f"{index}/_search").ids == ["1"]


@pytest.mark.parametrize(("query", "cause"), [
    ({"match": {"transcript": "word " * 1025}}, "too_many_clauses: maxClauseCount is set to 1024"),
    ({"terms": {"a": ["x"] * 65_537}}, "illegal_argument_exception: The number of terms [65537]"),
    ({"bool": {"should": [{"match_all": {}}] * 65_537}}, "too_many_clauses: maxClauseCount is set to 65536"),
], ids=["words", "terms", "clauses"])
def test_searches_that_ask_too_much(client: Client, index: str, query: dict[str, object], cause: str) -> None:
    client("POST", f"{index}/_doc", {"transcript": "word"})
    answer = client("GET", f"{index}/_search", {"query": query})
    assert answer.status == 400 and answer.cause.startswith(cause), answer.text


@pytest.mark.parametrize("percent", ["9223372036854775807%", "-9223372036854775808%", "-9223372036854775808", "9223372036854775807"])
def test_minimum_should_match_beyond_all_bounds(client: Client, index: str, percent: str) -> None:
    client("POST", f"{index}/_doc", {"n": 1})
    query = {"bool": {"must": {"match_all": {}}, "should": [{"term": {"n": 1}}] * 3, "minimum_should_match": percent}}
    expected = 1 if percent.startswith("-") else 0
    assert len(client("GET", f"{index}/_search", {"query": query}).hits) == expected


def test_nested_buckets_have_a_limit(client: Client, index: str) -> None:
    """Few buckets, each with many inside, may not become half a million."""
    lines = "".join(f'{{"create":{{}}}}\n{{"a":"a{n % 300}","b":"b{n // 300}"}}\n' for n in range(300 * 300))
    for start in range(0, len(lines), 4_000_000):
        end = lines.find('{"create"', start + 4_000_000)
        begin = lines.find('{"create"', start)
        assert not client("POST", f"{index}/_bulk", lines[begin : end if end > 0 else None]).json["errors"]
    inner = {"terms": {"field": "b.keyword", "size": 1000}}
    body = {"size": 0, "aggs": {"a": {"terms": {"field": "a.keyword", "size": 1000}, "aggs": {"b": inner}}}}
    answer = client("GET", f"{index}/_search", body)
    assert answer.status == 400 and answer.cause.startswith("too_many_buckets_exception")
    inner["terms"]["size"] = 2
    buckets = client("GET", f"{index}/_search", body).json["aggregations"]["a"]["buckets"]
    assert len(buckets) == 300 and all(b["doc_count"] == 300 and len(b["b"]["buckets"]) == 2 for b in buckets)
    assert buckets[0]["b"]["sum_other_doc_count"] == 298


def test_values_in_the_documents_are_read_within_bounds(client: Client, index: str) -> None:
    lines = "".join('{"create":{}}\n' + f'{{"times":[1,2],"half":{n % 2}}}\n' for n in range(50_002))
    assert not client("POST", f"{index}/_bulk", lines).json["errors"]
    times = {"term": {"times": 2}}
    for body in ({"query": times}, {"sort": [{"times": "asc"}]}):
        answer = client("GET", f"{index}/_search", body)
        assert answer.status == 400 and "narrow the query by other conditions" in answer.cause
    narrowed = {"query": {"bool": {"must": [times, {"term": {"half": 1}}]}}, "size": 0, "track_total_hits": True}
    assert client("GET", f"{index}/_search", narrowed).json["hits"]["total"]["value"] == 25_001


def test_a_search_ends_with_what_it_has_when_its_time_is_up(client: Client, index: str) -> None:
    client("POST", f"{index}/_doc", {"a": 1})
    body = {"query": {"bool": {"should": [{"term": {"a": 1}}]}}, "aggs": {"all": {"terms": {"field": "a"}}}}
    for path, more in ((f"{index}/_search?timeout=1nanos", {}), (f"{index}/_search", {"timeout": "1nanos"})):
        answer = client("GET", path, {**body, **more})
        assert answer.json["timed_out"] and answer.hits == [] and answer.json["aggregations"]["all"]["buckets"] == []
    for time in ("1h", "9e99d", "-1"):
        answer = client("GET", f"{index}/_search?timeout={time}", body)
        assert not answer.json["timed_out"] and len(answer.hits) == 1
    for time in ("1", "nan", "-1s", ""):
        assert "failed to parse setting [timeout]" in client("GET", f"{index}/_search?timeout={time}", body).cause


def test_longs_are_found_to_their_limits(client: Client, index: str) -> None:
    numbers = [2**63 - 1, -(2**63), 2**63 - 2, 2**53 + 1]
    for number in numbers:
        assert client("POST", f"{index}/_doc/{number}", {"n": number}).status == 201
    for number in numbers:
        for value in (number, str(number)):
            assert client("GET", f"{index}/_search", {"query": {"term": {"n": value}}}).ids == [str(number)]
    assert sorted(client("GET", f"{index}/_search", {"query": {"terms": {"n": numbers[:2] + [2**63, 1.5]}}}).ids) == sorted(map(str, numbers[:2]))
