"""A short run of the hostile requests, with each way of ending the service three times; hostile.py makes longer ones."""

from __future__ import annotations

from pathlib import Path

import hostile


def test_hostile_requests(data: Path) -> None:
    outcomes = hostile.run(data, seed=20, rounds=9, operations=60)
    assert outcomes["200"] > 100 and outcomes["400"] > 20
