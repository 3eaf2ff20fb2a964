"""What was acknowledged loads again and answers the same; what was refused left nothing; no request ends the service."""

from __future__ import annotations

import itertools
import json
import os
import resource
import shutil
import socket
import sqlite3
import stat
import subprocess
import time
from collections.abc import Callable
from contextlib import closing
from pathlib import Path
from typing import Any

import pytest

from index_process import BINARY, Client, IndexProcess, Served, meanwhile, refusal

INDEX = Served.INDEX
DAMAGE, DATA_FOLDER, ADDRESS = 2, 3, 4
Document = dict[str, Any]


def tool(*arguments: object) -> tuple[int, str]:
    done = subprocess.run([str(BINARY), *map(str, arguments)], capture_output=True, text=True, check=False)
    return done.returncode, done.stdout + done.stderr


def bulk(served: Served, documents: list[Document], prefix: str = "d") -> None:
    lines = "".join(
        json.dumps({"index": {"_id": f"{prefix}{n}"}}) + "\n" + json.dumps(document) + "\n"
        for n, document in enumerate(documents)
    )
    answer = served("PUT", "_bulk", lines)
    assert answer.status == 200 and not answer.json["errors"], answer.text[:500]


# ---- limits and refusals


def nest(levels: int) -> Document:
    document: Document = {"leaf": 1}
    for _ in range(levels):
        document = {"o": document}
    return document


def test_update_is_held_to_the_limits_of_documents(served: Served) -> None:
    served("PUT", "_doc/1", {"kept": "as it was"})
    for start in range(0, 12_000, 3000):
        fields = {f"k{n}": None for n in range(start, start + 3000)}
        answer = served("POST", "_update/1", {"doc": fields})
        assert answer.status == (200 if start < 9000 else 400), answer.text[:300]
    assert served("POST", "_update/1", {"doc": nest(30)}).status == 400
    before = served("GET", "_doc/1").json
    served.restart()
    assert served("GET", "_doc/1").json == before


def test_refused_documents_leave_no_fields(served: Served) -> None:
    served("PUT", "_doc/1", {"n": 1})
    before = served.client("GET", INDEX).json
    for body in ({"new": 1, "n": "no number"}, {"v": [1.5] * 5000, "n": {}}, {f"f{n}": n for n in range(1200)}):
        assert served("PUT", "_doc/2", body).status == 400
        assert served("POST", "_update/1", {"doc": body}).status == 400
    assert served("PUT", "_create/1", {"other": 1}).status == 409
    assert served.client("GET", INDEX).json == before


def test_refusals_do_not_repeat_what_was_sent(client: Client, index: str) -> None:
    client("PUT", f"{index}/_doc/1", {"n": 1})
    answer = client("PUT", f"{index}/_doc/2", {"n": "word " * 100_000})
    assert answer.status == 400 and len(answer.text) < 5000 and "word word" in answer.text
    assert len(client("GET", f"{index}/_search", {"query": {"ж" * 100_000: {}}}).text) < 20_000


def test_full_disk_leaves_nothing_of_a_refused_write(data: Path) -> None:
    unlimited = resource.RLIM_INFINITY
    process = IndexProcess(data, prepare=lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (1_500_000, unlimited)))
    client = process.wait_until_ready().client()
    number, status = 0, 201
    while status == 201:
        number += 1
        status = client("PUT", f"{INDEX}/_doc/{number}", {f"field{number}": "text", "t": "x" * 30_000}).status
    assert status == 507
    resource.prlimit(process.process.pid, resource.RLIMIT_FSIZE, (unlimited, unlimited))
    # Had the refused document left its field as text in memory, both would be accepted, and conflict after a restart.
    assert client("PUT", f"{INDEX}/_doc/flag", {f"field{number}": True}).status == 201
    assert client("PUT", f"{INDEX}/_doc/word", {f"field{number}": "word"}).status == 400
    before = client("GET", INDEX).json
    assert process.stop() == 0
    process = IndexProcess(data).wait_until_ready()
    client = process.client()
    assert client("GET", INDEX).json == before
    assert client("GET", f"{INDEX}/_count").json["count"] == number
    assert process.stop() == 0


# ---- versions, large objects


def test_versions_and_rows_go_on(served: Served) -> None:
    assert served("PUT", "_doc/1", {"n": 1}).json["_version"] == 1
    deleted = served("DELETE", "_doc/1").json
    assert deleted["_version"] == 2
    served.restart(kill=True)
    again = served("PUT", "_doc/1", {"n": 1}).json
    assert (again["_version"], again["result"]) == (3, "created")
    assert again["_seq_no"] > deleted["_seq_no"]
    assert served("PUT", "_doc/2", {"n": 1}).json["_version"] == 1


def test_large_objects_are_merged_in_bounded_time(served: Served) -> None:
    served.client("PUT", INDEX, {"mappings": {"properties": {"o": {"type": "nested"}}}})
    fields = {f"k{n}": None for n in range(9_999)}
    for _ in range(20):
        assert served("PUT", "_doc/1", {"o": [fields] * 20}).status in (200, 201)
        assert served("POST", "_update/1", {"doc": {**fields, "o": [fields]}}).status in (200, 400)


# ---- readers and writers


def test_writes_get_through_whatever_is_searched(served: Served) -> None:
    bulk(served, [{"text": f"some words of document {n % 97}", "n": n % 13} for n in range(3000)])
    searches = [0] * 6

    def searching(number: int) -> Callable[[], None]:
        reading = served.process.client()
        clauses = [{"match": {"text": {"query": "some wrds of documnt", "fuzziness": "2"}}}] * 400

        def search() -> None:
            answer = reading("GET", f"{INDEX}/_search", {"query": {"bool": {"should": clauses}}, "size": 1})
            assert answer.status in (200, 503)  # it may have to give way
            searches[number] += 1

        return search

    with meanwhile(*map(searching, range(len(searches)))):
        while min(searches) == 0:
            time.sleep(0.01)
        before = sum(searches)
        for n in range(10):
            assert served("PUT", f"_doc/w{n}", {"text": "written meanwhile"}).status == 201
        # Each reader may end a search before a write, during it and after it.
        assert sum(searches) - before <= 10 * 4 * len(searches)


def test_searches_and_scrolls_see_one_state_while_documents_change(served: Served) -> None:
    """Each document is written anew all the time; a search finds every one of them, and so do the pages of a scroll."""
    bulk(served, [{"n": n} for n in range(300)])
    writing, turns = served.process.client(), itertools.count(1)

    def change() -> None:
        turn = next(turns)
        writing("PUT", f"{INDEX}/_doc/d{turn % 300}", {"n": turn % 300, "turn": turn})

    with meanwhile(change):
        for _ in range(5):
            for _ in range(20):
                found = served("GET", "_search", {"size": 300, "sort": ["n"]}).hits
                assert [hit["_source"]["n"] for hit in found] == list(range(300))
            page = served("GET", "_search?scroll=1m", {"size": 50, "sort": ["n"]})
            seen = [hit["_source"]["n"] for hit in page.hits]
            while page.hits:
                page = served.client("POST", "_search/scroll", {"scroll_id": page.json["_scroll_id"], "scroll": "1m"})
                seen += [hit["_source"]["n"] for hit in page.hits]
            assert seen == list(range(300))


def test_scrolls_expire_by_the_clock(served: Served) -> None:
    bulk(served, [{"n": n} for n in range(10)])
    page = served("GET", "_search?scroll=1s", {"size": 1})
    while (answer := served.client("POST", "_search/scroll", {"scroll_id": page.json["_scroll_id"]})).status == 200:
        time.sleep(1.2)
    assert answer.error_type == "search_context_missing_exception"


# ---- damage


def test_damaged_row_is_set_aside(served: Served) -> None:
    bulk(served, [{"t": f"words {n}"} for n in range(20)])
    served.harm("UPDATE documents SET source = replace(source, 'words', 'wards') WHERE id IN ('d3', 'd4')")
    assert served("GET", "_doc/d3").status == 500 and "checksum" in served("GET", "_doc/d3").cause
    assert served("GET", "_doc/d5").status == 200
    assert len(served("GET", "_search", {"size": 50}).ids) == 18
    code, text = tool("check", "--data", served.data)
    assert code == DAMAGE and "[d3]" in text and "[d4]" in text and "2 findings" in text
    assert served("PUT", "_doc/d3", {"t": "words again"}).status == 200
    assert served("DELETE", "_doc/d4").status == 200
    served.restart()
    assert served("GET", "_doc/d3").json["_source"] == {"t": "words again"}
    assert served("GET", "_doc/d4").status == 404
    assert tool("check", "--data", served.data)[0] == 0


def test_row_that_is_damaged_while_it_is_served(served: Served) -> None:
    bulk(served, [{"t": f"words {n}"} for n in range(20)])
    with served.database() as database:
        database.execute("UPDATE documents SET source = '{\"t\":\"other\"}' WHERE id = 'd3'")
    answer = served("GET", "_search", {"size": 50})
    assert answer.status == 500 and "[d3]" in answer.text
    assert len(served("GET", "_search", {"size": 50}).ids) == 19
    assert served("GET", "_doc/d3").status == 500
    assert served("PUT", "_doc/d3", {"t": "words again"}).status == 200
    assert len(served("GET", "_search", {"size": 50}).ids) == 20


def test_damaged_descriptions_are_set_aside(served: Served) -> None:
    served("PUT", "_doc/1", {"n": 1})
    served.client("PUT", "other_rel/_doc/1", {"n": 1})
    served.client("PUT", "_security/user/someone", {"password": "secret word", "roles": ["superuser"]})
    served.harm("UPDATE indices SET mappings = '[' WHERE name = 'other_rel'", "UPDATE security SET body = '{}' WHERE name = 'someone'")
    assert served("GET", "_doc/1").status == 200
    assert served.client("GET", "other_rel/_doc/1").error_type == "corrupt_index_exception"
    assert served.client("PUT", "other_rel/_doc/2", {"n": 1}).status == 500
    assert served.process.client("someone", "secret word")("GET", "").status == 401
    assert tool("check", "--data", served.data)[0] == DAMAGE
    assert served.client("DELETE", "other_rel").status == 200
    assert served.client("PUT", "other_rel/_doc/2", {"n": 1}).status == 201


def test_identifiers_are_unique_in_the_database(served: Served) -> None:
    served("PUT", "_doc/1", {"n": 1})
    with served.database() as database, pytest.raises(sqlite3.IntegrityError):
        database.execute("INSERT INTO documents (row, id, version, source) SELECT row + 1, id, 1, source FROM documents")


def test_removed_index_goes_piece_by_piece(served: Served) -> None:
    for part in range(8):
        bulk(served, [{"t": "x" * 3000} for _ in range(2000)], f"p{part}-")
    journal = served.data / "documents.db-wal"
    assert journal.stat().st_size < 24_000_000
    assert served.client("DELETE", INDEX).status == 200
    served.restart(kill=True)
    with served.database() as database:
        while database.execute("SELECT count(*) FROM removed_indices").fetchone()[0] > 0:
            time.sleep(0.1)
        assert database.execute("SELECT count(*) FROM documents").fetchone()[0] == 0
    assert journal.stat().st_size < 24_000_000


# ---- the folder


def test_first_start_may_be_killed_at_any_moment(tmp_path: Path) -> None:
    for attempt in range(10):
        data = tmp_path / str(attempt)
        process = IndexProcess(data)
        time.sleep(0.01 * attempt)
        process.kill()
        process = IndexProcess(data).wait_until_ready()
        assert process.client()("PUT", f"{INDEX}/_doc/1", {"n": 1}).status == 201
        assert process.stop() == 0


@pytest.mark.parametrize("left", ["keys and an empty file", "keys", "a journal"])
def test_lost_database_is_no_first_start(data: Path, left: str) -> None:
    assert IndexProcess(data).wait_until_ready().stop() == 0
    file = data / "documents.db"
    if left == "a journal":
        for other in data.glob("*.*"):
            other.unlink()
        journal = data / "documents.db-wal"
        journal.touch(0o600)
        journal.write_bytes(b"of documents.db")
    else:
        file.unlink()
    if left == "keys and an empty file":
        file.touch(0o600)
    code, message = refusal(data)
    assert code == DATA_FOLDER and "nothing was changed" in message
    assert ("documents.db is empty" if file.exists() else "documents.db is missing") in message


@pytest.mark.parametrize("name", ["certificate.pem", "private-key.pem"])
def test_spoilt_keys_are_named(data: Path, name: str) -> None:
    assert IndexProcess(data).wait_until_ready().stop() == 0
    (data / name).write_text("spoilt")
    code, message = refusal(data)
    assert code == DATA_FOLDER and str(data / name) in message


def test_loose_rights_are_tightened(data: Path) -> None:
    assert IndexProcess(data).wait_until_ready().stop() == 0
    loose = [data, data / "documents.db", data / "private-key.pem"]
    for path in loose:
        path.chmod(0o777)
    process = IndexProcess(data).wait_until_ready()
    assert "only its owner has" in process.log.read_text()
    for path in [*loose, *data.iterdir()]:
        assert stat.S_IMODE(path.stat().st_mode) & 0o077 == 0, path
    assert process.stop() == 0


def test_planted_snapshots_are_not_read(data: Path) -> None:
    assert IndexProcess(data).wait_until_ready().stop() == 0
    planted = data / "derived" / "planted.snapshot"
    planted.parent.mkdir(exist_ok=True)
    planted.write_text("by somebody else")
    planted.chmod(0o666)
    process = IndexProcess(data).wait_until_ready()
    assert str(planted) in process.log.read_text() and not planted.exists()
    assert process.stop() == 0


@pytest.mark.parametrize("plant", ["of others", "writable", "link"])
def test_planted_files_are_not_taken_over(data: Path, tmp_path: Path, plant: str) -> None:
    data.mkdir()
    file = data / "administrator.json"
    password = '{"user":"kestrel_admin","password":"known to others"}'
    if plant == "link":
        (tmp_path / "elsewhere.json").write_text(password)
        file.symlink_to(tmp_path / "elsewhere.json")
    else:
        file.write_text(password)
        file.chmod(0o666 if plant == "writable" else 0o600)
        if plant == "of others":
            if os.geteuid() != 0:
                pytest.skip("only root can give a file away")
            os.chown(file, 65534, 65534)
    (data / "first-start").write_text("")
    code, message = refusal(data)
    assert code == DATA_FOLDER and "administrator.json" in message


def test_folder_and_port_are_taken_once(data: Path, tmp_path: Path) -> None:
    service = IndexProcess(data).wait_until_ready()
    code, message = refusal(data)
    assert code == DATA_FOLDER and "in use by another process" in message
    port = service.address[1]
    code, message = refusal(tmp_path / "other", "--port", str(port))
    assert code == ADDRESS and f"cannot listen on 127.0.0.1:{port}" in message
    assert service.client()("GET", "").status == 200
    assert service.stop() == 0


# ---- what cannot be used


def patched(file: Path, begin: int, end: int, content: bytes) -> None:
    whole = bytearray(file.read_bytes())
    whole[begin:end] = content
    file.write_bytes(whole)


def run_sql(file: Path, statement: str) -> None:
    with closing(sqlite3.connect(file, isolation_level=None)) as database:
        database.execute(statement)


@pytest.mark.parametrize("spoil", [
    lambda file: patched(file, 0, 16, b"not a database.."),
    lambda file: patched(file, 8192, -4096, bytes(file.stat().st_size - 8192 - 4096)),
    lambda file: run_sql(file, "PRAGMA user_version = 99"),
    lambda file: (file.unlink(), run_sql(file, "CREATE TABLE bookmarks (url TEXT)")),
], ids=["header", "pages", "from the future", "of another program"])
def test_damaged_folder_is_refused_and_left_alone(data: Path, spoil: Callable[[Path], object]) -> None:
    served = Served(data)
    bulk(served, [{"transcript": f"words {n}"} for n in range(500)])
    assert served.process.stop() == 0
    file = data / "documents.db"
    spoil(file)
    before = file.read_bytes()
    code, message = refusal(data)
    assert code == DATA_FOLDER and "nothing was changed" in message
    assert file.read_bytes() == before


def test_foreign_folder_is_refused(data: Path) -> None:
    data.mkdir()
    (data / "holiday.jpg").write_bytes(b"not ours")
    code, message = refusal(data)
    assert code == DATA_FOLDER and "holiday.jpg" in message
    assert [file.name for file in data.iterdir()] == ["holiday.jpg"]


def test_other_addresses_are_not_served(service: IndexProcess) -> None:
    with pytest.raises(OSError):
        socket.create_connection(("127.0.0.2", service.address[1]), timeout=5)


# ---- the first format


FIRST_FORMAT = """
PRAGMA application_id = 1263750744; PRAGMA user_version = 1;
CREATE TABLE indices (number INTEGER PRIMARY KEY AUTOINCREMENT, name TEXT NOT NULL UNIQUE, uuid TEXT NOT NULL,
 created INTEGER NOT NULL, settings TEXT NOT NULL, mappings TEXT NOT NULL);
CREATE TABLE documents (row INTEGER PRIMARY KEY, id TEXT NOT NULL, version INTEGER NOT NULL, source TEXT NOT NULL);
CREATE TABLE security (kind TEXT NOT NULL, name TEXT NOT NULL, body TEXT NOT NULL, PRIMARY KEY (kind, name));
"""


def test_folder_of_the_first_format_is_brought_up_to_date(data: Path) -> None:
    """As it was left by a service that accepted what could not be loaded again."""
    assert IndexProcess(data).wait_until_ready().stop() == 0
    with closing(sqlite3.connect(data / "documents.db")) as database:
        security = database.execute("SELECT kind, name, body FROM security").fetchall()
    (data / "documents.db").unlink()
    mapping = {"properties": {"list": {"type": "nested", "properties": {"b": {"type": "long"}}}, ".": {"type": "keyword"},
                              "v": {"type": "dense_vector", "dims": 5000}, "n": {"type": "long"}}}
    documents = [
        {"list": [{"b": 1}], "n": 1}, {"list.b": 2, "n": 2}, {"n": "conflicting"}, {f"k{n}": None for n in range(12_000)},
        {"unmapped": "field", "n": 5},
    ]
    with closing(sqlite3.connect(data / "documents.db")) as database:
        database.executescript(FIRST_FORMAT)
        database.executemany("INSERT INTO security VALUES (?, ?, ?)", security)
        database.execute("INSERT INTO indices VALUES (1, ?, 'uuid', 0, '{}', ?)", (INDEX, json.dumps(mapping)))
        for n, document in enumerate(documents):
            database.execute("INSERT INTO documents VALUES (?, ?, 1, ?)", ((1 << 40) + 10 + n, str(n), json.dumps(document)))
        database.execute("INSERT INTO documents VALUES (?, '0', 7, '{\"n\":1}')", ((1 << 40) + 5,))
        database.commit()
    served = Served(data)
    for _ in range(2):
        assert [served("GET", f"_doc/{n}").json["_source"] for n in range(5)] == documents
        assert served("POST", "_count").json["count"] == 5
        assert served("GET", "_search", {"query": {"nested": {"path": "list", "query": {"term": {"list.b": 2}}}}}).ids == ["1"]
        assert served("GET", "_search", {"query": {"match": {"unmapped": "field"}}}).ids == ["4"]
        served.restart()
    # What would be refused today can be replaced: nothing of it has to be accepted again.
    bulk(served, [{"n": 1}] * 4, "")
    assert [served("GET", f"_doc/{n}").json["_source"] for n in range(4)] == [{"n": 1}] * 4
    assert served("PUT", "_doc/new", {"n": 1}).json["_seq_no"] > 14
    assert served.process.stop() == 0


# ---- what is derived


VECTOR = "semanticImageVector"


def derived(served: Served) -> list[Path]:
    return sorted((served.data / "derived").glob("*.snapshot"))


def states(served: Served) -> list[Any]:
    """Everything that depends on what is derived."""
    found: list[Any] = []
    for query in (
        {"match_all": {}}, {"match": {"t": {"query": "wrds seven", "fuzziness": "AUTO:4,6"}}}, {"term": {"n": 5}},
        {"nested": {"path": "list", "query": {"term": {"list.tag": "b"}}}}, {"term": {"t.keyword": "words of seven"}},
        {"script_score": {"query": {"exists": {"field": VECTOR}}, "script": {
            "source": f'cosineSimilarity(params.semanticVector,"{VECTOR}")+1.0', "params": {"semanticVector": [1.0, 0.0]}}}},
    ):
        answer = served("GET", "_search", {"query": query, "size": 10_000, "track_total_hits": True}).json["hits"]
        found.append((answer["total"], sorted((hit["_id"], hit["_score"], json.dumps(hit["_source"])) for hit in answer["hits"])))
    return found


def test_start_from_what_was_derived(served: Served) -> None:
    served.client("PUT", INDEX, {"mappings": {"properties": {
        VECTOR: {"type": "dense_vector", "dims": 2, "index": False},
        "list": {"type": "nested", "properties": {"tag": {"type": "keyword"}}}}}})
    names = ["one", "two", "three", "seven"]

    def document(n: int) -> Document:
        return {"t": f"words of {names[n % 4]}", "n": n % 9, "several": [1, n], "list": [{"tag": "ab"[n % 2]}, {"tag": "c"}], VECTOR: [n / 7, 1.5]}

    served.client("PUT", f"{INDEX}/_doc/first", document(1))
    bulk(served, [document(n) for n in range(4000)])
    before = states(served)
    served.restart()
    assert len(derived(served)) == 1 and "; 0 of them were read" in served.process.log.read_text()
    assert states(served) == before
    assert tool("check", "--data", served.data)[0] == 0

    # Changes after it, then a crash: documents are new, changed and gone.
    bulk(served, [document(n + 1) for n in range(500)])
    bulk(served, [document(n) for n in range(300)], "late")
    served("POST", "_delete_by_query", {"query": {"term": {"n": 3}}})
    served("DELETE", "_doc/first")
    before = states(served)
    served.process.kill()
    served.start()
    assert states(served) == before

    for spoil in ("vectors", "flip", "cut", "missing"):
        served.restart()  # what was not believed has been deleted: a stop leaves another one
        bulk(served, [document(n) for n in range(20)], spoil)
        before = states(served)
        served.process.kill()
        file = derived(served)[0]
        if spoil == "vectors":
            file = next(other for other in file.parent.iterdir() if other != file)
        content = bytearray(file.read_bytes())
        if spoil in ("flip", "vectors"):
            content[len(content) // 2] ^= 4
        if spoil == "cut":
            del content[len(content) // 3 :]
        file.unlink() if spoil == "missing" else file.write_bytes(content)
        served.start()
        assert states(served) == before, spoil


def test_copy_of_another_time_is_not_believed(served: Served, tmp_path: Path) -> None:
    bulk(served, [{"t": f"words {n}"} for n in range(2000)])
    served.process.stop()
    shutil.copy(served.data / "documents.db", tmp_path / "documents.db")
    served.start()
    bulk(served, [{"t": f"other {n}"} for n in range(1500)], "x")
    served.process.stop()
    shutil.copy(tmp_path / "documents.db", served.data / "documents.db")
    old = derived(served)
    served.start()
    assert served("POST", "_count").json["count"] == 2000
    assert len(served("GET", "_search", {"size": 3000}).ids) == 2000
    assert not old[0].exists()  # rows of later writes would make it look right again


def test_snapshot_goes_with_its_index(served: Served) -> None:
    bulk(served, [{"t": f"words {n}"} for n in range(2000)])
    served.restart()
    assert len(derived(served)) == 1
    served.client("DELETE", INDEX)
    while derived(served):
        time.sleep(0.1)


# ---- the tools


def test_tools_explain_themselves(tmp_path: Path) -> None:
    for command in ("", "check", "backup", "restore", "reset-password"):
        code, text = tool(*command.split(), "--help")
        assert code == 0 and "--data" in text
    assert tool()[0] > 100
    for command in (["check"], ["backup", "--to", tmp_path / "b"], ["reset-password"]):
        code, text = tool(*command, "--data", tmp_path / "absent")
        assert code == DATA_FOLDER and "absent" in text
    assert not (tmp_path / "absent").exists()
    (tmp_path / "empty").mkdir()
    assert tool("reset-password", "--data", tmp_path / "empty")[0] == DATA_FOLDER
    assert not list((tmp_path / "empty").iterdir())


def test_backup_while_running_and_restore(served: Served, tmp_path: Path) -> None:
    bulk(served, [{"t": f"words {n}"} for n in range(3000)])
    writing, numbers = served.process.client(), itertools.count(1)

    def write() -> None:
        n = next(numbers)
        assert writing("PUT", f"{INDEX}/_doc/w{n}", {"n": n}).status == 201

    with meanwhile(write):
        code, text = tool("backup", "--data", served.data, "--to", tmp_path / "backup")
    assert code == 0, text
    assert tool("check", "--data", tmp_path / "backup")[0] == 0
    assert tool("backup", "--data", served.data, "--to", tmp_path / "backup")[0] == DATA_FOLDER
    assert tool("restore", "--from", tmp_path / "backup", "--data", tmp_path / "restored")[0] == 0
    copy = IndexProcess(tmp_path / "restored").wait_until_ready()
    ids = {hit["_id"] for hit in copy.client()("GET", f"{INDEX}/_search", {"size": 10_000, "track_total_hits": True}).hits}
    assert {f"d{n}" for n in range(3000)} <= ids
    written = len(ids) - 3000
    assert ids == {f"d{n}" for n in range(3000)} | {f"w{n + 1}" for n in range(written)}
    assert copy.stop() == 0
    with closing(sqlite3.connect(tmp_path / "backup" / "documents.db", isolation_level=None)) as database:
        database.execute("UPDATE documents SET id = 'other' WHERE id = 'd7'")
    code, text = tool("restore", "--from", tmp_path / "backup", "--data", tmp_path / "again")
    assert code == DATA_FOLDER and "damaged" in text and not (tmp_path / "again").exists()


def test_lost_password_is_set_anew(served: Served) -> None:
    served.client("PUT", "_security/user/someone", {"password": "forgotten word", "roles": ["superuser"]})
    assert tool("reset-password", "--data", served.data)[0] == DATA_FOLDER  # in use
    old = served.process.administrator()
    assert served.process.stop() == 0
    assert tool("reset-password", "--data", served.data)[0] == 0
    code, text = tool("reset-password", "--data", served.data, "--user", "someone")
    assert code == 0
    assert tool("reset-password", "--data", served.data, "--user", "nobody")[0] == 1
    served.start()
    assert served.client("GET", "").status == 200
    assert served.process.client(*old)("GET", "").status == 401
    assert served.process.client("someone", text.split()[-1])("GET", "").status == 200
