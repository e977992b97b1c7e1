"""Bad input raises a clear exception before the library is called; failures of an estimation raise
kavrel.KavrelError with the library's message."""

import numpy as np
import pandas as pd
import pytest

import kavrel

X = np.column_stack([np.ones(20), np.arange(20.0)])
Y = (np.arange(20) % 3 == 0).astype(float)
SERIES = np.random.default_rng(0).standard_normal(20)

BAD_CALLS = [
    (lambda: kavrel.probit([0.1], Y, X), ValueError, "beta: 2 values expected, got 1"),
    (lambda: kavrel.probit([0.1, 0.2], Y, np.zeros((2, 2, 2))), ValueError, "X: 1 or 2 dimensions expected"),
    (lambda: kavrel.probit([0.1, 0.2], Y, np.array([["a", "b"]] * 20)), TypeError, "X: a numeric array is required"),
    (lambda: kavrel.probit([0.1, 0.2], None, X), TypeError, "y: an array is required, not None"),
    (lambda: kavrel.rls(Y, X, first=5, last=40), ValueError, "first/last: the range 5..40 is not within 0..19"),
    (lambda: kavrel.garch_variance(SERIES, 0.1, [0.0, 0.9], 1, 1), ValueError, "coef: 3 values needed"),
    (lambda: kavrel.count([0.0, 0.0], Y, X, model="zip"), ValueError, "model: 'zip' is not one of"),
    (lambda: kavrel.ms_filter(np.ones((5, 2)), np.ones((2, 3)), [0.5, 0.5]), ValueError, "P: 2 x 2 expected"),
    (lambda: kavrel.seasonal_demean(np.ones((8, 2), dtype=int), 4, inplace=True), TypeError,
     "X: in place needs a writable C-contiguous float64 array"),
    (lambda: kavrel.long_run_covariance(X, X, lag=20), ValueError, "lag: 20 is outside 0..19"),
    (lambda: kavrel.forecast(np.ones((1, 5)), np.ones((1, 5)), [0, 0], [1, 1], [0, 1], np.ones((1, 1)), 3, 9),
     ValueError, "t1/t2"),
    (lambda: kavrel.impulse_response(np.ones((1, 5)), np.ones((1, 5)), [0, 0], [1, 1], [0, 1], np.ones((1, 1)), 0,
                                     4, 0, kind="sd"), ValueError, "omega: this kind of shock needs"),
    (lambda: kavrel.algebra("z = 1;", np.ones((3, 2))), TypeError, "frame: a pandas DataFrame is required"),
    (lambda: kavrel.algebra("z = 1;", pd.DataFrame({"s": ["a", "b"]})), TypeError, "frame: column s is not numeric"),
    (lambda: kavrel.fit_probit(pd.Series([0, 1, np.nan, 1, 0]), np.arange(5.0)), ValueError,
     "y: missing value in y at observation 2"),
]


@pytest.mark.parametrize("call,kind,message", BAD_CALLS)
def test_bad_arguments_raise_clear_exceptions(call, kind, message):
    with pytest.raises(kind) as caught:
        call()
    assert message in str(caught.value)


ESTIMATION_FAILURES = [
    (lambda: kavrel.fit_probit(np.arange(20.0) % 3, SERIES), "a probit needs an outcome of 0 and 1"),
    (lambda: kavrel.fit_probit(Y, np.column_stack([SERIES, 2 * SERIES])),
     "the regressors are collinear: x2 is explained by the ones before it"),
    (lambda: kavrel.fit_garch(SERIES[:8]), "bad orders, or too few observations (8)"),
    (lambda: kavrel.fit_rls(SERIES[:2], SERIES[:2]), "too few observations (2) for 2 regressors"),
]


@pytest.mark.parametrize("call,message", ESTIMATION_FAILURES)
def test_estimation_failures_raise_kavrel_error_with_the_librarys_message(call, message):
    with pytest.raises(kavrel.KavrelError) as caught:
        call()
    assert message in str(caught.value)
    assert isinstance(caught.value, RuntimeError)


def test_large_inputs_are_used_in_place():
    big = np.random.default_rng(1).standard_normal((1_000_000, 2))
    address = big.__array_interface__["data"][0]
    out = kavrel.seasonal_demean(big, 4, inplace=True)
    assert out.__array_interface__["data"][0] == address
    assert abs(big[::4, 0].mean()) < 1e-12
