"""The fixtures that tests of single verdicts share."""

import pytest
from bench import Bench
from runs_to_judge import Judge
from support.places import scratch_directory


@pytest.fixture(scope="module")
def bench():
    with scratch_directory() as folder, Judge() as judge:
        yield Bench(folder, judge)
