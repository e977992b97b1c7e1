"""The result of an estimation, with the attribute names statsmodels users know."""

import numpy as np
import pandas as pd


class Results:
    """An estimation's results.

    params, bse, tvalues, pvalues: pandas Series indexed by the parameter names; llf the
    log-likelihood, nobs the observations used, converged whether the optimiser's convergence rule
    held, df_resid the degrees of freedom of the t-tests (0: the normal distribution), stats the
    further statistics of the report (sigma, RSS, R^2, alpha, ...), series the per-observation
    series (fitted probabilities, variances, smoothed regime probabilities) as a DataFrame, and
    extra what a model adds (transition matrix, recursive statistics). summary() is the report.
    """

    def __init__(self, raw, index=None):
        names = list(raw["names"])
        self.model = raw["title"]
        self.params = pd.Series(raw["params"], index=names, name="params")
        self.bse = pd.Series(raw["bse"], index=names, name="bse")
        self.tvalues = pd.Series(np.asarray(raw["params"]) / np.asarray(raw["bse"]), index=names, name="tvalues")
        self.pvalues = pd.Series(raw["pvalues"], index=names, name="pvalues")
        self.llf = float(raw["llf"])
        self.nobs = int(raw["nobs"])
        self.converged = bool(raw["converged"])
        self.df_resid = int(raw["df_resid"])
        self.stats = dict(raw["stats"])
        series = dict(raw["series"])
        first = int(raw["series_first"])
        rows = len(next(iter(series.values()))) if series else 0
        self.series = pd.DataFrame(series, index=_index_part(index, first, rows))
        self.extra = {key: raw[key] for key in ("transition", "smoothed", "recursive") if key in raw}
        self._summary = raw["summary"]

    @property
    def aic(self):
        return -2.0 * self.llf + 2.0 * len(self.params)

    @property
    def bic(self):
        return -2.0 * self.llf + np.log(self.nobs) * len(self.params)

    def conf_int(self, alpha=0.05):
        """Normal-approximation intervals, one row per parameter (lower, upper)."""
        from statistics import NormalDist
        z = NormalDist().inv_cdf(1.0 - alpha / 2.0)
        return pd.DataFrame({0: self.params - z * self.bse, 1: self.params + z * self.bse})

    def summary(self):
        """The report as the command-line host prints it."""
        return self._summary

    def __repr__(self):
        state = "converged" if self.converged else "not converged"
        return "<kavrel.Results: {}, {} observations, llf {:.6g}, {}>".format(self.model, self.nobs, self.llf, state)


def _index_part(index, first, rows):
    if index is None or len(index) < first + rows:
        return None
    return index[first:first + rows]
