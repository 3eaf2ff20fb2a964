"""Reads the tensors of a torch checkpoint (the zip form) with numpy alone, running no code that the file names."""

from __future__ import annotations

import collections
import io
import pickle
import zipfile
from collections.abc import Callable
from dataclasses import dataclass
from typing import Any

import numpy as np
import numpy.typing as npt

Array = npt.NDArray[Any]

_DTYPES: dict[str, Any] = {
    "FloatStorage": np.float32, "DoubleStorage": np.float64, "HalfStorage": np.float16,
    "LongStorage": np.int64, "IntStorage": np.int32, "ByteStorage": np.uint8, "BoolStorage": np.bool_,
}


@dataclass(frozen=True)
class _StorageType:
    dtype: Any


class _Inert:
    """Stands for every object that is neither a tensor nor a dictionary."""

    def __init__(self, *_args: object, **_options: object) -> None: ...

    def __setstate__(self, _state: object) -> None: ...


def _tensor(storage: Array, offset: int, shape: tuple[int, ...], stride: tuple[int, ...], *_rest: object) -> Array:
    steps = [step * storage.itemsize for step in stride]
    view: Array = np.lib.stride_tricks.as_strided(storage[offset:], shape, steps)
    return np.array(view)


class _Unpickler(pickle.Unpickler):
    def __init__(self, data: bytes, storage_of: Callable[[str, Any], Array]) -> None:
        super().__init__(io.BytesIO(data))
        self._storage_of = storage_of

    def find_class(self, module: str, name: str) -> Any:
        if module == "torch._utils" and name.startswith("_rebuild_tensor"):
            return _tensor
        if module == "torch._utils" and name == "_rebuild_parameter":
            return lambda tensor, *_rest: tensor
        if module in ("torch", "torch.storage") and name in _DTYPES:
            return _StorageType(_DTYPES[name])
        if (module, name) == ("collections", "OrderedDict"):
            return collections.OrderedDict
        return _Inert

    def persistent_load(self, pid: Any) -> Array:
        _, storage_type, key = pid[:3]
        storage: Array = self._storage_of(key, storage_type.dtype)
        return storage


def load(data: bytes) -> dict[str, Array]:
    """The checkpoint's tensors by name."""
    with zipfile.ZipFile(io.BytesIO(data)) as archive:
        pickled = next(name for name in archive.namelist() if name.endswith("data.pkl"))
        root = pickled[: -len("data.pkl")]

        def storage_of(key: str, dtype: Any) -> Array:
            return np.frombuffer(archive.read(f"{root}data/{key}"), dtype)

        tensors: dict[str, Array] = _Unpickler(archive.read(pickled), storage_of).load()
    return tensors
