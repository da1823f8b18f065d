"""VEXOR, SciPy and R on the same fits in one run.

Models: y = a exp(-b x) + c sin(d x) (true 3, 0.4, 1.5, 2.2; start 1, 1, 1,
2) and y = a exp(-b x) (true 3, 0.4; start 1, 1); x uniform on [0, 10],
Gaussian noise of sd 0.1, seeded.  For each model and n:

  VEXOR   the whole `vexor run` process on a program reading a text data
          file (reading, fitting, statistics, listing), with --vector-math
          and without (threads: one per core);
  SciPy   scipy.optimize.least_squares(method="lm") on the same data, the
          fit alone (the data already in NumPy arrays);
  R       nls(algorithm = "port"), the fit alone (when Rscript is there).

Seconds, function evaluations, nanoseconds per observation and evaluation,
and the peak resident memory of each process; then the ratios.

    /usr/bin/python3 bench/compare/sidebyside.py VEXOR [--sizes 1000,100000,1000000,10000000] [--repeat N]

With --repeat N each VEXOR variant and SciPy run N times in turn and the
median time is reported (R runs once).
"""

import argparse
import json
import os
import shutil
import subprocess
import sys
import tempfile
import time

import numpy as np

MODELS = {
    "expsin": dict(params=["a", "b", "c", "d"], start=[1.0, 1.0, 1.0, 2.0], true=[3.0, 0.4, 1.5, 2.2],
                   vexor="a * exp(-b * x) + c * sin(d * x)", numpy="p[0]*np.exp(-p[1]*x)+p[2]*np.sin(p[3]*x)",
                   r="a * exp(-b * x) + c * sin(d * x)"),
    "exp": dict(params=["a", "b"], start=[1.0, 1.0], true=[3.0, 0.4], vexor="a * exp(-b * x)",
                numpy="p[0]*np.exp(-p[1]*x)", r="a * exp(-b * x)"),
}

SCIPY = r"""
import sys, time, numpy as np
from scipy.optimize import least_squares
n, path, expr, start = int(sys.argv[1]), sys.argv[2], sys.argv[3], [float(v) for v in sys.argv[4].split(",")]
v = np.fromfile(path, dtype=np.float64).reshape(n, 2)
x, y = v[:, 0].copy(), v[:, 1].copy()
f = eval("lambda p: " + expr + " - y")
t0 = time.perf_counter()
r = least_squares(f, start, method="lm")
t = time.perf_counter() - t0
print(t, r.nfev, " ".join(repr(float(p)) for p in r.x))
"""

RSCRIPT = r"""
args <- commandArgs(trailingOnly = TRUE)
n <- as.integer(args[1]); con <- file(args[2], "rb"); v <- readBin(con, "double", n = 2 * n); close(con)
d <- data.frame(x = v[seq(1, 2 * n, 2)], y = v[seq(2, 2 * n, 2)])
start <- as.list(setNames(as.numeric(strsplit(args[4], ",")[[1]]), strsplit(args[5], ",")[[1]]))
t0 <- proc.time()[["elapsed"]]
m <- nls(as.formula(paste("y ~", args[3])), data = d, start = start, algorithm = "port")
t <- proc.time()[["elapsed"]] - t0
cat(t, m$convInfo$finIter, paste(format(coef(m), digits = 17), collapse = " "), "\n")
"""




def peak(cmd):
    """Runs cmd under /usr/bin/time for its peak resident memory (MB):
    (MB, stdout, the last line of stderr before time's)."""
    p = subprocess.run(["/usr/bin/time", "-f", "%M"] + cmd, capture_output=True, text=True)
    lines = p.stderr.strip().splitlines()
    return int(lines[-1]) / 1024.0, p.stdout, next(
        (l for l in reversed(lines[:-1]) if l.strip() and not l.startswith(("Command exited", "Execution halted"))), "")


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("vexor")
    ap.add_argument("--sizes", default="1000,100000,1000000,10000000")
    ap.add_argument("--models", default="expsin,exp")
    ap.add_argument("--repeat", type=int, default=1,
                    help="runs of each VEXOR variant and of SciPy, taken in turn; the median time is reported")
    args = ap.parse_args()
    sizes = [int(float(s)) for s in args.sizes.split(",")]
    rscript = shutil.which("Rscript")
    work = tempfile.mkdtemp(prefix="vexor-compare-")
    rows = []
    try:
        for name in args.models.split(","):
            m = MODELS[name]
            for n in sizes:
                rng = np.random.default_rng(20261124 + n)
                x = rng.uniform(0, 10, n)
                p = m["true"]
                y = eval(m["numpy"], {"np": np, "p": p, "x": x}) + rng.normal(0, 0.1, n)
                binpath = os.path.join(work, "d.bin")
                np.column_stack([x, y]).tofile(binpath)
                datpath = os.path.join(work, "d.dat")
                np.savetxt(datpath, np.column_stack([x, y]), fmt="%.17g")
                prog = os.path.join(work, "fit.vex")
                with open(prog, "w") as f:
                    f.write(f"VARIABLES x, y;\nPARAMETERS {', '.join(f'{k} = {v}' for k, v in zip(m['params'], m['start']))};\n"
                            f"FUNCTION y = {m['vexor']};\nDATA \"{datpath}\";\n")
                row = {"model": name, "n": n}
                times = {}
                # Each round runs every VEXOR variant and SciPy once, so that
                # a slow spell of the machine falls on all of them.
                for _ in range(max(args.repeat, 1)):
                    for label, extra in (("vexor", []), ("vexor_vm", ["--vector-math"]),
                                         ("vexor_ex", ["--derivatives", "exact"]),
                                         ("vexor_exvm", ["--derivatives", "exact", "--vector-math"])):
                        t0 = time.perf_counter()
                        mb, out, rc = peak([args.vexor, "run", "--format", "json"] + extra + [prog])
                        wall = time.perf_counter() - t0
                        doc = json.loads(out)
                        row[label] = dict(s=wall, evals=doc["result"]["evaluations"], mb=mb,
                                          est=[q["estimate"] for q in doc["parameters"]])
                        times.setdefault(label, []).append(wall)
                    mb, out, rc = peak([sys.executable, "-c", SCIPY, str(n), binpath, m["numpy"],
                                        ",".join(map(str, m["start"]))])
                    fields = out.split()
                    row["scipy"] = dict(s=float(fields[0]), evals=int(fields[1]), mb=mb,
                                        est=[float(v) for v in fields[2:]])
                    times.setdefault("scipy", []).append(float(fields[0]))
                for label, ts in times.items():
                    row[label]["s"] = sorted(ts)[len(ts) // 2]
                if rscript:
                    mb, out, rc = peak([rscript, "-e", RSCRIPT, str(n), binpath, m["r"],
                                        ",".join(map(str, m["start"])), ",".join(m["params"])])
                    fields = out.split()
                    row["r"] = dict(s=float(fields[0]), evals=int(fields[1]), mb=mb,
                                    est=[float(v) for v in fields[2:]]) if fields else dict(failed=rc.strip())
                rows.append(row)
                report(row)
    finally:
        shutil.rmtree(work, ignore_errors=True)


def report(row):
    n = row["n"]
    print(f"\n{row['model']}, n = {n:,}")
    print(f"  {'':34s} {'seconds':>9s} {'evals':>6s} {'ns/obs-eval':>12s} {'peak MB':>8s}")
    labels = {"vexor": "VEXOR, whole process", "vexor_vm": "VEXOR --vector-math, whole process",
              "vexor_ex": "VEXOR --derivatives exact, whole",
              "vexor_exvm": "VEXOR exact + vector math, whole",
              "scipy": "SciPy least_squares lm, fit", "r": "R nls port, fit (evals: iterations)"}
    for key in ("vexor", "vexor_vm", "vexor_ex", "vexor_exvm", "scipy", "r"):
        r = row.get(key)
        if not r:
            continue
        if "failed" in r:
            print(f"  {labels[key]:34s} failed: {r['failed']}")
            continue
        print(f"  {labels[key]:34s} {r['s']:9.3f} {r['evals']:6d} {r['s'] * 1e9 / (n * max(r['evals'], 1)):12.1f} "
              f"{r['mb']:8.0f}")
    s = row["scipy"]["s"]
    line = (f"  VEXOR / SciPy: {row['vexor']['s'] / s:.2f} (default), {row['vexor_vm']['s'] / s:.2f} (vector math), "
            f"{row['vexor_exvm']['s'] / s:.2f} (exact + vector math)")
    if row.get("r") and "failed" not in row["r"]:
        line += f"; VEXOR / R: {row['vexor']['s'] / row['r']['s']:.2f}, {row['vexor_vm']['s'] / row['r']['s']:.2f}"
    print(line)
    worst = max(abs(a - b) / abs(b) for a, b in zip(row["vexor"]["est"], row["scipy"]["est"]))
    print(f"  estimates: VEXOR and SciPy agree to {worst:.1e} relative")


if __name__ == "__main__":
    main()
