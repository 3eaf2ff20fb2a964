"""A graph under construction: nodes and constants with names of their own."""

from __future__ import annotations

from collections.abc import Sequence
from typing import Any

import numpy as np
import onnx
from onnx import helper, numpy_helper


class Graph:
    """Every operation returns the name of its output, to be used as an input of later ones."""

    def __init__(self) -> None:
        self._nodes: list[onnx.NodeProto] = []
        self._constants: list[onnx.TensorProto] = []

    def op(self, kind: str, *inputs: str, output: str | None = None, **attributes: Any) -> str:
        name = output or f"{kind}_{len(self._nodes)}"
        self._nodes.append(helper.make_node(kind, list(inputs), [name], **attributes))
        return name

    def ops(self, kind: str, outputs: int, *inputs: str, **attributes: Any) -> tuple[str, ...]:
        """An operation with several outputs."""
        names = tuple(f"{kind}_{len(self._nodes)}_{part}" for part in range(outputs))
        self._nodes.append(helper.make_node(kind, list(inputs), list(names), **attributes))
        return names

    def constant(self, value: Any, dtype: Any = np.float32) -> str:
        name = f"constant_{len(self._constants)}"
        array = np.ascontiguousarray(value, dtype).reshape(np.shape(value))  # contiguous scalars come as vectors
        self._constants.append(numpy_helper.from_array(array, name))
        return name

    def integers(self, *values: int) -> str:
        return self.constant(np.array(values), np.int64)

    def model(self, name: str, inputs: Sequence[onnx.ValueInfoProto], outputs: Sequence[onnx.ValueInfoProto],
              *, custom_ops: bool = False) -> onnx.ModelProto:
        """@param custom_ops: the graph uses operators of the runtime's extension library."""
        domains = [helper.make_opsetid("", 18)]
        if custom_ops:
            domains.append(helper.make_opsetid("ai.onnx.contrib", 1))
        graph = helper.make_graph(self._nodes, name, inputs, outputs, self._constants)
        return helper.make_model(graph, opset_imports=domains, ir_version=8)
