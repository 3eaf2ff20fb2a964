"""axe-core, the accessibility checker, from a wheel that carries it; scripts/setup fetches it with this file.

    python tests/desk/axe.py DEPS
"""

from __future__ import annotations

import sys
import zipfile
from functools import cache
from pathlib import Path

from pinned_packages import Package, fetch

AXE = Package("axe-playwright-python", "0.1.8", "axe_playwright_python-0.1.8-py3-none-any.whl",
              "fdd263c998388f1a8e67cad02677e612d946248bd44d163be5e8650ea31f95f8")


@cache
def source(deps: Path) -> str:
    with zipfile.ZipFile(fetch(AXE, deps / "packages")) as wheel:
        return wheel.read("axe_playwright_python/axe.min.js").decode()


if __name__ == "__main__":
    source(Path(sys.argv[1]))
