"""Command line of the speech service."""

from __future__ import annotations

import argparse
import errno
import os
import sys
from pathlib import Path
from typing import NoReturn

DEFAULT_PORT = 5000
DEFAULT_AUDIO_HOURS = 6.0
MAX_TRANSCRIPTIONS = 8


def port_number(text: str) -> int:
    port = int(text)
    if not 0 <= port <= 65535:
        raise argparse.ArgumentTypeError(f"{text} is not a port number (0 to 65535)")
    return port


def audio_hours(text: str) -> float:
    hours = float(text)
    if not 0 < hours < float("inf"):
        raise argparse.ArgumentTypeError(f"{text} is not a number of hours above 0")
    return hours


def parse_arguments() -> argparse.Namespace:
    parser = argparse.ArgumentParser(
        prog="kestrel-speech", description="Transcribes speech for clients on this machine, over HTTP."
    )
    parser.add_argument("--port", type=port_number, default=DEFAULT_PORT, help="default %(default)s; 0: any free port")
    parser.add_argument("--ready-file", type=Path, help="file to write address and process number to, once the service is ready")
    parser.add_argument(
        "--max-audio-hours",
        type=audio_hours,
        default=DEFAULT_AUDIO_HOURS,
        help="limit of uploaded audio kept in memory, in hours of 230 MB each (default %(default)s)",
    )
    return parser.parse_args()


def fail(message: str) -> NoReturn:
    print(f"kestrel-speech: {message}", file=sys.stderr)
    raise SystemExit(1)


def run(arguments: argparse.Namespace) -> None:
    from kestrel_speech import server
    from kestrel_speech.application import Application
    from kestrel_speech.service_functions import load_routes

    try:
        listener = server.bind(arguments.port)
    except OSError as error:
        if error.errno == errno.EADDRINUSE:
            fail(f"port {arguments.port} is taken; stop the program that uses it, or choose another port with --port")
        fail(f"port {arguments.port} cannot be used: {error.strerror}")
    routes = load_routes(arguments.max_audio_hours * 3600.0, MAX_TRANSCRIPTIONS)
    try:
        # A running transcription is cancelled, so that its client still gets a response.
        cancel = routes["/stt_cancel"].function
        server.serve(Application(routes), listener, arguments.ready_file, lambda: cancel({}))
    except OSError as error:
        fail(f"the server failed: {error}")


def main() -> None:
    arguments = parse_arguments()
    try:
        run(arguments)
    except ImportError as error:
        fail(f"the Python environment is incomplete ({error}); run scripts/setup and start again")
    sys.stdout.flush()
    sys.stderr.flush()
    # A transcription may still run on a thread inside the recogniser, which crashes when the interpreter is finalised.
    os._exit(0)


main()
