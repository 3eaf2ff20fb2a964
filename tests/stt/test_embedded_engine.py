"""The in-process engine in its hosts. Each scenario is a separate process: an interpreter starts only once."""

from __future__ import annotations

import json
import shutil
import subprocess
from collections.abc import Callable
from pathlib import Path

import pytest
from speech_hosts import BIN, MODELS, Host, Outcome


def private_host(folder: Path, modules: list[Path], library: Path = BIN / "libkestrelml.so") -> Path:
    """A host executable in its own folder, whose PythonModules holds the given entries only."""
    executable = folder / "bin" / "host"
    (executable.parent / "PythonModules").mkdir(parents=True)
    shutil.copy2(BIN / "kestrel_stt_linked_host", executable)
    (executable.parent / library.name).symlink_to(library)
    (executable.parent / SCENARIO.name).symlink_to(SCENARIO)
    for entry in modules:
        (executable.parent / "PythonModules" / entry.name).symlink_to(entry.resolve())
    return executable


SCENARIO = BIN / "libkestrel_stt_scenario.so"
WITHOUT_PYTHON = BIN.parent / "without-python" / "libkestrelml.so"


def all_modules() -> list[Path]:
    return sorted((BIN / "PythonModules").iterdir())


def transcribe(samples: Path) -> list[str]:
    return [f"upload|{samples}|clip|project", "finalize|clip|project|en"]


def spoken(outcome: Outcome) -> str:
    return " ".join(segment["transcript"] for segment in outcome["segments"]).lower()


WRITE_FOREIGN_IMPORTS = """python|
import sys, os
own = sys.path[0]
files = [getattr(m, '__file__', None) or '' for m in list(sys.modules.values())]
foreign = [f for f in files if os.path.isabs(f) and not f.startswith(own)]
with open({report!r}, 'w') as report:
    print(sys.path, file=report)
    print(foreign, file=report)
"""


def test_a_clip_becomes_a_transcript(host: Host, samples: Path) -> None:
    early, uploaded, finalized, set_model_dir = host.run("early-load", *transcribe(samples), "set-model-dir|/elsewhere")
    assert early["code"] == 0
    assert uploaded["code"] == 0
    assert finalized["code"] == 0, finalized["error"] + host.log()
    assert finalized["model"].startswith("faster-whisper")
    assert len(spoken(finalized).split()) > 5
    for segment in finalized["segments"]:
        assert segment["starts"] == sorted(segment["starts"])
        assert len(segment["starts"]) == len(segment["ends"]) >= len(segment["transcript"].split())
    assert set_model_dir["code"] == 0


@pytest.mark.parametrize("executable", ["kestrel_stt_linked_host", "kestrel_stt_loading_host"])
def test_nothing_outside_the_tree_is_imported(executable: str, tmp_path: Path, samples: Path) -> None:
    hostile = tmp_path / "hostile"
    hostile.mkdir()
    for name in ["json", "numpy", "encodings", "sitecustomize", "usercustomize", "FasterWhisperTranscriber"]:
        (hostile / f"{name}.py").write_text("raise SystemExit('imported from elsewhere')")
    link = tmp_path / "link"
    link.symlink_to(BIN / executable)
    report = tmp_path / "report.txt"
    python = WRITE_FOREIGN_IMPORTS.format(report=str(report))
    _, finalized, reported = Host(tmp_path, link).run(
        *transcribe(samples), python, cwd=hostile,
        environment={"PYTHONPATH": str(hostile), "PYTHONHOME": str(hostile), "PYTHONUSERBASE": str(hostile)})
    assert finalized["code"] == 0, finalized["error"]
    assert reported["code"] == 0
    search_path, foreign = report.read_text().splitlines()
    assert search_path == str([str(BIN.resolve() / "PythonModules")])
    assert foreign == "[]"


def test_cancel_and_progress_last_until_a_clip_begins(host: Host, samples: Path) -> None:
    outcomes = host.run("cancel", f"upload|{samples}|clip|project|16000", "finalize|clip|project|en",
                        f"upload|{samples}|clip|project", "progress", "finalize|clip|project|en", "progress",
                        f"upload|{samples}|clip|project|16000", "progress")
    assert "cancelled" in outcomes[2]["error"], "a chunk that is not the first leaves the request alone"
    assert outcomes[4]["progress"] == 0
    assert outcomes[5]["code"] == 0, "the first chunk clears the request"
    assert outcomes[6]["progress"] == outcomes[8]["progress"] == 1


def test_shutdown_and_new_engines_many_times(host: Host, samples: Path) -> None:
    rounds = ["shutdown", "engine", "set-model-dir|", "cancel", "progress"] * 20
    *outcomes, finalized = host.run(*rounds, *transcribe(samples))
    assert all(outcome["code"] == 0 for outcome in outcomes)
    assert finalized["code"] == 0
    assert len(spoken(finalized).split()) > 5


def test_without_project_the_language_is_guessed(host: Host, samples: Path) -> None:
    _, transcribed, unknown = host.run(f"upload|{samples}|clip|", "transcribe|clip", "transcribe|clip")
    assert transcribed["code"] == 0
    assert len(transcribed["text"].split()) > 5
    assert unknown["code"] == 1


def test_module_errors_become_reports_and_the_host_goes_on(host: Host, samples: Path, tmp_path: Path) -> None:
    corrupt = tmp_path / "corrupt"
    shutil.copytree(MODELS, corrupt, ignore=shutil.ignore_patterns("*.onnx", "model.bin"))
    (corrupt / "whisper-base" / "model.bin").write_bytes(b"no model")
    upload = f"upload|{samples}|clip|project"

    unknown_language, no_audio = host.run(upload, "finalize|clip|project|tlh", "finalize|clip|project|en")[1:]
    assert "language is not supported - choose a valid language" in unknown_language["error"]
    assert "projectGuid or mediaGuid not present" in no_audio["error"]

    missing = host.run(upload, "finalize|clip|project|en", "progress", models=tmp_path / "nowhere")
    assert missing[1]["code"] == 1
    assert "Languages.json" in missing[1]["error"]
    assert missing[2]["code"] == 0

    host.log_dir = tmp_path / "l'og \\ ö"
    host.log_dir.mkdir()
    broken = host.run(upload, "finalize|clip|project|en", "progress", models=corrupt)
    assert broken[1]["code"] == 1
    assert "checkFinalizeTranscript error: " in broken[1]["error"]
    assert broken[1]["error"].strip()[-1] != ":", "the reason is missing"
    assert "Traceback" in host.log()
    assert broken[2]["code"] == 0


def test_an_answer_that_is_no_json_is_an_unreadable_answer(host: Host, samples: Path) -> None:
    recogniser = """python|
import dataclasses, sys
Word = dataclasses.make_dataclass("Word", ["start", "end", "word", "probability"])
Segment = dataclasses.make_dataclass("Segment", ["start", "end", "text", "words"])
class Recogniser:
    model_pkg = model_size = model_device = "test"
    def transcribe(self, samples, language):
        return [Segment(0.0, 1.0, "Word.", [Word(0.0, 1.0, "Word.", float("nan"))])], ["en"]
sys.modules["KestrelMLCython"].override_transcriber(Recogniser())
"""
    outcomes = host.run("set-model-dir|", recogniser, f"upload|{samples}|clip|", "transcribe|clip", "progress")
    assert [outcome["code"] for outcome in outcomes] == [0, 0, 0, 1, 0]
    assert "className = " in outcomes[3]["error"]
    assert outcomes[3]["error"].count("KsNN Error") == 1


@pytest.mark.parametrize("error_output", ["None", "open('/dev/full', 'w')", "closed"])
def test_failures_are_answered_without_an_error_output(error_output: str, host: Host, samples: Path) -> None:
    replace = f"python|import sys\nclosed = open('/dev/null', 'w')\nclosed.close()\nsys.stderr = {error_output}"
    _, _, no_audio, uploaded = host.run("progress", replace, "transcribe|clip", f"upload|{samples}|clip|project")
    assert no_audio["code"] == 1
    assert "no audio was uploaded for clip 'clip'" in no_audio["error"]
    assert uploaded["code"] == 0


def test_languages_come_from_the_model_folder(host: Host, tmp_path: Path) -> None:
    listed, = host.run("languages")
    assert listed["languages"] == sorted(json.loads((MODELS / "Languages.json").read_text()))
    (tmp_path / "Languages.json").write_text("{not JSON")
    for models in [tmp_path / "nowhere", tmp_path]:
        failed, = host.run("languages", models=models)
        assert failed["code"] == 1
        assert "KsNNSTTCython::GetSupportedLanguages err:" in failed["error"]
    assert not (tmp_path / "PythonStdErr.txt").exists(), "a list of languages needs no interpreter"


def test_a_call_without_answer_is_raised_and_logged(host: Host, samples: Path) -> None:
    raised, uploaded = host.run(f"upload|{samples}|\udcff|project", f"upload|{samples}|clip|project")
    assert raised["raised"] == "KestrelMLCythonIF::STTProcessAudio error"
    assert "UnicodeDecodeError" in host.log()
    assert uploaded["code"] == 0


def test_entering_from_another_thread_is_refused(host: Host, samples: Path) -> None:
    outcomes = host.run("progress", f"thread|upload|{samples}|clip|project", f"upload|{samples}|clip|project",
                        "thread|shutdown", "thread|cancel")
    assert outcomes[1]["raised"] == "KestrelMLCythonIF::STTProcessAudio error"
    assert outcomes[2]["code"] == 0
    assert outcomes[4]["raised"] == "KestrelMLCythonIF::SetSTTParentDir error"


BROKEN_TREES: dict[str, tuple[Callable[[Path], bool] | None, str]] = {
    "no folder": (None, "There is no folder"),
    "empty folder": (lambda entry: False, "The interpreter does not start"),
    "package missing": (lambda entry: entry.name != "FasterWhisperTranscriber", "No module named"),
    "recogniser missing": (lambda entry: not entry.name.startswith("ctranslate2"), "No module named"),
}


@pytest.mark.parametrize("name", BROKEN_TREES)
def test_a_broken_tree_fails_the_set_up_and_says_why(name: str, tmp_path: Path, samples: Path) -> None:
    keep, reason = BROKEN_TREES[name]
    executable = private_host(tmp_path, [entry for entry in all_modules() if keep and keep(entry)])
    if keep is None:
        (executable.parent / "PythonModules").rmdir()
    broken = Host(tmp_path, executable)
    steps = [f"upload|{samples}|clip|project", "finalize|clip|project|en", "transcribe|clip", "cancel", "progress",
             "set-model-dir|"]
    for outcome in broken.run(*steps, "shutdown", "engine", *steps):
        if outcome["step"] not in ("shutdown", "engine"):
            assert outcome["code"] == 3, outcome
            assert outcome["error"].endswith(", Setup failed\n")
    assert reason in broken.log()


def test_an_exception_during_start_up_fails_the_set_up_for_good(tmp_path: Path) -> None:
    executable = private_host(tmp_path, [])
    modules = executable.parent / "PythonModules"
    modules.rmdir()
    modules.symlink_to(modules)  # asking for its kind raises
    broken = Host(tmp_path, executable)
    assert [outcome["code"] for outcome in broken.run("cancel", "progress", "set-model-dir|")] == [3, 3, 3]
    assert "The interpreter cannot be started: " in broken.log()


def test_without_the_interpreter_the_engine_says_so(tmp_path: Path) -> None:
    host = Host(tmp_path, private_host(tmp_path, [], WITHOUT_PYTHON))
    needed = subprocess.run(["ldd", str(host.executable)], capture_output=True, text=True, check=True).stdout
    assert str(host.executable.parent / WITHOUT_PYTHON.name) in needed
    assert "libpython" not in needed
    *outcomes, listed = host.run("cancel", "progress", "set-model-dir|", "transcribe|clip", "languages")
    for outcome in outcomes:
        assert outcome["code"] == 3, outcome
        assert "built without the embedded Python interpreter" in outcome["error"]
    assert listed["code"] == 0, "a list of languages needs no interpreter"


def test_a_module_that_raises_on_import_does_not_end_the_host(tmp_path: Path) -> None:
    executable = private_host(tmp_path, [entry for entry in all_modules() if entry.name != "FasterWhisperTranscriber"])
    (executable.parent / "PythonModules" / "FasterWhisperTranscriber.py").write_text("raise SystemExit('stop it')")
    broken = Host(tmp_path, executable)
    outcome, = broken.run("progress")
    assert outcome["code"] == 3
    assert "stop it" in broken.log()


@pytest.mark.skipif(b"libasan" in (BIN / "libkestrelml.so").read_bytes(), reason="needs its runtime loaded first")
def test_in_a_python_host_the_engine_fails_cleanly() -> None:
    script = """
import ctypes, sys
library = ctypes.CDLL(sys.argv[1])
library.Get_TranscribeCancel.restype = ctypes.c_bool
library.Set_TranscribeProgress(ctypes.c_float(0.5))
print(library.Get_TranscribeCancel())
print('alive', file=sys.stderr)
"""
    process = subprocess.run(["/usr/bin/python3.11", "-c", script, str(BIN / "libkestrelml.so")], capture_output=True,
                             text=True, timeout=60)
    assert process.returncode == 0, process.stderr
    assert process.stdout == "False\n"
    assert process.stderr == "alive\n"
