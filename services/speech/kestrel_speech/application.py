"""The WSGI application: which requests are accepted, and how a function's result becomes a response."""

from __future__ import annotations

import json
import sys
import traceback
from collections.abc import Iterable, Mapping
from http import HTTPStatus
from typing import TYPE_CHECKING, Any
from urllib.parse import urlsplit

from kestrel_speech.limits import LimitExceeded
from kestrel_speech.service_functions import Route

if TYPE_CHECKING:
    from _typeshed.wsgi import StartResponse, WSGIEnvironment

LOOPBACK_NAMES = ("127.0.0.1", "localhost", "::1")


class RequestRefused(Exception):
    """The request is invalid; the response has this status."""

    def __init__(self, status: HTTPStatus, error: str, headers: Iterable[tuple[str, str]] = ()) -> None:
        super().__init__(error)
        self.status = status
        self.headers = list(headers)


class Application:
    """Responds to every request with a JSON object.

    When a function fails, the status is still 200, with "success" false and an "error": clients read the error text
    only from successful responses.
    """

    def __init__(self, routes: Mapping[str, Route]) -> None:
        self.routes = routes

    def __call__(self, environ: WSGIEnvironment, start_response: StartResponse) -> Iterable[bytes]:
        status, headers = HTTPStatus.OK, []
        try:
            refuse_web_pages(environ)
            route = self.find_route(environ)
            body = call(route, read_params(environ) if route.has_body else {})
        except RequestRefused as refused:
            status, headers, body = refused.status, refused.headers, failure(str(refused))
        headers += [("Content-Type", "application/json"), ("Content-Length", str(len(body)))]
        start_response(f"{status.value} {status.phrase}", headers)
        return [body]

    def find_route(self, environ: WSGIEnvironment) -> Route:
        path, method = environ["PATH_INFO"], environ["REQUEST_METHOD"]
        route = self.routes.get(path)
        if route is None:
            raise RequestRefused(HTTPStatus.NOT_FOUND, f"unknown path '{path}'")
        if route.method != method:
            error = f"'{path}' requires {route.method}; the request used {method}"
            raise RequestRefused(HTTPStatus.METHOD_NOT_ALLOWED, error, [("Allow", route.method)])
        return route


def refuse_web_pages(environ: WSGIEnvironment) -> None:
    """A browser sends the page's origin, or at least the host name that the page used, with every request that a page
    can trigger; clients of this service are programs and send neither."""
    if "HTTP_ORIGIN" in environ:
        raise RequestRefused(HTTPStatus.FORBIDDEN, "requests from web pages are not accepted")
    host = environ.get("HTTP_HOST", "")
    try:
        name = urlsplit("//" + host).hostname
    except ValueError:
        name = None
    if name not in LOOPBACK_NAMES:
        raise RequestRefused(HTTPStatus.FORBIDDEN, f"'{host}' is not a loopback host name")


def read_params(environ: WSGIEnvironment) -> dict[str, Any]:
    """The request's JSON object."""
    content_type = environ.get("CONTENT_TYPE", "")
    if content_type.partition(";")[0].strip().lower() != "application/json":
        error = f"the content type must be application/json, not '{content_type}'"
        raise RequestRefused(HTTPStatus.UNSUPPORTED_MEDIA_TYPE, error)
    try:
        params = json.loads(environ["wsgi.input"].read())
    except (ValueError, RecursionError) as error:
        raise RequestRefused(HTTPStatus.BAD_REQUEST, f"the body is not valid JSON: {error}") from None
    if not isinstance(params, dict):
        raise RequestRefused(HTTPStatus.BAD_REQUEST, "the body must be a JSON object")
    return params


def call(route: Route, params: dict[str, Any]) -> bytes:
    """The function's result, or its error, as JSON text."""
    try:
        return json.dumps(route.function(params), allow_nan=False).encode()
    except LimitExceeded as error:
        return failure(str(error))
    except KeyError as error:
        if error.args and error.args[0] not in params:
            return failure(f"{error.args[0]} parameter is missing")
        traceback.print_exc(file=sys.stderr)
        return failure(f"not found: {error}")
    except Exception as error:
        traceback.print_exc(file=sys.stderr)
        return failure(str(error) or type(error).__name__)


def failure(error: str) -> bytes:
    return json.dumps({"success": False, "error": error}).encode()
