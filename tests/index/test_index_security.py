"""Who may do what."""

from __future__ import annotations

import stat
from collections.abc import Iterator

import pytest

from index_process import Client, IndexProcess

NAME, PASSWORD = "reader_dbg", "correct horse"


@pytest.fixture
def limited(service: IndexProcess, client: Client) -> Iterator[Client]:
    """A user that may do everything with the indices of one suffix."""
    role = {"cluster": ["monitor"], "indices": [{"names": ["*_dbg"], "privileges": ["all"]}]}
    assert client("PUT", "_security/role/dbg_access", role).json == {"role": {"created": True}}
    user = {"password": PASSWORD, "roles": ["dbg_access"]}
    assert client("POST", f"_security/user/{NAME}", user).json == {"created": True}
    yield service.client(NAME, PASSWORD)
    assert client("DELETE", f"_security/user/{NAME}").json == {"found": True}
    assert client("DELETE", "_security/role/dbg_access").json == {"found": True}


def test_secrets_are_for_the_owner_alone(service: IndexProcess) -> None:
    for name in ("administrator.json", "private-key.pem"):
        assert stat.S_IMODE((service.data / name).stat().st_mode) == 0o600
    assert stat.S_IMODE(service.data.stat().st_mode) == 0o700
    assert service.administrator()[1].encode() not in (service.data / "documents.db").read_bytes()
    assert service.uri.startswith("https://127.0.0.1:")


@pytest.mark.parametrize(
    ("user", "password"),
    [(None, ""), ("kestrel_admin", "wrong"), ("kestrel_admin", ""), ("nobody", "x"), ("transcript_user_dbg", "Wq3ZbN8yPc2Lx6")],
)
def test_unknown_credentials(service: IndexProcess, user: str | None, password: str) -> None:
    client = service.anonymous() if user is None else service.client(user, password)
    answer = client("GET", "")
    assert (answer.status, answer.error_type) == (401, "security_exception")
    assert answer.headers["WWW-Authenticate"].startswith("Basic ")


def test_malformed_authorization(service: IndexProcess) -> None:
    for header in ("Basic", "Basic !!!", "Bearer abc", "Basic bm9jb2xvbg=="):
        assert service.anonymous()("GET", "", Authorization=header).status == 401


def test_roles_are_enforced(client: Client, limited: Client) -> None:
    client("POST", "secret_rel/_doc/1", {"word": "hidden"})
    assert limited("GET", "").status == 200
    assert limited("PUT", "open_dbg").status == 200
    assert limited("POST", "open_dbg/_doc/1", {"word": "seen"}).status == 201
    forbidden = [
        ("GET", "secret_rel", None), ("GET", "secret_rel/_doc/1", None), ("GET", "secret_rel/_search", None),
        ("POST", "secret_rel/_doc", {"a": 1}), ("POST", "secret_rel/_update/1", {"doc": {"a": 1}}),
        ("DELETE", "secret_rel/_doc/1", None), ("DELETE", "secret_rel", None), ("PUT", "new_rel", None),
        ("GET", "open_dbg,secret_rel/_search", None), ("GET", f"_security/user/{NAME}", None),
        ("PUT", f"_security/user/{NAME}", {"roles": ["superuser"]}),
    ]
    for method, path, body in forbidden:
        answer = limited(method, path, body)
        assert (answer.status, answer.error_type) == (403, "security_exception"), path
    bulk = limited("POST", "_bulk", '{"create": {"_index": "secret_rel"}}\n{"a": 1}\n').json
    assert bulk["items"][0]["create"]["status"] == 403
    assert limited("GET", "*/_search").ids == ["1"]
    assert limited("POST", "*/_delete_by_query", {"query": {"match_all": {}}}).json["deleted"] == 1
    assert client("GET", "secret_rel/_doc/1").json["_source"] == {"word": "hidden"}
    assert limited("DELETE", "open_dbg").status == 200
    client("DELETE", "secret_rel")


def test_changes_of_users_count_at_once(service: IndexProcess, client: Client, limited: Client) -> None:
    assert limited("GET", "").status == 200
    assert client("PUT", f"_security/user/{NAME}", {"password": "another one", "roles": []}).json == {"created": False}
    assert limited("GET", "").status == 401
    assert service.client(NAME, "another one")("GET", "").status == 403
    assert "password" not in client("GET", f"_security/user/{NAME}").text


def test_scrolls_belong_to_their_user(client: Client, limited: Client) -> None:
    client("POST", "mine_dbg/_doc", {"a": 1})
    scroll = client("GET", "mine_dbg/_search?scroll=1m", {"size": 1}).json["_scroll_id"]
    assert limited("POST", "_search/scroll", {"scroll_id": scroll}).status == 404
    client("DELETE", "mine_dbg")
