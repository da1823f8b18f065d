"""The Python package's costs, side by side in one run:

1. vexor.fit of one 12-point four-parameter logistic fit, against the same
   fit through the C interface in C++ (capi_bench's BM_LogisticFit, run by
   bench/python/run and passed here): the overhead of Python.
2. 1,000,000 rows of 2 columns handed to the engine from a NumPy array,
   against numpy.copy of the same array.
3. fit_many of 10,000 logistic fits of 12 points, against a loop of SciPy's
   curve_fit on the same data (from the same starting values), and a loop of
   vexor.fit in this process.

    /usr/bin/python3 bench/python/compare.py [--cxx-us N] [--fits 10000]
"""

import argparse
import math
import os
import sys
import time
import timeit

import numpy as np

sys.path.insert(0, os.path.join(os.path.dirname(__file__), "..", "..", "tests", "python"))
import vexor  # noqa: E402
from conftest import LOGISTIC, logistic_sets  # noqa: E402


def best(fn, number, repeat=7):
    return min(timeit.repeat(fn, number=number, repeat=repeat)) / number


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--cxx-us", type=float, default=None, help="BM_LogisticFit time in microseconds")
    ap.add_argument("--fits", type=int, default=10000)
    args = ap.parse_args()

    # The points of capi_bench's BM_LogisticFit, computed alike (C's pow and
    # sin through math), so that both make the same iterations.
    dose = [math.pow(10.0, -2.0 + 4.0 * i / 11.0) for i in range(12)]
    one = {"dose": np.array(dose),
           "response": np.array([3.0 + 97.0 / (1.0 + math.pow(2.0 / d, 1.3)) + 1.5 * math.sin(7.0 * i)
                                 for i, d in enumerate(dose)])}
    array = np.column_stack([one["dose"], one["response"]])
    r = vexor.fit(LOGISTIC, array)
    print(f"   (the fit: code {r.code}, {r.statistics['iterations']} iterations, "
          f"{r.statistics['evaluations']} evaluations)")
    t_array = best(lambda: vexor.fit(LOGISTIC, array), 2000)
    t_dict = best(lambda: vexor.fit(LOGISTIC, one), 2000)
    from vexor import _engine
    eng = _engine._engine

    def raw():
        eng.compile(LOGISTIC, False)
        eng.program()
        eng.set_data(array)
        eng.compute(0.0)
        return eng.results(True)
    t_raw = best(raw, 2000)
    import pandas as pd
    frame = pd.DataFrame(one)
    t_frame = best(lambda: vexor.fit(LOGISTIC, frame), 2000)
    print("1. one 12-point logistic fit")
    print(f"   vexor.fit(array)      {t_array * 1e6:8.1f} us")
    print(f"   vexor.fit(dict)       {t_dict * 1e6:8.1f} us")
    print(f"   vexor.fit(DataFrame)  {t_frame * 1e6:8.1f} us")
    print(f"   the extension's calls {t_raw * 1e6:8.1f} us (what fit calls, without the package's Python)")
    print(f"   the package's Python  {(t_array - t_raw) * 1e6:8.1f} us (array)")
    if args.cxx_us is not None:
        print(f"   C interface in C++    {args.cxx_us:8.1f} us")
        print(f"   overhead of Python    {t_array * 1e6 - args.cxx_us:8.1f} us (array), "
              f"{t_dict * 1e6 - args.cxx_us:.1f} us (dict), {t_frame * 1e6 - args.cxx_us:.1f} us (DataFrame)")

    big = np.random.default_rng(1).random((1_000_000, 2))
    _engine._compile("VARIABLES x, y; PARAMETERS a = 1; FUNCTION y = a * x;\n", False)
    t_set = best(lambda: _engine._engine.set_data(big), 20)
    t_copy = best(lambda: np.copy(big), 20)
    print("2. 1,000,000 rows x 2 columns (16 MB) into the engine")
    print(f"   set_data              {t_set * 1e3:8.3f} ms  ({big.nbytes / t_set / 1e9:.1f} GB/s)")
    print(f"   numpy.copy            {t_copy * 1e3:8.3f} ms  ({big.nbytes / t_copy / 1e9:.1f} GB/s)")

    sets = logistic_sets(args.fits, seed=11)
    print(f"3. {args.fits} logistic fits of 12 points ({os.cpu_count()} cores)")
    t0 = time.perf_counter()
    many = vexor.fit_many(LOGISTIC, sets)
    t_many = time.perf_counter() - t0
    t0 = time.perf_counter()
    loop = [vexor.fit(LOGISTIC, d) for d in sets]
    t_loop = time.perf_counter() - t0
    try:
        from scipy.optimize import curve_fit
    except ImportError:
        curve_fit = None

    def logistic(x, bottom, top, ec50, hill):
        return bottom + (top - bottom) / (1 + (ec50 / x) ** hill)

    t_scipy, scipy_ok = None, 0
    if curve_fit is not None:
        import warnings
        t0 = time.perf_counter()
        with warnings.catch_warnings():
            warnings.simplefilter("ignore")
            for d in sets:
                try:
                    curve_fit(logistic, d["dose"], d["response"], p0=[0, 100, 1, 1], maxfev=2000)
                    scipy_ok += 1
                except RuntimeError:
                    pass
        t_scipy = time.perf_counter() - t0
    converged = sum(r.converged for r in many)
    assert [r.params for r in many] == [r.params for r in loop]
    print(f"   vexor.fit_many        {t_many:8.2f} s  {args.fits / t_many:8.0f} fits/s  ({converged} converged)")
    print(f"   vexor.fit loop        {t_loop:8.2f} s  {args.fits / t_loop:8.0f} fits/s")
    if t_scipy is not None:
        print(f"   scipy curve_fit loop  {t_scipy:8.2f} s  {args.fits / t_scipy:8.0f} fits/s  ({scipy_ok} without error)")
        print(f"   fit_many / curve_fit: {t_scipy / t_many:.1f}x the throughput; fit loop / curve_fit: "
              f"{t_scipy / t_loop:.1f}x")


if __name__ == "__main__":
    main()
