"""The estimators and filters against independent computations: NIST certified regressions, brute-force
refits, the recursions written out from docs/garch.md, statsmodels' likelihoods, path enumeration of a
Markov chain, and closed forms of an AR(1)."""

import itertools

import numpy as np
import pandas as pd
import pytest
import statsmodels.api as sm
from scipy.stats import norm

import kavrel
from conftest import data_file

# NIST StRD certified values (as in tests/matrix/test_nist.cpp): coefficients, standard errors,
# residual standard deviation, relative tolerance.
NIST = [
    ("nist_norris.csv", [-0.262323073774029, 1.00211681802045], [0.232818234301152, 0.429796848199937e-03],
     0.884796396144373, 1e-9),
    # Longley's collinear design costs the updating recursion most of its digits: 4 are left.
    ("nist_longley.csv",
     [-3482258.63459582, 15.0618722713733, -0.358191792925910e-01, -2.02022980381683, -1.03322686717359,
      -0.511041056535807e-01, 1829.15146461355],
     [890420.383607373, 84.9149257747669, 0.334910077722432e-01, 0.488399681651699, 0.214274163161675,
      0.226073200069370, 455.478499142212],
     304.854073561965, 1e-3),
]


@pytest.mark.parametrize("name,coef,se,sd,tol", NIST)
def test_rls_full_sample_matches_nist_certified_values(name, coef, se, sd, tol):
    frame = pd.read_csv(data_file(name))
    y = frame["y"].to_numpy()
    X = np.column_stack([np.ones(len(frame)), frame.drop(columns="y").to_numpy()])
    n, k = X.shape
    out = kavrel.rls(y, X)
    sigma = np.sqrt(out["rss"][-1, 0] / (n - k))
    np.testing.assert_allclose(out["coef"][-1], coef, rtol=tol)
    np.testing.assert_allclose(sigma * np.sqrt(out["pdiag"][-1]), se, rtol=tol)
    assert sigma == pytest.approx(sd, rel=tol)


def test_rls_recursive_statistics_equal_refits_on_each_stretch(macro):
    y = macro["realcons"].to_numpy()
    X = np.column_stack([np.ones(len(y)), macro["realdpi"], macro["infl"]])
    out = kavrel.rls(y, X)
    for t in (3, 10, 49, 50, 51, 120, len(y) - 1):
        beta = np.linalg.lstsq(X[:t + 1], y[:t + 1], rcond=None)[0]
        before = np.linalg.lstsq(X[:t], y[:t], rcond=None)[0]
        resid = y[:t + 1] - X[:t + 1] @ beta
        np.testing.assert_allclose(out["coef"][t], beta, rtol=1e-8)
        assert out["innov"][t, 0] == pytest.approx(y[t] - X[t] @ before, rel=1e-7)
        assert out["rss"][t, 0] == pytest.approx(resid @ resid, rel=1e-8)
        assert out["resid"][t, 0] == pytest.approx(resid[-1], rel=1e-6, abs=1e-9)
    assert np.isnan(out["coef"][0, 0])


def test_rls_outputs_are_views_of_the_arrays_the_library_filled():
    rng = np.random.default_rng(3)
    X = rng.standard_normal((30, 2))
    out = kavrel.rls(X @ [1.0, 2.0], X)
    assert out["coef"].base is not None
    assert out["coef"].shape == (30, 2)
    assert not out["coef"].flags.c_contiguous


def garch_by_hand(e, x, alpha, beta, kappa=0.0, gamma=0.0, kind=0, delta=0.0):
    """h_t = x_t + sum alpha_i (u_{t-i} - kappa)^2 + sum beta_j h_{t-j}
    + [u_{t-1} < kappa] gamma (u_{t-1} - kappa)^2, unavailable lags the mean of e_t^2."""
    T, q, p = len(e), len(alpha), len(beta)
    s = np.mean(e * e)
    h, u = np.zeros(T), np.zeros(T)
    mean_term = {0: lambda v: 0.0, 1: lambda v: v, 2: np.sqrt, 3: np.log}[kind]
    for t in range(T):
        v = x[t]
        for i in range(1, q + 1):
            v += alpha[i - 1] * ((u[t - i] - kappa) ** 2 if t - i >= 0 else s)
        for j in range(1, p + 1):
            v += beta[j - 1] * (h[t - j] if t - j >= 0 else s)
        if t >= 1 and u[t - 1] < kappa and gamma != 0:
            v += gamma * (u[t - 1] - kappa) ** 2
        h[t] = v
        u[t] = e[t] - delta * mean_term(v)
    return h, u


GARCH_CASES = [
    # alpha, beta, kappa, gamma, in-mean kind, delta
    ([0.1], [0.85], 0.0, 0.0, 0, 0.0),
    ([0.05, 0.07], [0.6, 0.2], 0.0, 0.0, 0, 0.0),
    ([0.08], [0.8], 0.1, 0.15, 0, 0.0),
    ([0.1, 0.05, 0.02], [0.7], 0.0, 0.0, 2, 0.3),
    ([0.1], [0.5, 0.2, 0.1], 0.0, 0.1, 1, -0.2),
]


@pytest.mark.parametrize("alpha,beta,kappa,gamma,kind,delta", GARCH_CASES)
def test_garch_variance_follows_the_written_recursion(alpha, beta, kappa, gamma, kind, delta):
    rng = np.random.default_rng(11)
    e = rng.standard_normal(300)
    x = 0.05 + 0.01 * rng.uniform(size=300)
    p, q = len(beta), len(alpha)
    mx = max(p, q)
    phi = [(alpha[i - 1] if i <= q else 0.0) + (beta[i - 1] if i <= p else 0.0) for i in range(1, mx + 1)]
    coef = np.array([0.0] + phi + beta)
    h, u = kavrel.garch_variance(e, x, coef, p, q, in_mean=kind, delta=delta, kappa=kappa, gamma=gamma)
    h_ref, u_ref = garch_by_hand(e, x, alpha, beta, kappa, gamma, kind, delta)
    np.testing.assert_allclose(h, h_ref, rtol=1e-12)
    np.testing.assert_allclose(u, u_ref, rtol=1e-12, atol=1e-14)


@pytest.mark.parametrize("kind,delta", [(0, 0.0), (3, 0.2)])
def test_egarch_variance_follows_the_written_recursion(kind, delta):
    rng = np.random.default_rng(5)
    T = 200
    e = rng.standard_normal(T)
    theta, phi, nu, a, b = -0.1, 0.2, np.sqrt(2 / np.pi), 0.9, 0.95
    logh, u = kavrel.egarch_variance(e, -0.02, theta, phi, nu, [a], [b], in_mean=kind, delta=delta)
    lbar = np.log(np.mean(e * e))
    ref_l, ref_u, g = np.zeros(T), np.zeros(T), np.zeros(T)
    for t in range(T):
        s = -0.02 + (a * g[t - 1] if t >= 1 else 0.0) + b * (ref_l[t - 1] if t >= 1 else lbar)
        ref_l[t] = s if t < 1 else min(709.0, s)
        ref_u[t] = e[t] - (delta * ref_l[t] if kind == 3 else 0.0)
        z = np.exp(-ref_l[t] / 2) * ref_u[t]
        g[t] = phi * (abs(z) - nu) + theta * z
    np.testing.assert_allclose(logh, ref_l, rtol=1e-12, atol=1e-14)
    np.testing.assert_allclose(u, ref_u, rtol=1e-12, atol=1e-14)


def test_probit_likelihood_and_derivatives_match_statsmodels_and_the_closed_form(choice):
    X, y, _ = choice
    beta = np.array([0.1, 0.7, -0.4])
    w = np.linspace(0.5, 1.5, len(y))
    out = kavrel.probit(beta, y, X)
    model = sm.Probit(y, X)
    xb = X @ beta
    lam = norm.pdf(xb) ** 2 / (norm.cdf(xb) * norm.sf(xb))
    assert out["llf"] == pytest.approx(model.loglike(beta), rel=1e-12)
    np.testing.assert_allclose(out["score"], model.score(beta), rtol=1e-10)
    np.testing.assert_allclose(out["info"], (X * lam[:, None]).T @ X, rtol=1e-10)
    np.testing.assert_allclose(out["prob"][:, 1], norm.cdf(xb), rtol=1e-12)
    np.testing.assert_allclose(out["llf_obs"], model.loglikeobs(beta), rtol=1e-12)
    weighted = kavrel.probit(beta, y, X, weights=w)
    assert weighted["llf"] == pytest.approx(w @ model.loglikeobs(beta), rel=1e-12)


def test_multinomial_logit_matches_statsmodels(choice):
    X, _, y = choice
    rng = np.random.default_rng(2)
    params = rng.normal(scale=0.5, size=(X.shape[1], 2))  # statsmodels: one column per category
    beta = params.T.ravel()  # kavrel: category by category
    out = kavrel.logit(beta, y, 3, X=X)
    model = sm.MNLogit(y, X)
    assert out["llf"] == pytest.approx(model.loglike(params), rel=1e-12)
    np.testing.assert_allclose(out["score"], model.score(params), rtol=1e-9)
    np.testing.assert_allclose(out["info"], -model.hessian(params), rtol=1e-9)
    np.testing.assert_allclose(out["prob"], model.predict(params), rtol=1e-12)


def test_logit_probability_derivatives_equal_differences_of_the_probabilities(choice):
    X, _, y = choice
    beta = np.array([0.3, 0.5, -0.2, -0.1, 0.9, 0.4])
    D = kavrel.logit_prob_deriv(beta, X, 3)
    h = 1e-6
    for col in (1, 2):
        up, down = X.copy(), X.copy()
        up[:, col] += h
        down[:, col] -= h
        diff = (kavrel.logit(beta, y, 3, X=up)["prob"] - kavrel.logit(beta, y, 3, X=down)["prob"]) / (2 * h)
        np.testing.assert_allclose(D[:, col], diff.mean(axis=0), rtol=1e-6, atol=1e-9)


def test_actual_fitted_table_is_the_crosstab_of_actual_and_most_probable(choice):
    X, _, y = choice
    prob = kavrel.logit(np.array([0.3, 0.5, -0.2, -0.1, 0.9, 0.4]), y, 3, X=X)["prob"]
    table = kavrel.act_fit_table(y, prob)
    cross = pd.crosstab(y.astype(int), prob.argmax(axis=1), margins=True).reindex(
        index=[0, 1, 2, "All"], columns=[0, 1, 2, "All"], fill_value=0)
    np.testing.assert_array_equal(table, cross.to_numpy())


def test_count_likelihoods_match_statsmodels(counts):
    y = counts["count"].to_numpy(dtype=float)
    X = np.column_stack([np.ones(len(y)), counts[["x1", "x2"]].to_numpy()])
    beta, alpha = np.array([0.1, 0.3, -0.2]), 0.7
    poisson = kavrel.count(beta, y, X)
    model = sm.Poisson(y, X)
    assert poisson["llf"] == pytest.approx(model.loglike(beta), rel=1e-12)
    np.testing.assert_allclose(poisson["score"], model.score(beta), rtol=1e-10)
    np.testing.assert_allclose(poisson["info"], -model.hessian(beta), rtol=1e-10)
    np.testing.assert_allclose(poisson["fitted"][:, 0], np.exp(X @ beta), rtol=1e-12)
    # statsmodels takes log(alpha) last as kavrel does, but its Hessian's last row and column are
    # derivatives in alpha: d2l/dlog(alpha)^2 = alpha^2 d2l/dalpha^2 + dl/dlog(alpha).
    nb = sm.NegativeBinomial(y, X, loglike_method="nb2")
    theta = np.r_[beta, np.log(alpha)]
    nb2 = kavrel.count(theta, y, X, model="nb2")
    info = -nb.hessian(theta)
    info[:3, 3] *= alpha
    info[3, :3] *= alpha
    info[3, 3] = alpha ** 2 * info[3, 3] - nb.score(theta)[3]
    assert nb2["llf"] == pytest.approx(nb.loglike(theta), rel=1e-12)
    np.testing.assert_allclose(nb2["score"], nb.score(theta), rtol=1e-9)
    np.testing.assert_allclose(nb2["info"], info, rtol=1e-8)
    fixed = kavrel.count(beta, y, X, model="nb2_fixed", alpha=alpha)
    assert fixed["llf"] == pytest.approx(nb2["llf"], rel=1e-13)
    np.testing.assert_allclose(fixed["fitted"][:, 1], nb2["fitted"][:, 1], rtol=1e-13)


def test_markov_filter_and_smoother_equal_enumeration_of_every_regime_path():
    rng = np.random.default_rng(4)
    T, m = 7, 2
    dens = rng.uniform(0.1, 2.0, size=(T, m))
    P = np.array([[0.9, 0.3], [0.1, 0.7]])  # P[j, i] = Pr(next = j | now = i)
    init = np.array([0.6, 0.4])
    lik, filt = kavrel.ms_filter(dens, P, init)
    smooth, trans = kavrel.ms_smooth(filt, P)
    weight = {}
    for path in itertools.product(range(m), repeat=T):
        w = init[path[0]] * dens[0, path[0]]
        for t in range(1, T):
            w *= P[path[t], path[t - 1]] * dens[t, path[t]]
        weight[path] = w
    total = sum(weight.values())
    assert np.prod(lik) == pytest.approx(total, rel=1e-12)
    for t in range(T):
        marginal = np.zeros(m)
        for path, w in weight.items():
            marginal[path[t]] += w / total
        np.testing.assert_allclose(smooth[t], marginal, rtol=1e-10)
    joint = np.zeros((m, m))
    for path, w in weight.items():
        for t in range(T - 1):
            joint[path[t + 1], path[t]] += w / total
    np.testing.assert_allclose(trans, joint, rtol=1e-10)
    # Filtered probabilities: the first t + 1 densities alone.
    for t in range(T):
        filtered = np.zeros(m)
        for path in itertools.product(range(m), repeat=t + 1):
            w = init[path[0]] * dens[0, path[0]]
            for s in range(1, t + 1):
                w *= P[path[s], path[s - 1]] * dens[s, path[s]]
            filtered[path[t]] += w
        np.testing.assert_allclose(filt[t], filtered / filtered.sum(), rtol=1e-10)


def test_seasonal_tools_match_group_means():
    rng = np.random.default_rng(8)
    X = rng.standard_normal((23, 3)) + np.arange(23)[:, None] % 4
    season = np.arange(23) % 4
    expected = X - pd.DataFrame(X).groupby(season).transform("mean").to_numpy()
    np.testing.assert_allclose(kavrel.seasonal_demean(X, 4), expected, rtol=1e-12, atol=1e-14)
    own = X.copy()
    assert kavrel.seasonal_demean(own, 4, inplace=True) is not None
    np.testing.assert_allclose(own, expected, rtol=1e-12, atol=1e-14)
    y = np.cumsum(X[:, 0])
    d = np.diff(y)
    groups = np.arange(len(d)) % 4
    means = pd.Series(d).groupby(groups).mean().to_numpy()
    ssdsm = ((d - means[groups]) ** 2).sum()
    rsq, got_means = kavrel.seasonal_rsq(y, 4, 3.5)
    assert rsq == pytest.approx(1 - 3.5 / ssdsm, rel=1e-12)
    np.testing.assert_allclose(got_means, means, rtol=1e-12)


def test_long_run_covariance_is_the_bartlett_sum_of_score_products():
    rng = np.random.default_rng(9)
    T, k, m = 150, 2, 2
    X, U = rng.standard_normal((T, k)), rng.standard_normal((T, m))
    S = np.einsum("ta,te->tae", X, U).reshape(T, k * m)
    lag = kavrel.long_run_lag(T)
    expected = S.T @ S
    for lg in range(1, lag + 1):
        w = 1 - lg / (lag + 1)
        cross = S[lg:].T @ S[:-lg]
        expected += w * (cross + cross.T)
    assert lag == int(4 * (T / 100) ** (2 / 9))
    np.testing.assert_allclose(kavrel.long_run_covariance(X, U), expected, rtol=1e-12)
    np.testing.assert_allclose(kavrel.long_run_covariance(X, U, lag=0), S.T @ S, rtol=1e-12)


def test_forecasts_and_impulse_responses_of_an_ar1_equal_their_closed_forms():
    a, c, T = 0.7, 1.0, 20
    rng = np.random.default_rng(1)
    y = np.zeros(T)
    for t in range(1, T):
        y[t] = a * y[t - 1] + c + rng.standard_normal()
    reg = np.vstack([np.r_[np.nan, y[:-1]], np.ones(T)])
    system = (y[None, :], reg, [0, 0, 1], [1, 1, 0], [0, 1, 0], np.array([[a, c]]))
    f, se = kavrel.forecast(*system, 15, 19, omega=np.array([[2.0]]), se=True)
    h = np.arange(1, 6)
    np.testing.assert_allclose(f[0], a ** h * y[14] + c * (1 - a ** h) / (1 - a), rtol=1e-12)
    np.testing.assert_allclose(se[0], np.sqrt(2.0 * (1 - a ** (2 * h)) / (1 - a ** 2)), rtol=1e-12)
    response = kavrel.impulse_response(*system, 10, 14, 0, kind="sd", omega=np.array([[4.0]]))
    np.testing.assert_allclose(response[0], 2.0 * a ** np.arange(5), rtol=1e-12)


def test_inputs_of_other_types_and_layouts_are_converted_to_the_same_result(choice):
    X, y, _ = choice
    beta = [0.1, 0.7, -0.4]
    reference = kavrel.probit(np.array(beta), y, X)["llf"]
    strided = np.repeat(X, 2, axis=0)[::2]
    assert kavrel.probit(beta, y, np.asfortranarray(X))["llf"] == reference
    assert kavrel.probit(beta, y.astype(np.int64), X)["llf"] == reference
    assert kavrel.probit(tuple(beta), list(y), strided)["llf"] == reference
    assert kavrel.probit(beta, y, pd.DataFrame(X))["llf"] == reference
