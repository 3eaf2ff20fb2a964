"""A mounted folder whose one file stops answering, as a network drive does when its server has gone.

The few messages of the kernel's FUSE protocol (linux/fuse.h) that it takes are spoken here, so that no package is needed;
to mount takes an administrator.
"""

from __future__ import annotations

import ctypes
import errno
import os
import select
import stat
import struct
import threading
from collections.abc import Iterator
from contextlib import contextmanager
from pathlib import Path
from typing import NamedTuple

import pytest

LOOKUP, FORGET, GETATTR, OPEN, READ, INIT, BATCH_FORGET = 1, 2, 3, 14, 15, 26, 42
ROOT, FILE = 1, 2
NAME = "clip.wav"
SIZE = 1 << 20
MNT_FORCE, MNT_DETACH = 1, 2

_libc = ctypes.CDLL(None, use_errno=True)


class StalledFile(NamedTuple):
    path: Path
    is_waited_for: threading.Event


@contextmanager
def stalled_file(folder: Path, at: int) -> Iterator[StalledFile]:
    """A file for which requests of one kind (LOOKUP or READ) are never answered; skips the test where none can be made."""
    try:
        device = os.open("/dev/fuse", os.O_RDWR)
    except OSError as error:
        pytest.skip(f"no drive can be mounted here: {error}")
    options = f"fd={device},rootmode=40000,user_id={os.getuid()},group_id={os.getgid()}"
    if _libc.mount(b"stalled", os.fsencode(folder), b"fuse", 0, options.encode()) != 0:
        reason = os.strerror(ctypes.get_errno())
        os.close(device)
        pytest.skip(f"no drive can be mounted here: {reason}")
    file = StalledFile(folder / NAME, threading.Event())
    server = threading.Thread(target=_serve, args=(device, at, file.is_waited_for), daemon=True)
    server.start()
    try:
        yield file
    finally:
        _libc.umount2(os.fsencode(folder), MNT_FORCE | MNT_DETACH)
        server.join()
        os.close(device)


def _serve(device: int, silent_at: int, is_waited_for: threading.Event) -> None:
    try:
        while True:
            request = os.read(device, 1 << 17)
            _length, kind, unique, node = struct.unpack_from("<IIQQ", request)
            if kind == silent_at:
                is_waited_for.set()
            elif kind not in (FORGET, BATCH_FORGET):
                body = _answer(kind, node)
                error = 0 if body else -errno.ENOSYS
                os.write(device, struct.pack("<IiQ", 16 + len(body), error, unique) + body)
            if kind == INIT and silent_at == LOOKUP:
                # Left where it is: the kernel lets a process end that waits for this only while nobody has taken it.
                waiting = select.poll()
                waiting.register(device, select.POLLIN)
                if any(event & select.POLLIN for _, event in waiting.poll()):
                    is_waited_for.set()
                return
    except OSError:
        pass  # unmounted


def _answer(kind: int, node: int) -> bytes:
    if kind == INIT:
        return struct.pack("<IIIIHHIIHH32x", 7, 31, 1 << 16, 1, 12, 9, 1 << 16, 1, 1, 0)
    if kind == LOOKUP:
        return struct.pack("<QQQQII", FILE, 0, 3600, 3600, 0, 0) + _attributes(FILE)
    if kind == GETATTR:
        return struct.pack("<QII", 3600, 0, 0) + _attributes(node)
    if kind == OPEN:
        return struct.pack("<QII", 1, 0, 0)
    return b""


def _attributes(node: int) -> bytes:
    mode = stat.S_IFDIR | 0o755 if node == ROOT else stat.S_IFREG | 0o644
    return struct.pack("<QQQQQQIIIIIIIIII", node, SIZE, SIZE // 512, 0, 0, 0, 0, 0, 0, mode, 1, os.getuid(), os.getgid(), 0,
                       4096, 0)
