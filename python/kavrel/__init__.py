"""Kavrel compute library from Python: estimators, filters, estimations and the Algebra language.

Arrays in, arrays out: a C-contiguous float64 numpy array is handed to the library in place; any
other numeric input is converted (copied) once. Errors of the arguments raise TypeError or
ValueError, failures of the library raise KavrelError with its message. docs/python.md has one
example per function.
"""

from ._kavrel import (KavrelError, act_fit_table, count, egarch_variance, forecast, garch_variance,
                      impulse_response, logit, logit_prob_deriv, long_run_covariance, long_run_lag, ms_filter,
                      ms_smooth, probit, rls, seasonal_demean, seasonal_rsq)
from .algebra import algebra
from .fits import fit_garch, fit_logit, fit_ms, fit_negbin, fit_poisson, fit_probit, fit_rls
from .results import Results

__all__ = [
    "KavrelError", "Results", "act_fit_table", "algebra", "count", "egarch_variance", "fit_garch", "fit_logit",
    "fit_ms", "fit_negbin", "fit_poisson", "fit_probit", "fit_rls", "forecast", "garch_variance",
    "impulse_response", "logit", "logit_prob_deriv", "long_run_covariance", "long_run_lag", "ms_filter",
    "ms_smooth", "probit", "rls", "seasonal_demean", "seasonal_rsq",
]
