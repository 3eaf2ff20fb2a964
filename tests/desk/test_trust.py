"""Nobody but the browser with the token gets in, and nothing but the catalogue's media gets out."""

from __future__ import annotations

import urllib.parse
from pathlib import Path

import pytest
from app_under_test import Kestrel
from conftest import CLIPS
from desk_process import Desk

MEDIA = f"/api/clips/{CLIPS[0].id}/media"
ASKED = ["/api/projects", "/api/clips", "/api/search?phrase=bridge", "/api/jobs", "/api/events", "/api/meaning",
         "/api/transfers/1", "/api/transfers/1/file", MEDIA,
         f"/api/clips/{CLIPS[0].id}"]


def test_the_token_opens_one_session(fresh_desk: Desk) -> None:
    desk = fresh_desk
    assert len(desk.token) == 64
    assert desk.ask("POST", "/api/session", {"token": "0" * 64}).status == 401
    answer = desk.sign_in()
    assert answer.status == 204
    attributes = [part.strip() for part in answer.headers["Set-Cookie"].split(";")[1:]]
    assert {"HttpOnly", "SameSite=Strict", "Path=/"} <= set(attributes)
    assert desk.token not in desk.cookie
    assert desk.ask("GET", "/api/projects").status == 200
    again = desk.ask("POST", "/api/session", {"token": desk.token}, Cookie=None)
    assert again.status == 401 and "Set-Cookie" not in again.headers


@pytest.mark.parametrize("path", ASKED)
@pytest.mark.parametrize("cookie", ["", "kestrel_desk={}", "kestrel_desk_{}=" + "0" * 64, "kestrel_desk_{}="])
def test_nothing_is_told_without_the_cookie(desk: Desk, path: str, cookie: str) -> None:
    answer = desk.ask("GET", path, Cookie=cookie.format(desk.port) or None)
    assert answer.status == 401
    assert set(answer.json()) == {"error"}


@pytest.mark.parametrize("headers", [
    {"Host": "evil.example"},
    {"Host": "evil.example:{port}"},
    {"Host": "localhost.evil.example:{port}"},
    {"Host": "127.0.0.1"},
    {"Host": ""},
    {"Origin": "http://evil.example"},
    {"Origin": "null"},
    {"Origin": "http://127.0.0.1:1"},
    {"Origin": "https://127.0.0.1:{port}"},
    {"Sec_Fetch_Site": "cross-site"},
    {"Sec_Fetch_Site": "same-site"},
], ids=str)
def test_other_pages_and_hosts_are_refused(desk: Desk, headers: dict[str, str]) -> None:
    sent = {name: value.format(port=desk.port) for name, value in headers.items()}
    for path in ["/", "/api/projects", MEDIA]:
        assert desk.ask("GET", path, **sent).status == 403
    for path in [f"/api/clips/{CLIPS[0].id}/join", f"/api/clips/{CLIPS[0].id}/again", "/api/transfers/export", "/api/speakers/undo"]:
        assert desk.ask("POST", path, {"project": "P"}, **sent).status == 403


def test_changes_need_the_own_origin_and_json(desk: Desk) -> None:
    join = f"/api/clips/{CLIPS[0].id}/join"
    assert desk.ask("POST", join, {"project": "P"}, Origin=None).status == 403
    assert desk.ask("POST", join, b'{"project": "P"}', Content_Type="text/plain").status == 415
    assert desk.ask("POST", join, b"[]", Content_Type="application/json").status == 400
    assert desk.ask("POST", join, b'{"project": "' + b"x" * 1_100_000 + b'"}', Content_Type="application/json").status == 413
    assert "P" not in [project["project"] for project in desk.ask("GET", "/api/projects").json()["projects"]]


def test_every_answer_is_fenced_in(desk: Desk) -> None:
    for path in ["/", "/app.js", "/nothing", "/api/projects", "/api/clips/unknown", MEDIA]:
        headers = desk.ask("GET", path).headers
        policy = dict(rule.strip().split(" ", 1) for rule in headers["Content-Security-Policy"].split(";"))
        assert policy["default-src"] == "'none'" and policy["script-src"] == "'self'" and policy["frame-ancestors"] == "'none'"
        assert "unsafe" not in headers["Content-Security-Policy"]
        assert headers["X-Content-Type-Options"] == "nosniff"
        assert headers["Cross-Origin-Resource-Policy"] == "same-origin"
        assert "Access-Control-Allow-Origin" not in headers


@pytest.mark.parametrize("path", [
    "/../index/administrator.json", "/..%2f..%2fetc/passwd", "/%2e%2e/%2e%2e/etc/passwd", "//etc/passwd", "/./../app.js",
    "/api/clips/../../media", "/api/clips/..%2F..%2F..%2Fetc%2Fpasswd/media", "/api/clips/%2Fetc%2Fpasswd/media",
    "/api/clips/{path}/media", "/api/clips/{id}%00/media", "/api/clips/{id}/media/../../../etc/passwd",
    "/api/clips/{id}/preview/media", "/pages/../app.js", "/%zz",
])
def test_no_path_leads_to_a_file(desk: Desk, kestrel: Kestrel, path: str) -> None:
    secret = urllib.parse.quote(str(kestrel.home / "credentials.key"), safe="")
    answer = desk.ask("GET", path.format(path=secret, id=CLIPS[0].id))
    assert answer.status in (400, 404)
    assert set(answer.json()) == {"error"}


@pytest.mark.parametrize(("asked", "status", "part"), [
    (None, 200, slice(None)),
    ("bytes=0-0", 206, slice(0, 1)),
    ("bytes=100-199", 206, slice(100, 200)),
    ("bytes=900000-", 206, slice(900000, None)),
    ("bytes=-500", 206, slice(-500, None)),
    ("bytes=0-99999999999", 206, slice(None)),
    ("bytes=-99999999999", 206, slice(None)),
    ("bytes=99999999999-", 416, None),
    ("bytes=-0", 416, None),
    ("bytes=5-2", 200, slice(None)),
    ("bytes=0-1,5-6", 200, slice(None)),
    ("bytes=a-b", 200, slice(None)),
    ("bytes=18446744073709551616-", 200, slice(None)),
    ("lines=1-2", 200, slice(None)),
])
def test_media_in_byte_ranges(desk: Desk, asked: str | None, status: int, part: slice | None) -> None:
    whole = Path(str(CLIPS[0].path)).read_bytes()
    answer = desk.ask("GET", MEDIA, Range=asked)
    assert answer.status == status
    if part is None:
        assert answer.headers["Content-Range"] == f"bytes */{len(whole)}"
        return
    assert answer.body == whole[part]
    assert answer.headers["Content-Type"] == "audio/wav"
    if status == 206:
        begin, end, _ = part.indices(len(whole))
        assert answer.headers["Content-Range"] == f"bytes {begin}-{end - 1}/{len(whole)}"
        assert desk.ask("GET", MEDIA, Range=asked, If_Range='"another"').status == 200


def test_media_that_is_gone_is_said_to_be(desk: Desk, kestrel: Kestrel, tmp_path: Path) -> None:
    (tmp_path / "short-lived.wav").write_bytes(b"RIFF")
    from stored_clips import Line, StoredClip, put
    clip = StoredClip("short-lived.wav", "Gone", [Line("Soon gone.", 0)], tmp_path / "short-lived.wav")
    put(kestrel, clip)
    (tmp_path / "short-lived.wav").unlink()
    answer = desk.ask("GET", f"/api/clips/{clip.id}/media")
    assert answer.status == 404 and str(tmp_path) in answer.json()["error"]
    kestrel.good("delete", clip.id, "--everywhere", "--yes")


@pytest.mark.parametrize("name", ["../escaped.wav", "/etc/escaped.wav", "..", ".", "", "a/b.wav", "..\\..%2fx/../y"])
def test_uploads_stay_in_their_folder(desk: Desk, kestrel: Kestrel, name: str) -> None:
    query = urllib.parse.urlencode({"name": name, "project": "P", "language": "en"})
    for path in ("uploads", "transfers"):
        assert desk.ask("POST", f"/api/{path}?{query}", b"data", Content_Type="audio/wav").status == 400
    assert not list(kestrel.home.rglob("*escaped*"))


@pytest.mark.parametrize(("method", "path"), [("POST", "/"), ("PUT", "/api/projects"), ("TRACE", "/api/projects"),
                                              ("OPTIONS", "/api/projects")])
def test_other_methods_are_refused(desk: Desk, method: str, path: str) -> None:
    assert desk.ask(method, path).status in (403, 405)
