#!/usr/bin/env python3
"""The Python module's cost per call on small data (T = 100): each call of bench/small_calls.cpp
timed through kavrel, against the same routine timed by that C++ benchmark (best of several
runs of each, wall-clock time per call).

    PYTHONPATH=build/release/python /usr/bin/python3 bench/python_overhead.py build/release/bench_small_calls
"""

import json
import subprocess
import sys
import timeit

import numpy as np

import kavrel

T = 100


def normals(shape, seed):
    return np.random.default_rng(seed).standard_normal(shape)


def calls():
    e, x, coef = normals(T, 1), np.full(T, 0.05), np.array([0.0, 0.95, 0.85])
    X = normals((T, 3), 2)
    X[:, 0] = 1.0
    y = (X[:, 1] > 0).astype(float)
    beta = np.array([0.1, 0.5, -0.3])
    dens = normals((T, 2), 3) ** 2 + 0.1
    P, init = np.array([[0.9, 0.2], [0.1, 0.8]]), np.array([0.5, 0.5])
    yr = normals(T, 5)
    return {
        "BM_GarchVariance100": lambda: kavrel.garch_variance(e, x, coef, 1, 1),
        "BM_Probit100": lambda: kavrel.probit(beta, y, X),
        "BM_MsFilter100": lambda: kavrel.ms_filter(dens, P, init),
        "BM_Rls100": lambda: kavrel.rls(yr, X),
    }


def python_times(repeat=7):
    times = {}
    for name, call in calls().items():
        number = max(1000, int(0.2 / max(timeit.timeit(call, number=100) / 100, 1e-9)))
        times[name] = min(timeit.repeat(call, number=number, repeat=repeat)) / number * 1e9
    return times


def cpp_times(binary):
    run = subprocess.run([binary, "--benchmark_format=json", "--benchmark_repetitions=5"], capture_output=True,
                         text=True, check=True)
    times = {}
    for row in json.loads(run.stdout)["benchmarks"]:
        if row.get("run_type") == "iteration":
            name = row["run_name"]
            times[name] = min(times.get(name, float("inf")), row["real_time"])
    return times


def main(argv):
    py = python_times()
    cpp = cpp_times(argv[1]) if len(argv) > 1 else {}
    print("{:<22}{:>14}{:>14}{:>14}".format("call (T = 100)", "C++ ns", "Python ns", "overhead ns"))
    for name, t in py.items():
        c = cpp.get(name)
        print("{:<22}{:>14}{:>14.0f}{:>14}".format(name, "-" if c is None else "{:.0f}".format(c), t,
                                                   "-" if c is None else "{:.0f}".format(t - c)))
    return 0


if __name__ == "__main__":
    raise SystemExit(main(sys.argv))
