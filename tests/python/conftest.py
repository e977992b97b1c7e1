"""Shared data of the Python tests: the files of tests/data and examples/."""

import os

import numpy as np
import pandas as pd
import pytest

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
DATA = os.path.join(ROOT, "tests", "data")


def data_file(name):
    return os.path.join(DATA, name)


@pytest.fixture(scope="session")
def macro():
    frame = pd.read_csv(data_file("macrodata.csv"))
    frame.index = pd.period_range("1959Q1", periods=len(frame), freq="Q")
    return frame


@pytest.fixture(scope="session")
def counts():
    return pd.read_csv(data_file("exports_sample.csv"))


@pytest.fixture(scope="session")
def reference():
    """exports_reference.txt as {name: array of its values in index order}."""
    rows = pd.read_csv(data_file("exports_reference.txt"), sep=" ", comment="#", names=["name", "index", "value"])
    return {name: group.sort_values("index")["value"].to_numpy() for name, group in rows.groupby("name")}


@pytest.fixture(scope="session")
def choice():
    """A probit/logit design on made-up data: two regressors and a three-category outcome."""
    rng = np.random.default_rng(7)
    n = 400
    X = np.column_stack([np.ones(n), rng.standard_normal(n), rng.uniform(-1, 1, n)])
    latent = X @ np.array([0.2, 0.8, -0.5]) + rng.standard_normal(n)
    binary = (latent > 0).astype(float)
    three = np.digitize(latent, [-0.3, 0.6]).astype(float)
    return X, binary, three
