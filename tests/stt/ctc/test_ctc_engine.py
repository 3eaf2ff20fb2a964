"""The CTC engine against an independent computation, and with tables and models that are not as they should be."""

from __future__ import annotations

import json
import os
import shutil
import subprocess
import sys
import wave
from pathlib import Path
from typing import Any

import numpy as np
import onnx
import pytest
from onnx import TensorProto, helper

ROOT = Path(__file__).resolve().parents[3]
BIN = Path(os.environ.get("KESTREL_BUILD_BIN", ROOT / "build" / "bin"))
DEPS = Path(os.environ.get("KESTREL_DEPS_DIR", ROOT / ".deps"))
sys.path[:0] = [str(ROOT / "models"), str(ROOT / "oracles")]

import tone_model
from ctc_oracle import Oracle, Transcript

Outcome = dict[str, Any]

# Chunk, overlap, chunks in a batch. The second's sizes are rounded up to those of the first; in the fourth, the two
# overlaps of a chunk overlap each other.
SIZES = [(1280, 320, 2), (1000, 300, 3), (6400, 960, 1), (1920, 1280, 2), (16000, 3200, 4)]


@pytest.fixture(scope="module")
def models(tmp_path_factory: pytest.TempPathFactory) -> Path:
    folder = tmp_path_factory.mktemp("models")
    tone_model.write_folder(folder)
    return folder


def run(models: Path | None, *steps: str, host: Path = BIN / "kestrel_stt_ctc_host", debug: Path | None = None) -> list[Outcome]:
    environment = {key: value for key, value in os.environ.items() if not key.startswith("KESTREL_")}
    if models:
        environment["KESTREL_MODEL_DIR"] = str(models)
    if debug:
        environment["KESTREL_DEBUG_DIR"] = str(debug)
    process = subprocess.run([str(host)], input="\n".join(steps) + "\n", env=environment, capture_output=True, text=True,
                             timeout=280)
    assert process.returncode == 0, process.stderr
    outcomes = [json.loads(line) for line in process.stdout.splitlines()]
    assert len(outcomes) == len(steps), process.stdout
    return outcomes


def transcript(outcome: Outcome) -> Transcript:
    """What the engine answered, less what the lists held before."""
    assert outcome["code"] == 0, outcome
    assert outcome["starts"][0] == outcome["ends"][0] == -1
    return Transcript(outcome["text"], outcome["starts"][1:], outcome["ends"][1:])


def write(path: Path, samples: Any) -> Path:
    path.write_bytes(samples.tobytes())
    return path


def words(language: str, spelling: str, frames: int = 4) -> Any:
    """Tones that spell words; each letter and each silence is `frames` long."""
    tokens = tone_model.LANGUAGES[language]
    numbers = [0 if letter == "_" else tokens.index(letter) for letter in spelling]
    return np.concatenate([tone_model.tone(number, frames * 320) for number in numbers])


def test_tones_become_the_words_that_they_spell(models: Path, tmp_path: Path) -> None:
    # Letters of 80 ms. A frame sees 40 ms, and so hears a letter behind a silence one frame before it begins.
    spaced = write(tmp_path / "spaced.raw", words("Tones", "_abc_|__de|f_f"))
    arabic = write(tmp_path / "arabic.raw", words("Arabic", "ابت_/_ث"))
    outcomes = run(models, "engine|16000|3200|2", "language|Tones", f"feed|{spaced}", "finalize|0", "language|Arabic",
                   f"feed|{arabic}", "finalize|0", "languages", "language|tones")
    assert transcript(outcomes[3]) == Transcript("abc de ff", [60, 620, 860], [320, 800])
    assert transcript(outcomes[6]) == Transcript("ابت ث", [0, 460], [240])
    assert outcomes[7]["languages"] == ["before", "Arabic", "Tones"]
    assert outcomes[7]["language"] == "Arabic"
    assert outcomes[8]["code"] == 1, "names of languages are case-sensitive"


def boundary_lengths(chunk: int, overlap: int, batch: int) -> list[int]:
    stride = chunk - overlap
    edges = [0, 320, overlap, chunk, chunk + stride, chunk + (batch - 1) * stride, chunk + batch * stride,
             chunk + 2 * batch * stride]
    return sorted({edge + off for edge in edges for off in (-321, -320, -1, 0, 1, 320, 321) if edge + off >= 0})


@pytest.mark.parametrize("chunk, overlap, batch", SIZES)
def test_every_boundary_equals_the_independent_computation(chunk: int, overlap: int, batch: int, models: Path,
                                                           tmp_path: Path) -> None:
    oracle = Oracle(models, "Tones")
    randomness = np.random.default_rng(chunk)
    steps = [f"engine|{chunk}|{overlap}|{batch}", "language|Tones"]
    expected = []
    for number, length in enumerate(boundary_lengths(chunk, overlap, batch)):
        samples = randomness.normal(0, 3000, length).astype(np.int16)
        padding = (0, 1, 320, overlap)[number % 4]
        path = write(tmp_path / f"{length}.raw", samples)
        steps += [f"feed|{path}|{(length or 1, 1000, 77)[number % 3]}", f"finalize|{padding}"]
        expected.append((length, padding, oracle.transcribe(samples, chunk, overlap, batch, padding)))
    finalized = [outcome for outcome in run(models, *steps) if outcome["step"] == "finalize"]
    assert max(len(each.text) for _, _, each in expected) > 3
    for outcome, (length, padding, wanted) in zip(finalized, expected, strict=True):
        assert transcript(outcome) == wanted, (length, padding)


@pytest.mark.parametrize("language", ["Tones", "Arabic"])
def test_signals_of_all_kinds_and_a_change_of_language_between_clips(language: str, models: Path,
                                                                     tmp_path: Path) -> None:
    length = 3 * 16000 + 123
    signals = {
        "silence": np.zeros(length, np.int16),
        "constant": np.full(length, 1234, np.int16),
        "full scale": np.where(np.arange(length) // 40 % 2, 32767, -32768).astype(np.int16),
        "tone then silence": np.concatenate([tone_model.tone(5, 20000), np.zeros(length - 20000, np.int16)]),
        "noise": np.random.default_rng(1).integers(-32768, 32767, length).astype(np.int16),
    }
    other = "Arabic" if language == "Tones" else "Tones"
    steps = ["engine|6400|960|2"]
    for name, samples in signals.items():
        file = write(tmp_path / name, samples)
        scaled = write(tmp_path / f"{name} scaled", samples.astype(np.float32) / 32768)
        steps += [f"language|{other}", f"language|{language}", f"feed|{file}|5000", "finalize|0", "copy",
                  f"feed-float|{scaled}", "finalize|0"]
    finalized = [outcome for outcome in run(models, *steps) if outcome["step"] == "finalize"]
    oracle = Oracle(models, language)
    for number, (name, samples) in enumerate(signals.items()):
        of_integers, of_floats = finalized[2 * number : 2 * number + 2]
        assert transcript(of_integers) == oracle.transcribe(samples, 6400, 960, 2, 0), name
        assert transcript(of_floats) == oracle.transcribe(samples.astype(np.float32) / 32768, 6400, 960, 2, 0), name


def test_recorded_english_equals_the_independent_computation() -> None:
    oracle = Oracle(DEPS / "models", "English (phonemes)")
    for name, sizes in {"librivox_1": (48000, 6400, 2), "english_short": (160000, 3200, 2)}.items():
        with wave.open(str(DEPS / "speech" / f"{name}.wav")) as recording:
            samples = np.frombuffer(recording.readframes(recording.getnframes()), np.int16)
        raw = write(BIN.parent / f"{name}.ctc.raw", samples)
        chunk, overlap, batch = sizes
        *_, finalized = run(DEPS / "models", f"engine|{chunk}|{overlap}|{batch}", "language|English (phonemes)",
                            f"feed|{raw}|16000", "finalize|0")
        raw.unlink()
        heard = transcript(finalized)
        assert len(heard.text.split()) > 15
        assert heard == oracle.transcribe(samples, chunk, overlap, batch, 0)


def test_the_self_test_passes_for_all_sizes(models: Path) -> None:
    steps = [step for chunk, overlap, batch in [*SIZES, (160000, 3200, 4)]
             for step in (f"engine|{chunk}|{overlap}|{batch}", "self-test")]
    assert all(outcome["code"] == 0 for outcome in run(models, *steps))


@pytest.mark.parametrize("sizes", ["0|320|2", "640|640|2", "640|0|2", "640|320|0", "18446744073709551615|320|1",
                                   "640|320|18446744073709551615", "2147483000|320|9999999999"])
def test_impossible_sizes_are_refused(sizes: str, models: Path) -> None:
    outcome, = run(models, f"engine|{sizes}")
    chunk, overlap, batch = sizes.split("|")
    assert f"chunks of {chunk} samples with an overlap of {overlap}, {batch} at once: " in outcome["raised"]


def test_without_a_language_audio_is_refused_and_forgotten(models: Path, tmp_path: Path) -> None:
    long, short = (write(tmp_path / f"{size}", words("Tones", "a" * size)) for size in (20, 1))
    outcomes = run(models, "engine|1280|320|2", "finalize|0", f"feed|{long}", "finalize|0", f"feed|{short}",
                   "finalize|0", "language|Tones", f"feed|{short}", "finalize|0")
    assert [outcome["code"] for outcome in outcomes] == [0, 0, 1, 0, 0, 1, 0, 0, 0]
    assert transcript(outcomes[8]).text == "a"


def test_debug_files_are_written(models: Path, tmp_path: Path) -> None:
    samples = write(tmp_path / "samples.raw", words("Tones", "ab|c"))
    debug = tmp_path / "debug"
    run(models, "engine|1280|320|2", "language|Tones", f"feed|{samples}|99999|debug", "finalize|0|debug", debug=debug)
    assert (debug / "KsNNCtcWordTimes.txt").read_text() == "0, 140\n220, No End Time\n"
    assert (debug / "KsNNCtcChunk-0.raw").stat().st_size == 1280 * 4
    assert len((debug / "KsNNCtcFrameTokens.txt").read_text().splitlines()) == 15
    assert {"KsNNCtcCondensed.txt", "KsNNCtcBeforeStandardising.raw", "KsNNCtcAfterStandardising.raw"} <= {
        path.name for path in debug.iterdir()}


def test_without_a_setting_the_models_lie_beside_the_host(models: Path, tmp_path: Path) -> None:
    host = tmp_path / "host"
    shutil.copy2(BIN / "kestrel_stt_ctc_host", host)
    (tmp_path / "libkestrelml.so").symlink_to(BIN / "libkestrelml.so")
    missing, = run(None, "engine|1280|320|2", host=host)
    assert str(tmp_path / "models" / "wav2vec2" / "Languages.json") in missing["raised"]
    (tmp_path / "models").symlink_to(models)
    assert [outcome["code"] for outcome in run(None, "engine|1280|320|2", "language|Tones", host=host)] == [0, 0]


@pytest.mark.parametrize("table, reason", [
    ("", "holds no JSON object"),
    ("[1, 2]", "holds no JSON object"),
    ('{"Tones": {"onnxModel": "tones.onnx"', "holds no JSON object"),
    ('{"Tones": "tones.onnx"}', 'the settings of "Tones" are no object'),
])
def test_bad_tables_are_named_with_what_is_wrong(table: str, reason: str, tmp_path: Path) -> None:
    file = tmp_path / "wav2vec2" / "Languages.json"
    file.parent.mkdir()
    file.write_text(table)
    outcome, = run(tmp_path, "engine|1280|320|2")
    assert str(file) in outcome["raised"]
    assert reason in outcome["raised"]


GOOD = {"<pad>": 0, "<unk>": 1, "|": 2, "a": 3}


@pytest.mark.parametrize("vocabulary, reason", [
    ({token: number for token, number in GOOD.items() if token != "<unk>"} | {"b": 1}, 'it has no token "<unk>"'),
    ({**{token: number for token, number in GOOD.items() if token != "|"}, "/": 2}, 'it has no token "|"'),
    (GOOD | {"b": 3}, "have the same number, 3"),
    (GOOD | {"b": 9}, 'the token "b" has the number 9, which is not below the number of tokens, 5'),
    (GOOD | {"b": -1}, 'the token "b" has the number -1'),
    (GOOD | {"b": "x"}, "cannot be used"),
    (GOOD | {"b": 2**40}, "cannot be used"),
    ([1], "holds no JSON object"),
    (None, "cannot be used"),
])
def test_bad_vocabularies_leave_the_language_as_it_was(vocabulary: Any, reason: str, models: Path,
                                                       tmp_path: Path) -> None:
    broken = tmp_path / "models"
    shutil.copytree(models, broken)
    table = json.loads((broken / "wav2vec2" / "Languages.json").read_text())
    table["Broken"] = {"onnxModel": "tones.onnx", "vocab": "broken.json"}
    table["Unset"] = {"onnxModel": "tones.onnx"}
    (broken / "wav2vec2" / "Languages.json").write_text(json.dumps(table))
    if vocabulary is not None:
        (broken / "wav2vec2" / "broken.json").write_text(json.dumps(vocabulary))
    samples = write(tmp_path / "samples.raw", words("Tones", "abc"))
    outcomes = run(broken, "engine|1280|320|2", "language|Tones", "language|Broken", "language|Broken",
                   "language|Unset", f"feed|{samples}", "finalize|0")
    for outcome in outcomes[2:4]:
        assert str(broken / "wav2vec2" / "broken.json") in outcome["raised"]
        assert reason in outcome["raised"]
    assert outcomes[4]["raised"] == 'the language table has no setting "vocab" for "Unset"'
    assert transcript(outcomes[6]).text == "abc"


def shaped_model(kind: int, shape: list[int | str], output: str) -> onnx.ModelProto:
    """A model that returns its input, in another type and shape."""
    nodes = [helper.make_node("Cast", ["samples"], ["cast"], to=kind),
             helper.make_node("Reshape", ["cast", "shape"], [output])]
    graph = helper.make_graph(nodes, "shaped", [helper.make_tensor_value_info("samples", TensorProto.FLOAT, [1, "n"])],
                              [helper.make_tensor_value_info(output, kind, None)],
                              [helper.make_tensor("shape", TensorProto.INT64, [len(shape)], shape)])
    return helper.make_model(graph, opset_imports=[helper.make_opsetid("", 18)], ir_version=8)


@pytest.mark.parametrize("name, model", {
    "rank": shaped_model(TensorProto.FLOAT, [1, -1], "scores"),
    "rows": shaped_model(TensorProto.FLOAT, [1, -1, 13], "scores"),
    "tokens": shaped_model(TensorProto.FLOAT, [1, 3, -1], "scores"),
    "type": shaped_model(TensorProto.DOUBLE, [1, 3, -1], "scores"),
}.items())
def test_models_of_another_shape_raise_the_runtimes_message(name: str, model: onnx.ModelProto, models: Path,
                                                            tmp_path: Path) -> None:
    broken = tmp_path / "models"
    shutil.copytree(models, broken)
    onnx.save(model, broken / "wav2vec2" / "arabic.onnx")
    samples = write(tmp_path / "samples.raw", words("Arabic", "ابت"))
    outcomes = run(broken, "engine|1280|320|2", "language|Arabic", f"feed|{samples}", "finalize|0", "language|Tones",
                   f"feed|{samples}", "finalize|0")
    assert outcomes[1]["code"] == 0
    assert outcomes[2]["raised"], name
    assert outcomes[6]["code"] == 0


@pytest.mark.parametrize("kept", [0, 10, 1000, -1])
def test_truncated_models_raise_the_runtimes_message(kept: int, models: Path, tmp_path: Path) -> None:
    broken = tmp_path / "models"
    shutil.copytree(models, broken)
    whole = (models / "wav2vec2" / "tones.onnx").read_bytes()
    (broken / "wav2vec2" / "tones.onnx").write_bytes(whole[:kept])
    (broken / "wav2vec2" / "arabic.onnx").unlink()
    outcomes = run(broken, "engine|1280|320|2", "language|Tones", "language|Arabic", "languages")
    assert outcomes[1]["raised"] and outcomes[2]["raised"]
    assert outcomes[3]["language"] == "None"
