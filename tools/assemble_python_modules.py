"""Assembles the folder that the embedded interpreter imports from: run it with the interpreter to be embedded.

The folder gets the standard library, its extension modules, and every entry of the given package folders, all at one
level, so that it can be the only entry of the module search path. Only what is missing or changed is touched, and
what no longer belongs there is removed.

By default the entries are links, which suits a build folder. --copy makes a folder that can be shipped.
"""

from __future__ import annotations

import argparse
import filecmp
import shutil
import sys
import sysconfig
from collections.abc import Iterator
from pathlib import Path

# Of no use inside a host: tests, user interfaces, installers, and what would look for packages elsewhere.
UNUSED_STDLIB = {"dist-packages", "ensurepip", "idlelib", "lib-dynload", "lib2to3", "site-packages", "sitecustomize.py",
                 "test", "tkinter", "turtle.py", "turtledemo"}
UNUSED_DYNLOAD = ("_test", "_xx", "xx", "_tkinter", "_ctypes_test")
UNUSED_PACKAGES = {"_distutils_hack", "_virtualenv.py", "bin", "pip", "pkg_resources", "setuptools", "share", "wheel"}


def stdlib_entries() -> Iterator[Path]:
    stdlib = Path(sysconfig.get_path("stdlib"))
    for entry in stdlib.iterdir():
        if entry.name not in UNUSED_STDLIB and not entry.name.startswith("config-"):
            if entry.is_dir() or entry.suffix == ".py":
                yield entry
    for entry in (stdlib / "lib-dynload").glob("*.so"):
        if not entry.name.startswith(UNUSED_DYNLOAD):
            yield entry


def package_entries(folder: Path) -> Iterator[Path]:
    if not folder.is_dir():
        raise SystemExit(f"there is no package folder {folder}; run scripts/setup first")
    for entry in folder.iterdir():
        project = entry.name.split("-")[0]
        hidden = entry.name.startswith(".")
        # .pth files are read by the site module only, which the embedded interpreter does not run.
        if not hidden and entry.suffix != ".pth" and not {entry.name, project} & UNUSED_PACKAGES:
            yield entry


def wanted_entries(package_folders: list[Path]) -> dict[str, Path]:
    wanted: dict[str, Path] = {}
    sources = [stdlib_entries(), *(package_entries(folder) for folder in package_folders)]
    for entry in (entry for source in sources for entry in source if entry.name != "__pycache__"):
        if entry.name in wanted:
            raise SystemExit(f"{entry} and {wanted[entry.name]} have the same name")
        wanted[entry.name] = entry.resolve()
    return wanted


def remove(path: Path) -> None:
    if path.is_dir() and not path.is_symlink():
        shutil.rmtree(path)
    else:
        path.unlink()


def same_tree(comparison: filecmp.dircmp[str]) -> bool:
    if comparison.left_only or comparison.right_only or comparison.diff_files or comparison.funny_files:
        return False
    return all(same_tree(part) for part in comparison.subdirs.values())


def is_up_to_date(target: Path, source: Path, copy: bool) -> bool:
    if target.is_symlink() or not copy:
        return not copy and target.is_symlink() and target.readlink() == source
    if source.is_dir():
        return target.is_dir() and same_tree(filecmp.dircmp(source, target, ignore=["__pycache__"]))
    return target.is_file() and filecmp.cmp(source, target)


def place(target: Path, source: Path, copy: bool) -> None:
    if not copy:
        target.symlink_to(source)
    elif source.is_dir():
        shutil.copytree(source, target, ignore=shutil.ignore_patterns("__pycache__"))
    else:
        shutil.copy2(source, target)


def assemble(out: Path, wanted: dict[str, Path], copy: bool) -> int:
    """Brings the folder up to date; returns the number of changes."""
    out.mkdir(parents=True, exist_ok=True)
    changes = 0
    for target in out.iterdir():
        source = wanted.get(target.name)
        if source is None or not is_up_to_date(target, source, copy):
            remove(target)
            changes += 1
    for name in wanted.keys() - {target.name for target in out.iterdir()}:
        place(out / name, wanted[name], copy)
        changes += 1
    return changes


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("out", type=Path, help="the folder to assemble")
    parser.add_argument("--packages", type=Path, action="append", default=[], metavar="FOLDER",
                        help="a folder of packages, such as an environment's site-packages; may be repeated")
    parser.add_argument("--copy", action="store_true", help="copy instead of linking")
    arguments = parser.parse_args()
    wanted = wanted_entries(arguments.packages)
    changes = assemble(arguments.out, wanted, arguments.copy)
    if changes:
        print(f"{arguments.out}: {len(wanted)} entries, {changes} changed")


if __name__ == "__main__":
    main()
