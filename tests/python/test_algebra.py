"""kavrel.algebra over DataFrames: dates from the index, values against numpy, the compiler's messages."""

import numpy as np
import pandas as pd
import pytest

import kavrel


def test_program_over_a_quarterly_frame_computes_dated_series(macro):
    frame = macro.drop(columns=["year", "quarter"])
    out = kavrel.algebra("g = 400 * dlog(realgdp); d = unemp > 6; s = season(); y = year(); l = realgdp[-1];", frame)
    gdp = frame["realgdp"].to_numpy()
    assert out.index.equals(frame.index)
    assert list(out.columns[:len(frame.columns)]) == list(frame.columns)
    np.testing.assert_allclose(out["g"].iloc[1:], 400 * np.diff(np.log(gdp)), rtol=1e-10)
    assert np.isnan(out["g"].iloc[0])
    np.testing.assert_array_equal(out["d"], (frame["unemp"] > 6).astype(float))
    np.testing.assert_array_equal(out["s"], (frame.index.quarter == 1).astype(float))
    np.testing.assert_array_equal(out["y"], frame.index.year)
    np.testing.assert_array_equal(out["l"].iloc[1:], gdp[:-1])


@pytest.mark.parametrize("index,years,periods", [
    (pd.date_range("2020-11-30", periods=4, freq="M"), [2020, 2020, 2021, 2021], [11, 12, 1, 2]),
    (pd.period_range("1999", periods=4, freq="A"), [1999, 2000, 2001, 2002], [1, 1, 1, 1]),
    (pd.RangeIndex(4), [1, 2, 3, 4], [1, 1, 1, 1]),
])
def test_the_index_gives_the_calendar(index, years, periods):
    frame = pd.DataFrame({"x": [1.0, np.nan, 3.0, 4.0]}, index=index)
    out = kavrel.algebra("y = year(); p = period(); z = 2 * x;", frame)
    np.testing.assert_array_equal(out["y"], years)
    np.testing.assert_array_equal(out["p"], periods)
    np.testing.assert_array_equal(out["z"], [2.0, np.nan, 6.0, 8.0])
    assert out.index.equals(index)


@pytest.mark.parametrize("program,message", [
    ("z = x +;", "Parse error: ; Out of place on line 1"),
    ("z = nothere * 2;", "Parse error: nothere Undeclared identifier on line 1"),
    ("z = foo(x);", "Parse error: foo Not a function on line 1"),
    ("z = log(x);", "There were Algebra run-time errors:\n    Logarithm of non-positive number"),
])
def test_errors_raise_with_the_compilers_message(program, message):
    frame = pd.DataFrame({"x": [1.0, -2.0, 3.0]})
    with pytest.raises(kavrel.KavrelError) as caught:
        kavrel.algebra(program, frame)
    assert str(caught.value) == message


def test_run_time_faults_can_warn_and_leave_missing_values():
    frame = pd.DataFrame({"x": [1.0, -2.0, 3.0]})
    with pytest.warns(RuntimeWarning, match="Logarithm of non-positive number"):
        out = kavrel.algebra("z = log(x);", frame, errors="warn")
    np.testing.assert_allclose(out["z"], [0.0, np.nan, np.log(3.0)])
