"""The estimators and filters against independent computations: statsmodels' likelihoods, pandas'
seasonal means, direct long-run sums and the closed forms of an AR(1). Recursive least squares,
the GARCH recursions, the logit's derivatives and the Markov filter are checked by brute force
in tests/estimators, on the same library routines."""

import numpy as np
import pandas as pd
import pytest
import statsmodels.api as sm
from scipy.stats import norm

import kavrel


def test_probit_and_logit_likelihoods_match_statsmodels(choice):
    X, y, three = choice
    beta, w = np.array([0.1, 0.7, -0.4]), np.linspace(0.5, 1.5, len(y))
    probit, model = kavrel.probit(beta, y, X), sm.Probit(y, X)
    lam = norm.pdf(X @ beta) ** 2 / (norm.cdf(X @ beta) * norm.sf(X @ beta))
    assert probit["llf"] == pytest.approx(model.loglike(beta), rel=1e-12)
    np.testing.assert_allclose(probit["score"], model.score(beta), rtol=1e-10)
    np.testing.assert_allclose(probit["info"], (X * lam[:, None]).T @ X, rtol=1e-10)  # expected information
    np.testing.assert_allclose(probit["prob"][:, 1], norm.cdf(X @ beta), rtol=1e-12)
    assert kavrel.probit(beta, y, X, weights=w)["llf"] == pytest.approx(w @ model.loglikeobs(beta), rel=1e-12)
    params = np.random.default_rng(2).normal(scale=0.5, size=(3, 2))  # statsmodels: a column per category
    logit, mn = kavrel.logit(params.T.ravel(), three, 3, X=X), sm.MNLogit(three, X)
    assert logit["llf"] == pytest.approx(mn.loglike(params), rel=1e-12)
    np.testing.assert_allclose(logit["score"], mn.score(params), rtol=1e-9)
    np.testing.assert_allclose(logit["info"], -mn.hessian(params), rtol=1e-9)
    np.testing.assert_allclose(logit["prob"], mn.predict(params), rtol=1e-12)


def test_count_likelihoods_match_statsmodels(counts):
    y = counts["count"].to_numpy(dtype=float)
    X = np.column_stack([np.ones(len(y)), counts[["x1", "x2"]]])
    beta, alpha = np.array([0.1, 0.3, -0.2]), 0.7
    poisson, model = kavrel.count(beta, y, X), sm.Poisson(y, X)
    assert poisson["llf"] == pytest.approx(model.loglike(beta), rel=1e-12)
    np.testing.assert_allclose(poisson["score"], model.score(beta), rtol=1e-10)
    np.testing.assert_allclose(poisson["info"], -model.hessian(beta), rtol=1e-10)
    # statsmodels takes log(alpha) last as kavrel does, but its Hessian's last row and column are
    # derivatives in alpha: d2l/dlog(alpha)^2 = alpha^2 d2l/dalpha^2 + dl/dlog(alpha).
    theta, nb = np.r_[beta, np.log(alpha)], sm.NegativeBinomial(y, X, loglike_method="nb2")
    scale = np.r_[1.0, 1.0, 1.0, alpha]
    info = -nb.hessian(theta) * np.outer(scale, scale)
    info[3, 3] -= nb.score(theta)[3]
    nb2 = kavrel.count(theta, y, X, model="nb2")
    assert nb2["llf"] == pytest.approx(nb.loglike(theta), rel=1e-12)
    np.testing.assert_allclose(nb2["score"], nb.score(theta), rtol=1e-9)
    np.testing.assert_allclose(nb2["info"], info, rtol=1e-8)
    assert kavrel.count(beta, y, X, "nb2_fixed", alpha)["llf"] == pytest.approx(nb2["llf"], rel=1e-13)


def test_seasonal_and_long_run_tools_match_their_sums():
    rng = np.random.default_rng(8)
    X = rng.standard_normal((150, 2)) + np.arange(150)[:, None] % 4
    season_means = pd.DataFrame(X).groupby(np.arange(150) % 4).transform("mean").to_numpy()
    np.testing.assert_allclose(kavrel.seasonal_demean(X, 4), X - season_means, rtol=1e-12, atol=1e-13)
    d = np.diff(np.cumsum(X[:, 0]))
    means = pd.Series(d).groupby(np.arange(len(d)) % 4).transform("mean").to_numpy()
    assert kavrel.seasonal_rsq(np.cumsum(X[:, 0]), 4, 3.5)[0] == pytest.approx(1 - 3.5 / np.sum((d - means) ** 2))
    U = rng.standard_normal((150, 2))
    S, lag = np.einsum("ta,te->tae", X, U).reshape(150, 4), kavrel.long_run_lag(150)
    expected = S.T @ S + sum((1 - L / (lag + 1)) * (S[L:].T @ S[:-L] + S[:-L].T @ S[L:]) for L in range(1, lag + 1))
    np.testing.assert_allclose(kavrel.long_run_covariance(X, U), expected, rtol=1e-12)


def test_forecasts_and_impulse_responses_of_an_ar1_equal_their_closed_forms():
    a, c, y = 0.7, 1.0, np.zeros(20)
    for t in range(1, 20):
        y[t] = a * y[t - 1] + c + np.sin(t)
    system = (y[None, :], np.vstack([np.r_[np.nan, y[:-1]], np.ones(20)]), [0, 0, 1], [1, 1, 0], [0, 1, 0],
              np.array([[a, c]]))  # y(-1) and the constant as regressors
    f, se = kavrel.forecast(*system, 15, 19, omega=np.array([[2.0]]), se=True)
    h = np.arange(1, 6)
    np.testing.assert_allclose(f[0], a ** h * y[14] + c * (1 - a ** h) / (1 - a), rtol=1e-12)
    np.testing.assert_allclose(se[0], np.sqrt(2.0 * (1 - a ** (2 * h)) / (1 - a ** 2)), rtol=1e-12)
    response = kavrel.impulse_response(*system, 10, 14, 0, kind="sd", omega=np.array([[4.0]]))
    np.testing.assert_allclose(response[0], 2.0 * a ** np.arange(5), rtol=1e-12)


def test_inputs_of_other_types_and_layouts_give_the_same_result(choice):
    X, y, _ = choice
    reference = kavrel.probit(np.array([0.1, 0.7, -0.4]), y, X)["llf"]
    assert kavrel.probit([0.1, 0.7, -0.4], y, np.asfortranarray(X))["llf"] == reference
    assert kavrel.probit([0.1, 0.7, -0.4], y.astype(np.int64), np.repeat(X, 2, axis=0)[::2])["llf"] == reference
    assert kavrel.probit((0.1, 0.7, -0.4), list(y), pd.DataFrame(X))["llf"] == reference
