#!/usr/bin/env python3
"""GARCH(1,1) fits of many return series, spread over a dask.distributed cluster.

Simulates --series GARCH(1,1) series of --length observations, fits each with kavrel.fit_garch on
the workers of a LocalCluster, once with each worker count of --workers, and prints the
throughput. Series travel in chunks of --chunk so that the scheduler's cost per task (about a
millisecond) stays small against the fits (a few milliseconds each).

    PYTHONPATH=build/release/python /usr/bin/python3 examples/dask_batch.py --series 2000

On a real cluster the same code runs unchanged against its scheduler: start `dask scheduler` on
one machine and `dask worker tcp://SCHEDULER:8786` on the others, each worker with the kavrel
package importable (the same build on PYTHONPATH, or installed into the interpreter's path), and
pass --scheduler tcp://SCHEDULER:8786: fit_batch then goes to Client(address) instead of a
LocalCluster, and its throughput grows with the workers the scheduler has.
"""

import argparse
import time

import numpy as np
from dask.distributed import Client, LocalCluster

# The parameters of the simulated series: mu, omega, alpha, beta.
TRUE_PARAMS = np.array([0.0, 0.05, 0.08, 0.9])


def simulate(count, length, seed=1):
    """count x length GARCH(1,1) returns with normal innovations, after a burn-in of 200."""
    rng = np.random.default_rng(seed)
    mu, omega, alpha, beta = TRUE_PARAMS
    h = np.full(count, omega / (1 - alpha - beta))
    e = np.zeros(count)
    out = np.empty((count, length))
    for t in range(-200, length):
        h = omega + alpha * e * e + beta * h
        e = np.sqrt(h) * rng.standard_normal(count)
        if t >= 0:
            out[:, t] = mu + e
    return out


def fit_chunk(chunk):
    """One row per series: mu, omega, alpha1, beta1, log-likelihood, converged (1 or 0)."""
    import kavrel
    rows = []
    for y in chunk:
        res = kavrel.fit_garch(y)
        rows.append(np.r_[res.params.to_numpy(), res.llf, float(res.converged)])
    return np.array(rows)


def fit_batch(client, series, chunk=25):
    """Fits of every row of series on the client's workers, in order."""
    pieces = [series[i:i + chunk] for i in range(0, len(series), chunk)]
    futures = client.map(fit_chunk, client.scatter(pieces))
    return np.vstack(client.gather(futures))


def timed_run(client, series, chunk):
    # Warm-up: every worker imports kavrel and numpy before the clock starts.
    client.run(lambda: __import__("kavrel") and None)
    start = time.perf_counter()
    results = fit_batch(client, series, chunk)
    return results, time.perf_counter() - start


def report(label, results, seconds):
    converged = int(results[:, 5].sum())
    mean = results[:, :4].mean(axis=0)
    print("{}: {} fits in {:.2f} s, {:.1f} fits/s; {} converged; mean estimates {}".format(
        label, len(results), seconds, len(results) / seconds, converged, np.array2string(mean, precision=4)))


def main(argv=None):
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("--series", type=int, default=2000, help="number of series (default 2000)")
    parser.add_argument("--length", type=int, default=1000, help="observations per series (default 1000)")
    parser.add_argument("--chunk", type=int, default=25, help="series per task (default 25)")
    parser.add_argument("--workers", default="1,2", help="worker counts of the local clusters (default 1,2)")
    parser.add_argument("--scheduler", help="address of a running scheduler (tcp://host:8786) instead")
    args = parser.parse_args(argv)
    series = simulate(args.series, args.length)
    print("{} GARCH(1,1) series of {} observations, true parameters {}".format(
        args.series, args.length, TRUE_PARAMS))
    if args.scheduler:
        with Client(args.scheduler) as client:
            workers = len(client.scheduler_info()["workers"])
            results, seconds = timed_run(client, series, args.chunk)
            report("scheduler {} ({} workers)".format(args.scheduler, workers), results, seconds)
        return 0
    for n in [int(w) for w in args.workers.split(",")]:
        with LocalCluster(n_workers=n, threads_per_worker=1, processes=True, host="127.0.0.1",
                          dashboard_address=None) as cluster, Client(cluster) as client:
            results, seconds = timed_run(client, series, args.chunk)
            report("{} worker{}".format(n, "" if n == 1 else "s"), results, seconds)
    return 0


if __name__ == "__main__":
    raise SystemExit(main())
