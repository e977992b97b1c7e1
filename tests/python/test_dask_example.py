"""examples/dask_batch.py on a two-worker local cluster: the same fits as in this process, and the
script's own run with its throughput lines."""

import os
import runpy
import subprocess
import sys

import numpy as np
import pytest

from conftest import ROOT

EXAMPLE = os.path.join(ROOT, "examples", "dask_batch.py")


@pytest.fixture(scope="module")
def example():
    """The example's functions, without running its main."""
    return runpy.run_path(EXAMPLE, run_name="dask_batch")


def test_fits_on_two_workers_equal_the_fits_in_this_process(example):
    from dask.distributed import Client, LocalCluster
    series = example["simulate"](12, 400, seed=3)
    with LocalCluster(n_workers=2, threads_per_worker=1, processes=True, host="127.0.0.1",
                      dashboard_address=None) as cluster, Client(cluster) as client:
        distributed = example["fit_batch"](client, series, chunk=5)
        workers = len(client.scheduler_info()["workers"])
    assert workers == 2
    np.testing.assert_array_equal(distributed, example["fit_chunk"](series))
    assert distributed.shape == (12, 6)


def test_the_script_reports_throughput_for_one_and_two_workers():
    run = subprocess.run([sys.executable, EXAMPLE, "--series", "8", "--length", "300", "--chunk", "2"],
                         capture_output=True, text=True, timeout=120)
    assert run.returncode == 0, run.stderr
    lines = run.stdout.splitlines()
    assert lines[0].startswith("8 GARCH(1,1) series of 300 observations")
    assert lines[1].startswith("1 worker: 8 fits in ")
    assert lines[2].startswith("2 workers: 8 fits in ")
    assert "8 converged" in lines[2]


def test_fits_in_threads_equal_the_fits_in_turn(example):
    """The module lets go of the interpreter lock inside the library, so threads overlap there."""
    from concurrent.futures import ThreadPoolExecutor
    series = example["simulate"](8, 400, seed=5)
    with ThreadPoolExecutor(max_workers=4) as pool:
        threaded = np.vstack(list(pool.map(example["fit_chunk"], [series[i:i + 1] for i in range(8)])))
    np.testing.assert_array_equal(threaded, example["fit_chunk"](series))
