"""Random and hostile requests against the real service, with a record of what it acknowledged.

Each round sends valid, odd and contradictory requests, ends the service (TERM, kill -9 while idle, kill -9 while several
clients write, in turn), starts it again and compares every document, counts, queries and aggregations with the record.
A failure names the seed and the round.

    KESTREL_BUILD_BIN=build-asan/bin .deps/venv/bin/python tests/index/hostile.py --rounds 200 --seed 7
"""

from __future__ import annotations

import argparse
import copy
import json
import random
import signal
import subprocess
import sys
import tempfile
import threading
import time
from collections import Counter
from collections.abc import Callable, Iterator
from concurrent.futures import ThreadPoolExecutor
from contextlib import suppress
from http.client import HTTPException
from pathlib import Path
from typing import Any, Optional
from urllib.parse import quote, unquote

sys.path.insert(0, str(Path(__file__).parent))
from index_process import Answer, Client, IndexProcess, meanwhile  # noqa: E402

Source = dict[str, Any]
State = Optional[Source]  # None: the document is not there
Key = tuple[str, str]

INDICES = ("first_rel", "second_rel")
ODD = "odd_rel"  # comes and goes with odd mappings
MAPPING = {
    "mappings": {
        "properties": {
            "tag": {"type": "keyword"},
            "n": {"type": "long"},
            "body": {"type": "text"},
            "list": {"type": "nested", "properties": {"tag": {"type": "keyword"}}},
        }
    }
}
TAGS = ["red", "green", "blue", "", "RED", "Ж", "a b", "5", "true"]
WORDS = ["river", "rover", "stone", "light", "night", "sea", "wide", "near"]
NUMBERS = [0, 1, -1, 42, 2**31, 2**53 + 1, 2**63 - 1, -(2**63), 2**63 - 2, -(2**63) + 1]
NAMES = [
    "a", "b", "a.b", "a.b.c", "a.b.d", "b.keyword", "c", "c.keyword", "ü", "Ж.ж", " ", "", ".", "a.", ".a", "a..b",
    "_id", "_source", "properties", "type", "x" * 300, 'quo"te', "new\nline", "tab\t", "list.tag", "list", "speakerGuid",
    "projectGuidList", "vector", "deep", "0", "null",
]
TEXTS = [
    "", " ", "plain", "12", "12.5", "true", "1e400", "NaN", "2020-01-01", "\u0000", "\ufeff", "ß", "e\u0301", "\U0001f600",
    "東京", "x" * 300, "y" * 33_000, "a" * 300 + " b", '"\\/', "\u2028", "don't it's",
]
REFUSABLE = (400, 403, 404, 405, 406, 408, 409, 413, 414, 415, 429, 431)


def parse(text: str) -> Any:
    """Strict JSON: NaN and Infinity are none."""

    def refuse(constant: str) -> Any:
        raise ValueError(f"{constant} is not JSON")

    return json.loads(text, parse_constant=refuse)


def canonical(value: Any) -> Any:
    """Comparable form in which true is not 1, and 1 is 1.0."""
    if isinstance(value, bool) or value is None or isinstance(value, str):
        return repr(value)
    if isinstance(value, dict):
        return {key: canonical(inner) for key, inner in value.items()}
    if isinstance(value, list):
        return [canonical(inner) for inner in value]
    return int(value) if float(value).is_integer() else float(value)


def flat(value: Any) -> Iterator[Any]:
    if isinstance(value, list):
        for inner in value:
            yield from flat(inner)
    elif value is not None:
        yield value


def tags_of(source: Source) -> set[str]:
    return {json.dumps(value) if not isinstance(value, str) else value for value in flat(source.get("tag"))}


def numbers_of(source: Source) -> set[int]:
    return {int(value) if isinstance(value, int) or str(value).lstrip("-").isdigit() else int(float(value))
            for value in flat(source.get("n"))}


def words_of(source: Source) -> set[str]:
    return {word for text in flat(source.get("body")) if isinstance(text, str) for word in text.split()}


def merged(target: Source, fields: Source) -> Source:
    result = copy.deepcopy(target)
    for key, value in fields.items():
        if isinstance(value, dict) and isinstance(result.get(key), dict):
            result[key] = merged(result[key], value)
        else:
            result[key] = copy.deepcopy(value)
    return result


class Maker:
    """Makes documents, queries and whole requests."""

    def __init__(self, rng: random.Random) -> None:
        self.rng = rng

    def document(self) -> Source:
        rng = self.rng
        made: Source = {}
        if rng.random() < 0.8:
            made["tag"] = self.few(lambda: rng.choice(TAGS))
        if rng.random() < 0.7:
            made["n"] = self.few(lambda: rng.choice([*NUMBERS, rng.randint(0, 20)]))
        if rng.random() < 0.7:
            made["body"] = " ".join(rng.choices(WORDS, k=rng.randint(0, 30)))
        if rng.random() < 0.3:
            made["list"] = [{"tag": rng.choice(TAGS)} for _ in range(rng.randint(0, 3))]
        if rng.random() < 0.2:
            made["projectGuidList"] = rng.choices(["P", "Q", "KST_Import_ProjectGuid"], k=rng.randint(0, 3))
        if rng.random() < 0.2:
            made["speakerGuid"] = rng.choice(TAGS)
        while rng.random() < 0.3:
            made[rng.choice(NAMES)] = self.value(0)
        if rng.random() < 0.05:
            made[rng.choice(["tag", "n", "body", "list"])] = self.value(0)
        return made

    def few(self, make: Callable[[], Any]) -> Any:
        return make() if self.rng.random() < 0.7 else [make() for _ in range(self.rng.randint(0, 3))]

    def value(self, depth: int) -> Any:
        rng = self.rng
        kind = rng.randrange(12 if depth < 3 else 7)
        if kind == 0:
            return rng.choice(NUMBERS)
        if kind == 1:
            return rng.choice([0.5, -0.0, 1e300, -1e-300, 3.4028235e38, 3.5e38, 1e19, 123456789.123])
        if kind in (2, 3):
            return rng.choice(TEXTS)
        if kind == 4:
            return rng.choice([True, False, None])
        if kind == 5:
            return rng.choice([2**64, -(2**64), 10**30, 2**63])
        if kind == 6:
            return [rng.uniform(-1, 1) for _ in range(rng.choice([2, 128, 128, 200]))]
        if kind == 7:
            return [self.value(depth + 1) for _ in range(rng.randint(0, 4))]
        if kind in (8, 9):
            return {rng.choice(NAMES): self.value(depth + 1) for _ in range(rng.randint(0, 3))}
        if kind == 10:
            return [{rng.choice(NAMES): self.value(depth + 1)} for _ in range(rng.randint(1, 3))]
        nested: Any = rng.choice(TEXTS)
        for _ in range(rng.choice([5, 18, 19, 20, 21, 25])):
            nested = {rng.choice(["d", "e"]): nested}
        return nested

    def body(self, source: Source) -> str:
        """The document as text, now and then written in an odd way or spoilt."""
        rng = self.rng
        text = json.dumps(source, ensure_ascii=rng.random() < 0.5)
        odd = rng.random()
        if odd < 0.03:
            text = "\ufeff" + text
        elif odd < 0.06:
            text += rng.choice(["\0", "}", " \t", ",", "\ufeff", "{}"])
        elif odd < 0.08:
            text = text[: rng.randrange(len(text))]
        elif odd < 0.09:
            text = "[" * rng.choice([10, 600])
        elif odd < 0.10:
            text = '{"a":1e400}'
        return text

    def query(self, depth: int = 0) -> Any:
        rng = self.rng
        field = rng.choice(["tag", "n", "body", "list", "list.tag", "_id", *NAMES])
        kind = rng.randrange(11 if depth < 4 else 5)
        if kind == 0:
            return {"term": {field: rng.choice([rng.choice(TAGS), rng.choice(NUMBERS), self.value(2)])}}
        if kind == 1:
            return {"exists": {"field": field}}
        if kind == 2:
            return {"terms": {field: [self.value(3) for _ in range(rng.randint(0, 5))]}}
        if kind == 3:
            match: Source = {"query": rng.choice([rng.choice(WORDS), "nihgt rivr", self.value(2)])}
            match["fuzziness"] = rng.choice(["AUTO", "AUTO:4,6", 2, 0, "AUTO:9999999999999999999999,1", -1, 1.5])
            match["boost"] = rng.choice([1, 0, 3e38, 1e39, 1e308, -1])
            return {"match": {field: match}}
        if kind == 4:
            return rng.choice([{"match_all": {"boost": rng.choice([1, 3e38, 1e200])}}, {"match_none": {}}, {}, 5, [], None])
        if kind < 8:
            clauses: Source = {
                name: [self.query(depth + 1) for _ in range(rng.randint(0, 3))]
                for name in rng.sample(["must", "should", "filter", "must_not"], rng.randint(0, 4))
            }
            if rng.random() < 0.3:
                clauses["minimum_should_match"] = rng.choice(
                    [1, -1, 99, "50%", "-150%", "9223372036854775807%", "-9223372036854775808%", 2**63 - 1, -(2**63), 0.5])
            return {"bool": clauses}
        if kind == 8:
            return {"nested": {"path": rng.choice(["list", "a", "body", "a.b"]), "query": self.query(depth + 1)}}
        if kind == 9:
            source = 'cosineSimilarity(params.semanticVector,"semanticImageVector")+1.0'
            vector = rng.choice([[1.0] * 128, [], [0.0] * 128, [3e38] * 128, [1e308], ["x"], 5])
            script = {"source": source, "params": {"semanticVector": vector}}
            return {"script_score": {"query": self.query(depth + 1), "script": script, "boost": rng.choice([1, 1e39])}}
        return {rng.choice(["fly", "bool", "term", "nested", "terms", "match"]): self.value(1)}

    def search(self) -> Source:
        rng = self.rng
        body: Source = {}
        if rng.random() < 0.8:
            body["query"] = self.query()
        if rng.random() < 0.3:
            body["size"] = rng.choice([0, 1, 10_000, 10_001, -1, 2**63 - 1, 2**64 - 1, 2**31, "x", 1.5])
        if rng.random() < 0.2:
            body["from"] = rng.choice([0, 5, 9_999, 2**63 - 1, 2**64 - 1, -5])
        if rng.random() < 0.3:
            field = rng.choice(["tag", "n", "_score", "_doc", "body", *NAMES])
            body["sort"] = rng.choice([field, [{field: rng.choice(["asc", "desc", "up"])}], [{field: self.value(1)}], 5])
        if rng.random() < 0.3:
            field = rng.choice(["tag", "n", "list.tag", *NAMES])
            terms = {"terms": {"field": field, "size": rng.choice([1, 10, 65_536, 65_537, 0, -1, 2**63 - 1])}}
            body["aggs"] = rng.choice([
                {"x": terms}, {"x": {**terms, "aggs": {"y": terms}}}, {"x": {"nested": rng.choice([5, {"path": "list"}, {"path": 5}])}},
                {"x": {"nested": {"path": "list"}, "aggs": {"y": terms}}}, 5, {"x": 5}, {"x": {"terms": 5}}, {"x": {"aggs": 5, **terms}}])
        if rng.random() < 0.1:
            body["track_total_hits"] = rng.choice([True, False, 0, 5, -1, "x"])
        return body

    def nonsense(self) -> tuple[str, str, Any]:
        rng = self.rng
        index = rng.choice(INDICES)
        path = rng.choice([
            f"{index}/_doc/%FF%FE", f"{index}/_doc/%00", f"{index}/_doc/" + quote(rng.choice(TEXTS[1:14]), safe=""), f"{index}/_doc/{'z' * 513}",
            f"{index}/_search?scroll=nanm", f"{index}/_search?scroll=infm", f"{index}/_search?scroll=1e300d", f"{index}/_search?scroll=0s",
            f"{index}/_search?size=18446744073709551615&from=5", "_search/scroll", f"{index}/_mapping", "", "%FF", "a%2Fb", f"{index},{index}/_search",
            "*/_search", "*/_count", f"{index}/_update/nothing", "_security/role/%FF", "_security/user/x", f"{index}/_bulk", "_bulk", "odd%80name",
            f"{index}/_search?a=%FF", f"{index}/_refresh", "..", "_all", "?", f"{index}/_update_by_query", f"{index}/_search?scroll=1m",
        ])
        method = rng.choice(["GET", "PUT", "POST", "HEAD", "PATCH", "OPTIONS"])
        body: Any = rng.choice([None, None, "{", "[]", "null", "5", self.body(self.document()), json.dumps(self.search())])
        if path.endswith("_update_by_query"):
            body = rng.choice(["{", "[]", "5"])
        return method, path, body


class Record:
    """What the service has acknowledged, and what it may or may not have done when it was killed."""

    def __init__(self) -> None:
        self.states: dict[Key, Source] = {}
        self.doubt: dict[Key, list[State]] = {}
        self.doubtful_new: list[tuple[str, Any]] = []
        self.doubtful_bulks: list[dict[Key, State]] = []  # each happened whole or not at all

    def get(self, key: Key) -> State:
        return self.states.get(key)

    def set(self, key: Key, state: State) -> None:
        if state is None:
            self.states.pop(key, None)
        else:
            self.states[key] = state

    def of(self, index: str) -> dict[str, Source]:
        return {key[1]: state for key, state in self.states.items() if key[0] == index}

    def resolve(self, index: str, found: dict[str, Source]) -> None:
        """Takes over what is there where there was doubt."""
        for (name, identifier), allowed in self.doubt.items():
            if name != index:
                continue
            state = found.get(identifier)
            assert canonical_state(state) in [canonical_state(s) for s in [self.get((name, identifier)), *allowed]], (
                f"{name}/{identifier} is neither as before nor as after the request that was cut off: {state!r:.500}")
            self.set((name, identifier), state)
        for after in (bulk for bulk in self.doubtful_bulks if index == INDICES[0]):
            now = {key: found.get(key[1]) for key in after}
            assert now in ({key: self.get(key) for key in after}, after), f"part of a request that was cut off: {now}"
            for key, state in now.items():
                self.set(key, state)
        for name, content in self.doubtful_new:
            for identifier, state in found.items():
                if name == index and (index, identifier) not in self.states and canonical(state) == content:
                    self.set((index, identifier), state)


def canonical_state(state: State) -> Any:
    return None if state is None else canonical(state)


class CutOff(Exception):
    """The service went away in the middle of a request."""


class Writer:
    """Writes and deletes documents of its own, several in a request, until it is cut off."""

    def __init__(self, client: Client, acknowledgements: threading.Semaphore, prefix: str, seed: int) -> None:
        self.client = client
        self.acknowledgements = acknowledgements
        self.rng = random.Random(seed)
        self.keys = [(INDICES[0], f"{prefix}{number}") for number in range(40)]
        self.acknowledged: dict[Key, State] = {}
        self.in_doubt: dict[Key, State] = {}
        self.count = 0

    def write(self) -> None:
        with suppress(OSError, HTTPException):
            while True:
                self.in_doubt = {key: {"body": "light", "count": self.count} if self.rng.random() < 0.8 else None
                                 for key in self.rng.sample(self.keys, self.rng.randint(1, 20))}
                lines = [line for (_, identifier), state in self.in_doubt.items() for line in (
                    [{"delete": {"_id": identifier}}] if state is None else [{"index": {"_id": identifier}}, state])]
                body = "".join(json.dumps(line) + "\n" for line in lines)
                assert self.client("PUT", f"{INDICES[0]}/_bulk", body).status == 200
                self.acknowledged.update(self.in_doubt)
                self.in_doubt = {}
                self.count += 1
                self.acknowledgements.release()


class Run:
    def __init__(self, data: Path, seed: int, operations: int) -> None:
        self.rng = random.Random(seed)
        self.make = Maker(self.rng)
        self.record = Record()
        self.data = data
        self.operations = operations
        self.outcomes: Counter[str] = Counter()
        self.start()
        for index in INDICES:
            assert self.send("PUT", index, json.dumps(MAPPING)).status == 200

    def start(self) -> None:
        self.service = IndexProcess(self.data, "--log-level", "error").wait_until_ready()
        self.client = self.service.client()

    def send(self, method: str, path: str, body: Any = None) -> Answer:
        """Every answer, whatever was asked, is one of ours and is JSON."""
        try:
            answer = self.client(method, path, body)
        except (OSError, HTTPException, UnicodeDecodeError) as e:
            if isinstance(e, UnicodeDecodeError):
                raise AssertionError(f"{method} {path} {body!r:.300}: answered with bytes that are not UTF-8") from e
            raise CutOff from e
        self.outcomes[f"{answer.status}"] += 1
        what = f"{method} {path[:200]} {body!r:.1000}: {answer.status} {answer.text[:500]}"
        assert answer.status < 300 or answer.status in REFUSABLE, what
        if method != "HEAD":
            try:
                parsed = parse(answer.text)
            except ValueError as e:
                raise AssertionError(f"not JSON: {e}: {what}") from e
            assert answer.status < 300 or "error" in parsed or answer.status == 404, what
        return answer

    # -- operations: each tells the record what was acknowledged, and what is in doubt when it is cut off

    def key(self) -> Key:
        return self.rng.choice(INDICES), f"id{self.rng.randrange(40)}"

    def path(self, key: Key, kind: str) -> str:
        return f"{key[0]}/{kind}/{quote(key[1], safe='')}"

    def write(self, method: str, path: str, body: Any, key: Key, after: State) -> Answer:
        self.record.doubt[key] = [after]
        answer = self.send(method, path, body)
        del self.record.doubt[key]
        if answer.status < 300:
            self.record.set(key, after)
        return answer

    @staticmethod
    def understood(body: str) -> State:
        """The document that a body is, when it is one: a byte order mark does not belong to it."""
        try:
            parsed = json.loads(body.removeprefix("\ufeff"))
        except ValueError:
            return None
        return parsed if isinstance(parsed, dict) else None

    def put(self) -> None:
        key = self.key()
        body = self.make.body(self.make.document())
        create = self.rng.random() < 0.3
        after = self.understood(body)
        answer = self.write("POST", self.path(key, "_doc") + ("?op_type=create" if create else ""), body, key, after)
        if answer.status < 300:
            assert after is not None, f"accepted, but no document: {body[:500]!r}"

    def add(self) -> None:
        index = self.rng.choice(INDICES)
        body = self.make.body(self.make.document())
        after = self.understood(body)
        self.record.doubtful_new.append((index, canonical(after)))
        answer = self.send("POST", f"{index}/_doc", body)
        self.record.doubtful_new.pop()
        if answer.status < 300:
            assert after is not None, f"accepted, but no document: {body[:500]!r}"
            self.record.set((index, answer.json["_id"]), after)

    def delete(self) -> None:
        key = self.key()
        self.write("DELETE", self.path(key, "_doc"), None, key, None)

    def update(self) -> None:
        key = self.key()
        fields = self.make.document()
        before = self.record.get(key)
        after = merged(before, fields) if before is not None else None
        answer = self.write("POST", self.path(key, "_update"), json.dumps({"doc": fields}), key, after)
        assert before is not None or answer.status == 404 or answer.status == 400

    def script(self) -> None:
        key = self.key()
        source, change = self.rng.choice(list(SCRIPTS.items()))
        before = self.record.get(key)
        after = change(copy.deepcopy(before)) if before is not None else None
        body = {"script": {"source": source, "params": {"new_element": "N", "element_to_remove": "P"}}}
        answer = self.write("POST", self.path(key, "_update"), json.dumps(body), key, after)
        assert answer.status != 200 or after is not None, f"a script ran on what it does not suit: {before}"

    def bulk(self) -> None:
        lines: list[str] = []
        planned: list[tuple[Key, Callable[[State], State]]] = []
        for _ in range(self.rng.randint(1, 12)):
            key = self.key()
            kind = self.rng.choice(["create", "index", "delete", "update", "index"])
            action: Source = {"_index": key[0], "_id": key[1]}
            document = self.make.document()
            text = json.dumps(document)
            if kind == "index" and self.rng.random() < 0.1:
                text = self.make.body(document).replace("\n", " ")
                document = self.understood(text) or {}
            lines.append(json.dumps({kind: action}))
            if kind == "delete":
                planned.append((key, lambda before: None))
                continue
            lines.append(json.dumps({"doc": document}) if kind == "update" else text)
            if kind == "update":
                planned.append((key, lambda before, d=document: merged(before, d) if before is not None else None))  # type: ignore[misc]
            else:
                planned.append((key, lambda before, d=document: d))  # type: ignore[misc]
        # Cut off, a document may be in any state that the actions lead through.
        for key, change in planned:
            states = self.record.doubt.setdefault(key, [])
            states += [change(state) for state in [self.record.get(key), *states]]
        answer = self.send("PUT", "_bulk", "\n".join(lines) + "\n")
        self.record.doubt.clear()
        if answer.status != 200:
            return
        for (key, change), item in zip(planned, answer.json["items"], strict=True):
            (result,) = item.values()
            assert result["_id"] == key[1]
            if result["status"] < 300:
                self.record.set(key, change(self.record.get(key)))
            else:
                assert result["status"] in REFUSABLE, result

    def tagged(self, index: str, tag: str) -> list[str]:
        return sorted(i for i, source in self.record.of(index).items() if tag in tags_of(source))

    def by_query(self) -> None:
        index, tag = self.rng.choice(INDICES), self.rng.choice(TAGS)
        matched = self.tagged(index, tag)
        body: Source = {"query": {"term": {"tag": tag}}}
        remove = self.rng.random() < 0.2
        changes: dict[str, State] = dict.fromkeys(matched)
        if not remove:
            source, change = self.rng.choice(list(SCRIPTS.items()))
            body["script"] = {"source": source, "params": {"new_element": "N", "element_to_remove": "P"}}
            changes = {i: change(copy.deepcopy(self.record.states[index, i])) for i in matched}
        for identifier, after in changes.items():
            self.record.doubt[index, identifier] = [after]
        answer = self.send("POST", f"{index}/_{'delete' if remove else 'update'}_by_query", json.dumps(body))
        self.record.doubt.clear()
        if answer.status != 200:
            assert not remove and None in changes.values(), answer.text
            return
        assert answer.json["total"] == len(matched), f"{body}: {answer.text}, expected {matched}"
        for identifier, after in changes.items():
            self.record.set((index, identifier), after)

    def search(self) -> None:
        self.send("GET", f"{self.rng.choice(INDICES)}/_search", json.dumps(self.make.search()))

    def nonsense(self) -> None:
        method, path, body = self.make.nonsense()
        index, _, rest = path.partition("/")
        kind, _, identifier = rest.partition("/")
        if method in ("PUT", "POST") and kind == "_doc":  # may be a valid write after all
            self.write(method, path, body, (index, unquote(identifier)), self.understood(body or ""))
        else:
            self.send(method, path, body)

    def mapping(self) -> None:
        """An index with an odd mapping: refused, or there to be deleted."""
        rng = self.rng
        kinds = ["text", "keyword", "long", "dense_vector", "nested", "object", "float", "boolean", "byte"]
        properties = {
            rng.choice(NAMES): {
                "type": rng.choice(kinds),
                **rng.choice([{}, {"properties": {rng.choice(NAMES): {"type": rng.choice(kinds)}}}, {"dims": rng.choice([0, 4, -1, 2**40])},
                              {"fields": {rng.choice(NAMES): {"type": "keyword", "properties": {}}}}, {"ignore_above": rng.choice([0, 5, "x"])},
                              {"fields": {"k": {"type": "keyword"}, "l": {"type": "keyword"}}}, {"fields": 5}, {"properties": 5}]),
            }
            for _ in range(rng.randint(1, 4))
        }
        if self.send("PUT", ODD, json.dumps({"mappings": {"properties": properties}})).status == 200:
            for _ in range(3):
                self.send("POST", f"{ODD}/_doc", json.dumps(self.make.document()))
            if rng.random() < 0.7:
                self.send("DELETE", ODD)
        else:
            self.send("DELETE", ODD)

    def operate(self) -> None:
        operations = [self.put] * 8 + [self.add] * 2 + [self.delete] * 2 + [self.update] * 5 + [self.script] * 2
        operations += [self.bulk] * 4 + [self.by_query] * 2 + [self.search] * 6 + [self.nonsense] * 4 + [self.mapping]
        self.rng.choice(operations)()

    # -- rounds

    def round(self, number: int) -> None:
        way = ("TERM", "kill while idle", "kill in a request")[number % 3]
        with meanwhile(self.searching()):
            for _ in range(self.operations):
                self.operate()
        before = self.answers()
        if way == "TERM":
            assert self.service.stop() == 0
        elif way == "kill while idle":
            self.service.kill()
        else:
            self.cut_off()
            before = None
        self.start()
        self.compare_documents()
        answers = self.answers()
        assert before is None or answers == before, difference(before, answers)
        self.compare_queries()

    def searching(self) -> Callable[[], None]:
        """Searches all the while, so that reading meets writing."""
        client, make = self.service.client(), Maker(random.Random(self.rng.randrange(2**32)))

        def search() -> None:
            body = json.dumps(make.search())
            answer = client("GET", f"{make.rng.choice(INDICES)}/_search", body)
            parse(answer.text)
            assert answer.status in (200, *REFUSABLE), f"{body[:500]}: {answer.status} {answer.text[:500]}"

        return search

    def cut_off(self) -> None:
        """Kills the service while several clients write, whose requests share transactions."""
        acknowledged = threading.Semaphore(0)
        writers = [Writer(self.service.client(), acknowledged, f"w{number}-", self.rng.randrange(2**32)) for number in range(7)]
        enough = self.rng.randint(20, 200)

        def kill() -> None:
            for _ in range(enough):
                acknowledged.acquire()
            self.service.kill()

        with ThreadPoolExecutor(len(writers) + 1) as threads:
            threads.submit(kill)
            writing = [threads.submit(writer.write) for writer in writers]
            for one in writing:
                one.add_done_callback(lambda _: acknowledged.release(enough))
            try:
                with suppress(CutOff):
                    while True:
                        self.operate()
            finally:
                self.service.kill()
        assert self.service.process.returncode == -signal.SIGKILL, "the service ended before it was killed"
        for writer, ended in zip(writers, writing, strict=True):
            ended.result()
            for key, state in writer.acknowledged.items():
                self.record.set(key, state)
            self.record.doubtful_bulks.append(writer.in_doubt)
            self.outcomes["200"] += writer.count

    def compare_documents(self) -> None:
        for index in INDICES:
            found = {hit["_id"]: hit["_source"] for hit in self.scroll(index)}
            self.record.resolve(index, found)
            expected = self.record.of(index)
            assert found.keys() == expected.keys(), f"{index}: {found.keys() ^ expected.keys()}"
            for identifier, source in expected.items():
                assert canonical(found[identifier]) == canonical(source), f"{index}/{identifier}: {found[identifier]!r:.500}"
            assert self.send("GET", f"{index}/_count").json["count"] == len(expected)
        self.record.doubt.clear()
        self.record.doubtful_new.clear()
        self.record.doubtful_bulks.clear()

    def scroll(self, index: str) -> list[dict[str, Any]]:
        page = self.send("GET", f"{index}/_search?scroll=1m", {"size": 100})
        hits: list[dict[str, Any]] = []
        while page.hits:
            hits += page.hits
            page = self.send("POST", "_search/scroll", {"scroll_id": page.json["_scroll_id"], "scroll": "1m"})
        return hits

    def compare_queries(self) -> None:
        for index in INDICES:
            documents = self.record.of(index)
            self.agree(index, {"term": {"tag": ""}}, documents, lambda s: "" in tags_of(s))
            for tag in TAGS:
                self.agree(index, {"term": {"tag": tag}}, documents, lambda s, t=tag: t in tags_of(s))
            for number in NUMBERS:
                self.agree(index, {"term": {"n": number}}, documents, lambda s, n=number: n in numbers_of(s))
            for word in WORDS:
                self.agree(index, {"match": {"body": word}}, documents, lambda s, w=word: w in words_of(s))
            buckets = self.send("GET", f"{index}/_search", {"size": 0, "aggs": {"t": {"terms": {"field": "tag", "size": 1000}}}})
            counted = {b["key"]: b["doc_count"] for b in buckets.json["aggregations"]["t"]["buckets"]}
            assert counted == Counter(tag for source in documents.values() for tag in tags_of(source))

    def agree(self, index: str, query: Source, documents: dict[str, Source], matches: Callable[[Source], bool]) -> None:
        expected = sorted(i for i, source in documents.items() if matches(source))
        found = sorted(self.send("GET", f"{index}/_search", {"query": query, "size": 10_000, "_source": False}).ids)
        assert found == expected, f"{index} {query}: {set(found) ^ set(expected)}"

    def answers(self) -> list[Any]:
        """What a fixed set of odd searches and the mappings answer."""
        fixed = Maker(random.Random(99))
        found: list[Any] = []
        for index in (*INDICES, ODD):
            mapping = self.send("GET", f"{index}/_mapping")
            found.append(canonical(mapping.json))
            for _ in range(60 if mapping.status == 200 else 0):
                body = json.dumps(fixed.search())
                answer = self.send("GET", f"{index}/_search", body).json
                answer.pop("took", None)
                found.append((body, answer))
        return found


def difference(before: Optional[list[Any]], after: list[Any]) -> str:
    assert before is not None
    for old, new in zip(before, after, strict=True):
        if old != new:
            return f"the answer changed with the restart:\n{old!r:.3000}\n{new!r:.3000}"
    return "no difference"


def without_speaker(source: Source) -> State:
    source.pop("speakerGuid", None)
    return source


def with_project(source: Source) -> State:
    projects = source.get("projectGuidList")
    if not isinstance(projects, list) or not projects:
        return None
    if projects[0] == "KST_Import_ProjectGuid":
        projects.pop(0)
    projects.append("N")
    return source


def without_project(source: Source) -> State:
    projects = source.get("projectGuidList")
    if not isinstance(projects, list):
        return None
    source["projectGuidList"] = [project for project in projects if project != "P"]
    return source


SCRIPTS: dict[str, Callable[[Source], State]] = {
    "ctx._source.remove('speakerGuid')": without_speaker,
    'if (ctx._source.projectGuidList[0] == "KST_Import_ProjectGuid") {ctx._source.projectGuidList.remove(0);} '
    "ctx._source.projectGuidList.add(params.new_element);": with_project,
    "for (int i=ctx._source.projectGuidList.length-1; i>=0; i--) {if (ctx._source.projectGuidList[i] == "
    "params.element_to_remove) {ctx._source.projectGuidList.remove(i);}}": without_project,
}


def ending(service: IndexProcess) -> str:
    """Whether the service had died, and what it said; ends it."""
    try:
        died = f"the service had ended with code {service.process.wait(timeout=5)}"
    except subprocess.TimeoutExpired:
        died = "the service was still running"
        service.kill()
    log = service.log.read_text()[-6000:] if service.log.exists() else service.log_text
    return f"{died}; its standard error:\n{log}"


def run(data: Path, seed: int, rounds: int, operations: int, show: bool = False) -> Counter[str]:
    running = Run(data, seed, operations)
    for number in range(rounds):
        try:
            running.round(number)
        except BaseException:
            print(f"seed {seed}, round {number}: {ending(running.service)}", file=sys.stderr)
            raise
        if show:
            print(f"round {number + 1} of {rounds}: {len(running.record.states)} documents", flush=True)
    assert running.service.stop() == 0
    return running.outcomes


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--rounds", type=int, default=100)
    parser.add_argument("--operations", type=int, default=200, help="requests in each round, besides those that compare")
    parser.add_argument("--seed", type=int, default=random.randrange(2**31))
    options = parser.parse_args()
    print(f"seed {options.seed}")
    started = time.monotonic()
    with tempfile.TemporaryDirectory() as folder:
        outcomes = run(Path(folder) / "data", options.seed, options.rounds, options.operations, show=True)
    print(f"{sum(outcomes.values())} requests in {time.monotonic() - started:.0f} s, by status: {dict(sorted(outcomes.items()))}")


if __name__ == "__main__":
    main()
