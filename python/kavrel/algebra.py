"""Algebra programs over pandas DataFrames."""

import warnings

import numpy as np
import pandas as pd

from . import _kavrel

# Periods per year of the frequencies that give a dated database.
_FREQUENCIES = {"A": 1, "Y": 1, "Q": 4, "M": 12}


def _calendar(index):
    """(start year, start period, periods per year) of an annual, quarterly or monthly index, else None."""
    if isinstance(index, pd.DatetimeIndex):
        if index.freq is None and len(index) >= 3:
            freq = pd.infer_freq(index)
            index = pd.DatetimeIndex(index, freq=freq) if freq else index
        if index.freq is None:
            return None
        index = index.to_period()
    if not isinstance(index, pd.PeriodIndex) or len(index) == 0:
        return None
    per_year = _FREQUENCIES.get(index.freqstr.split("-")[0][:1].upper())
    if per_year is None:
        return None
    first = index[0]
    period = 1 if per_year == 1 else (first.quarter if per_year == 4 else first.month)
    return first.year, period, per_year


def algebra(program, frame, errors="raise"):
    """Runs an Algebra program over the columns of frame and returns a new frame with every variable.

    The frame's index gives the dates: a PeriodIndex or DatetimeIndex of annual, quarterly or
    monthly frequency makes a dated database (season(), year(), lags across the calendar), any
    other index an undated one over observations 1..T. Missing values are NaN both ways. errors:
    "raise" (KavrelError on run-time faults such as log of a negative number), "warn" or "ignore";
    scan and compile errors always raise KavrelError with the compiler's message.
    """
    if not isinstance(frame, pd.DataFrame):
        raise TypeError("frame: a pandas DataFrame is required, not {}".format(type(frame).__name__))
    if not isinstance(program, str):
        raise TypeError("program: the program text is required")
    names = [str(c) for c in frame.columns]
    columns = []
    for name in frame.columns:
        column = frame[name]
        if not (pd.api.types.is_numeric_dtype(column) or pd.api.types.is_bool_dtype(column)):
            raise TypeError("frame: column {} is not numeric (dtype {})".format(name, column.dtype))
        columns.append(np.ascontiguousarray(column.to_numpy(dtype=np.float64, na_value=np.nan)))
    calendar = _calendar(frame.index) or (1, 1, 1)
    out_names, out_columns, run_errors = _kavrel._algebra(program, names, columns, *calendar, errors)
    if run_errors:
        warnings.warn(run_errors, RuntimeWarning, stacklevel=2)
    return pd.DataFrame(dict(zip(out_names, out_columns)), index=frame.index)
