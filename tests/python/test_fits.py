"""The estimations against published and independently computed results: R's glm and glm.nb
(tests/data/exports_reference.txt), NIST's Norris regression, and statsmodels' Probit, Logit,
MNLogit, NegativeBinomial and MarkovRegression. The GARCH benchmark is in tests/tools."""

import numpy as np
import pandas as pd
import pytest
import statsmodels.api as sm
from scipy.stats import norm

import kavrel
from conftest import data_file


@pytest.fixture(scope="module")
def choices(macro):
    frame = pd.DataFrame({"d": (macro["unemp"] > 6).astype(float),
                          "c": (macro["unemp"] > 5).astype(float) + (macro["unemp"] > 7).astype(float),
                          "infl": macro["infl"], "realint": macro["realint"]}, index=macro.index)
    return frame


def test_probit_matches_statsmodels_and_its_expected_information(choices):
    res = kavrel.fit_probit(choices["d"], choices[["infl", "realint"]])
    X = sm.add_constant(choices[["infl", "realint"]].to_numpy())
    ref = sm.Probit(choices["d"].to_numpy(), X).fit(disp=False, tol=1e-12)
    xb = X @ res.params.to_numpy()
    lam = norm.pdf(xb) ** 2 / (norm.cdf(xb) * norm.sf(xb))
    expected_bse = np.sqrt(np.diag(np.linalg.inv((X * lam[:, None]).T @ X)))
    assert list(res.params.index) == ["Constant", "infl", "realint"]
    np.testing.assert_allclose(res.params, ref.params, rtol=1e-6)
    assert res.llf == pytest.approx(ref.llf, rel=1e-10)
    np.testing.assert_allclose(res.bse, expected_bse, rtol=1e-6)
    assert res.nobs == 203
    assert res.converged
    np.testing.assert_allclose(res.series["p1"], norm.cdf(xb), rtol=1e-10)
    assert res.series.index.equals(choices.index)
    assert res.summary().startswith("Probit of d\nThe estimation sample is 1959Q1 - 2009Q3 (203 observations)")


@pytest.mark.parametrize("outcome", ["d", "c"])
def test_logit_matches_statsmodels(choices, outcome):
    res = kavrel.fit_logit(choices[outcome], choices["infl"])
    X = sm.add_constant(choices[["infl"]].to_numpy())
    ref = sm.MNLogit(choices[outcome].to_numpy(), X).fit(disp=False, method="newton", tol=1e-12)
    params = np.asarray(ref.params).T.ravel()  # category by category, as kavrel orders them
    bse = np.asarray(ref.bse).T.ravel()
    np.testing.assert_allclose(res.params, params, rtol=1e-6)
    np.testing.assert_allclose(res.bse, bse, rtol=1e-6)
    assert res.llf == pytest.approx(ref.llf, rel=1e-10)
    assert res.converged
    # The marginal effects are of infl alone: the constant does not vary.
    last = int(choices[outcome].max())
    assert f"dP(category)/dx (rows: categories 0..{last}):\n  infl\t\n" in res.summary()


def test_count_regressions_reproduce_r_and_statsmodels(counts, reference):
    y, X = counts["count"], counts[["x1", "x2"]]
    poisson = kavrel.fit_poisson(y, X)
    sm_poisson = sm.Poisson(y.to_numpy(), sm.add_constant(X.to_numpy())).fit(disp=False, tol=1e-12)
    np.testing.assert_allclose(poisson.params, reference["poisson_beta"], rtol=1e-6)
    assert poisson.llf == pytest.approx(reference["poisson_llf"][0], rel=1e-10)
    np.testing.assert_allclose(poisson.bse, sm_poisson.bse, rtol=1e-6)
    negbin = kavrel.fit_negbin(y, X)
    alpha = np.exp(negbin.params.iloc[3])
    np.testing.assert_allclose(negbin.params.iloc[:3], reference["nb2_beta"], rtol=1e-5)
    assert 1 / alpha == pytest.approx(reference["nb2_theta"][0], rel=1e-5)
    assert negbin.llf == pytest.approx(reference["nb2_llf"][0], rel=1e-10)


def test_markov_switching_matches_statsmodels(macro):
    g = (400 * np.log(macro["realgdp"]).diff()).dropna().rename("g")
    res = kavrel.fit_ms(g)
    ref = sm.tsa.MarkovRegression(g.to_numpy(), k_regimes=2, switching_variance=True).fit(disp=False)
    # statsmodels may number the regimes the other way round: match them by their variances.
    sigma2 = np.asarray(ref.params[4:6])
    order = np.argsort(-sigma2) if res.params["sigma(1)"] > res.params["sigma(2)"] else np.argsort(sigma2)
    P = np.asarray(ref.regime_transition)[:, :, 0][np.ix_(order, order)]
    assert res.llf == pytest.approx(ref.llf, rel=1e-7)
    np.testing.assert_allclose(res.params.iloc[:2], np.asarray(ref.params[2:4])[order], rtol=1e-4)
    np.testing.assert_allclose(res.params.iloc[2:4] ** 2, sigma2[order], rtol=1e-4)
    np.testing.assert_allclose(res.extra["transition"], P, atol=1e-4)
    np.testing.assert_allclose(res.extra["smoothed"], ref.smoothed_marginal_probabilities[:, order], atol=1e-3)
    assert res.series.index[0] == g.index[0]


def test_recursive_least_squares_fit_reproduces_norris_and_the_recursion():
    frame = pd.read_csv(data_file("nist_norris.csv"))
    res = kavrel.fit_rls(frame["y"], frame["x"])
    np.testing.assert_allclose(res.params, [-0.262323073774029, 1.00211681802045], rtol=1e-9)
    np.testing.assert_allclose(res.bse, [0.232818234301152, 0.429796848199937e-03], rtol=1e-9)
    assert res.stats["sigma"] == pytest.approx(0.884796396144373, rel=1e-9)
    assert res.df_resid == len(frame) - 2
