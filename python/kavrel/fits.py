"""Estimations by maximum likelihood or least squares: the command-line host's routines on arrays.

Each takes y (a 1-D array or a pandas Series) and, for regressions, X (a 2-D array, a DataFrame, or
a Series for one regressor); names come from the pandas objects when there are any. A constant is
added unless add_constant is False. Missing values raise ValueError: drop or fill them first.
"""

import numpy as np
import pandas as pd

from . import _kavrel
from .results import Results


def _name(obj, default):
    name = getattr(obj, "name", None)
    return str(name) if name is not None else default


def _regression_data(y, X):
    y_name = _name(y, "y")
    if X is None:
        return y_name, np.asarray(y), None, [], getattr(y, "index", None)
    if isinstance(X, pd.Series):
        X = X.to_frame()
    if isinstance(X, pd.DataFrame):
        x_names = [str(c) for c in X.columns]
        values = X.to_numpy(dtype=np.float64)
    else:
        values = np.asarray(X)
        if values.ndim == 1:
            values = values.reshape(-1, 1)
        x_names = ["x{}".format(j + 1) for j in range(values.shape[1] if values.ndim == 2 else 0)]
    index = getattr(y, "index", getattr(X, "index", None))
    return y_name, np.asarray(y), values, x_names, index


def _sample(index, nobs):
    if index is None or len(index) == 0 or isinstance(index, pd.RangeIndex):
        return "1 - {}".format(nobs)
    return "{} - {}".format(index[0], index[-1])


def _regression(fit, y, X, add_constant, flag):
    y_name, y_values, x_values, x_names, index = _regression_data(y, X)
    raw = fit(y_values, x_values, [y_name] + x_names, flag, add_constant, _sample(index, len(y_values)))
    return Results(raw, index)


def fit_probit(y, X, add_constant=True):
    """Binary probit of y (0 or 1) on X by Newton's method; standard errors from the information."""
    return _regression(_kavrel._fit_discrete, y, X, add_constant, False)


def fit_logit(y, X, add_constant=True):
    """Binary or multinomial logit of y (codes 0, 1, ..., m-1; category 0 the base) on X.

    Parameters are ordered category by category (categories 1..m-1), the regressors within each.
    """
    return _regression(_kavrel._fit_discrete, y, X, add_constant, True)


def fit_poisson(y, X, add_constant=True):
    """Poisson regression with a log link by Newton's method on the observed information."""
    return _regression(_kavrel._fit_count, y, X, add_constant, False)


def fit_negbin(y, X, add_constant=True):
    """Negative binomial (NB2, variance mu + alpha mu^2) regression; log(alpha) is the last parameter."""
    return _regression(_kavrel._fit_count, y, X, add_constant, True)


def fit_rls(y, X, add_constant=True):
    """Recursive least squares: the full-sample regression, and in extra["recursive"] the recursive
    coefficients and standard errors, innovations, sigma and the scaled Chow statistics."""
    y_name, y_values, x_values, x_names, index = _regression_data(y, X)
    raw = _kavrel._fit_rls(y_values, x_values, [y_name] + x_names, add_constant, _sample(index, len(y_values)))
    return Results(raw, index)


def fit_garch(y, p=1, q=1, egarch=False, in_mean=None):
    """GARCH(p, q) (or EGARCH) with a constant mean and normal errors by BFGS.

    in_mean: None, "h", "sqrt" or "log" for a term delta m(h_t) in the mean. The conditional
    variances and residuals are in series.
    """
    kinds = {None: 0, "h": 1, "sqrt": 2, "log": 3}
    if in_mean not in kinds:
        raise ValueError("in_mean: {!r} is not one of None, 'h', 'sqrt', 'log'".format(in_mean))
    values = np.asarray(y)
    index = getattr(y, "index", None)
    raw = _kavrel._fit_garch(values, _name(y, "y"), p, q, bool(egarch), kinds[in_mean], _sample(index, len(values)))
    return Results(raw, index)


def fit_ms(y, k_regimes=2, order=0):
    """Markov-switching mean and variance with order AR terms over k_regimes regimes.

    extra["transition"][j, i] is Pr(next = j | now = i); extra["smoothed"] the smoothed regime
    probabilities of the observations after the first order ones (also in series).
    """
    values = np.asarray(y)
    index = getattr(y, "index", None)
    sample = _sample(None if index is None else index[order:], len(values) - order)
    raw = _kavrel._fit_ms(values, _name(y, "y"), k_regimes, order, sample)
    return Results(raw, index)
