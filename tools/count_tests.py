"""Adds up the cases of all test runners from the reports they leave, and prints the sum as one line.

Each folder holds "ctest.xml" and one report for each entry of CTest that runs pytest; such an entry counts as the
cases of its report, or as one failure when it left none.
"""

from __future__ import annotations

import sys
import xml.etree.ElementTree as ET
from collections import Counter
from pathlib import Path


def outcome(case: ET.Element) -> str:
    if case.find("failure") is not None or case.find("error") is not None:
        return "failed"
    if case.find("skipped") is not None:
        return "skipped"
    return {"run": "passed", "notrun": "skipped", "disabled": "skipped"}.get(case.get("status", "run"), "failed")


def count(folder: Path) -> Counter[str]:
    total: Counter[str] = Counter()
    for case in ET.parse(folder / "ctest.xml").iter("testcase"):
        report = folder / f"{case.get('name')}.xml"
        if report.exists():
            inner = Counter(outcome(c) for c in ET.parse(report).iter("testcase"))
            if outcome(case) == "failed" and not inner["failed"]:
                inner["failed"] += 1
            total += inner
        else:
            total[outcome(case)] += 1
    return total


def main() -> int:
    total = sum((count(Path(folder)) for folder in sys.argv[1:]), Counter())
    skipped = f", {total['skipped']} skipped" if total["skipped"] else ""
    print(f"{total['passed']} passed, {total['failed']} failed{skipped}")
    return 1 if total["failed"] or not total["passed"] else 0


if __name__ == "__main__":
    sys.exit(main())
