"""What the package's tests share: the source tree, the command-line tool
and the object host built beside the package (passed by CTest through the
environment), and the programs and data they fit."""

import os
import subprocess

import numpy as np
import pytest

SOURCE = os.environ.get("VEXOR_SOURCE_DIR", os.path.join(os.path.dirname(__file__), "..", ".."))
EXAMPLES = os.path.join(SOURCE, "examples")

# The decay example without its DATA statement: the data come from the test.
DECAY = """TITLE "Decay of a counting sample";
VARIABLES t, counts;
PARAMETERS a = 1000, k = 0.3, bg = 50;
CONFIDENCE 95;
COVARIANCE;
FUNCTION counts = a * exp(-k * t) + bg;
"""


def decay_data():
    """The observations of examples/decay.vex, read from its DATA records."""
    text = open(os.path.join(EXAMPLES, "decay.vex")).read()
    rows = [line.split() for line in text.split("DATA;", 1)[1].strip().splitlines()]
    return np.array([[float(a), float(b)] for a, b in rows])


def tool(*args, cwd=None):
    exe = os.environ.get("VEXOR_CLI")
    if not exe:
        pytest.skip("VEXOR_CLI is not set (run through ctest)")
    return subprocess.run([exe, *args], capture_output=True, text=True, cwd=cwd)


def evalhost(program, points):
    exe = os.environ.get("VEXOR_EVALHOST")
    if not exe:
        pytest.skip("VEXOR_EVALHOST is not set (run through ctest)")
    text = "".join(" ".join(repr(float(x)) for x in row) + "\n" for row in points)
    out = subprocess.run([exe, program], input=text, capture_output=True, text=True, check=True).stdout
    return np.array([float(v) for v in out.split()])


def logistic_sets(count, seed=7):
    """`count` four-parameter logistic dose-response curves of 12 points,
    each with its own true parameters and noise."""
    rng = np.random.default_rng(seed)
    dose = np.logspace(-2, 2, 12)
    sets = []
    for _ in range(count):
        bottom, top = rng.uniform(0, 10), rng.uniform(90, 110)
        ec50, hill = 10 ** rng.uniform(-1, 1), rng.uniform(0.7, 2.0)
        y = bottom + (top - bottom) / (1 + (ec50 / dose) ** hill)
        sets.append({"dose": dose, "response": y + rng.normal(0, 2.0, dose.size)})
    return sets


LOGISTIC = """VARIABLES dose, response;
PARAMETERS bottom = 0, top = 100, ec50 = 1, hill = 1;
FUNCTION response = bottom + (top - bottom) / (1 + (ec50 / dose)^hill);
"""
