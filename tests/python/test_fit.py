"""vexor.fit: the same numbers as the command line and the analysis object,
from every form of data, and every field of the result."""

import glob
import json
import math
import os
import pickle
import shutil

import numpy as np
import pandas as pd
import pytest

import vexor
from conftest import DECAY, EXAMPLES, decay_data, evalhost, tool


def examples():
    return sorted(glob.glob(os.path.join(EXAMPLES, "*.vex")))


@pytest.mark.parametrize("path", examples(), ids=os.path.basename)
def test_examples_give_the_command_lines_numbers_to_the_last_bit(path, tmp_path):
    # Each run in a copy of the examples folder: some read data files beside
    # them, some write output files.
    for f in glob.glob(os.path.join(EXAMPLES, "*.*")):
        shutil.copy(f, tmp_path)
    path = os.path.basename(path)
    run = tool("run", "--format", "json", path, cwd=tmp_path)
    assert run.returncode in (0, 1), run.stderr
    want = json.loads(run.stdout)
    cwd = os.getcwd()
    os.chdir(tmp_path)
    try:
        r = vexor.fit(path)
    finally:
        os.chdir(cwd)
    assert r.code == want["result"]["code"]
    assert r.message == want["result"]["stop_reason"]
    assert r.statistics["iterations"] == want["result"]["iterations"]
    assert r.statistics["evaluations"] == want["result"]["evaluations"]
    assert list(r.params) == [p["name"] for p in want["parameters"]]
    for p in want["parameters"]:
        assert r.params[p["name"]] == p["estimate"]          # exactly: JSON round-trips
        assert r.starts[p["name"]] == p["start"]
        if p.get("std_error") is not None:
            assert r.stderr[p["name"]] == p["std_error"]
            assert r.tvalues[p["name"]] == p["t"]
            assert r.pvalues[p["name"]] == p["prob_t"]
        else:
            assert math.isnan(r.stderr[p["name"]])
        if p.get("lower") is not None:
            assert r.conf_int[p["name"]] == (p["lower"], p["upper"])


def test_every_form_of_data_gives_the_same_fit():
    d = decay_data()
    own = vexor.fit(os.path.join(EXAMPLES, "decay.vex"))
    array = vexor.fit(DECAY, d)
    listed = vexor.fit(DECAY, d.tolist())
    mapping = vexor.fit(DECAY, {"counts": d[:, 1], "T": d[:, 0], "unused": np.zeros(len(d))})
    frame = vexor.fit(DECAY, pd.DataFrame({"note": ["x"] * len(d), "counts": d[:, 1], "t": d[:, 0]}))
    for r in (array, listed, mapping, frame):
        assert r.params == own.params
        assert r.stderr == own.stderr
        assert r.statistics["sse"] == own.statistics["sse"]
        np.testing.assert_array_equal(r.predicted, own.predicted)


def test_the_result_holds_every_figure_of_the_fit():
    r = vexor.fit(DECAY + "CORRELATE t, counts;\n", decay_data())
    assert r.code == 4 and r.converged and r.error is None
    assert r.message == "Relative function convergence."
    assert list(r.params) == ["a", "k", "bg"]
    assert r.covariance.shape == (3, 3)
    np.testing.assert_array_equal(r.covariance, r.covariance.T)
    for i, name in enumerate(r.params):
        assert math.sqrt(r.covariance[i, i]) == pytest.approx(r.stderr[name], rel=1e-12)
        assert r.tvalues[name] == pytest.approx(r.params[name] / r.stderr[name], rel=1e-12)
        lo, hi = r.conf_int[name]
        assert lo < r.params[name] < hi
    assert r.correlation_names == ["t", "counts"]
    assert r.correlation.shape == (2, 2) and r.correlation[0, 0] == pytest.approx(1.0)
    s = r.statistics
    assert s["n"] == 12 and s["df"] == 9
    assert s["sse"] == pytest.approx(float(np.sum(r.residuals ** 2)), rel=1e-12)
    assert s["stderr"] == pytest.approx(math.sqrt(s["sse"] / 9), rel=1e-12)
    assert 0.999 < s["r2"] < 1 and s["adj_r2"] < s["r2"]
    np.testing.assert_array_equal(r.residuals, r.observed - r.predicted)
    np.testing.assert_array_equal(r.observed, decay_data()[:, 1])
    assert "\r" not in r.report and "Final Results" in r.report
    assert r.report.startswith('   1: TITLE "Decay of a counting sample";\n')
    assert repr(r).startswith("<vexor.Result code=4 (Relative function convergence): a=969.202, k=0.363504")
    back = pickle.loads(pickle.dumps(r))
    assert back.params == r.params and back.report == r.report


def test_predict_is_the_objects_evaluate_function(tmp_path):
    program = tmp_path / "decay.vex"
    program.write_text(open(os.path.join(EXAMPLES, "decay.vex")).read())
    points = np.array([[0.0, 0.0], [0.25, 0.0], [2.5, 0.0], [7.0, 0.0], [20.0, 0.0], [-3.0, 0.0]])
    want = evalhost(str(program), points)
    r = vexor.fit(str(program))
    np.testing.assert_array_equal(r.predict(points), want)
    np.testing.assert_array_equal(r.predict(points[:, :1]), want)          # without the dependent
    np.testing.assert_array_equal(r.predict({"t": points[:, 0]}), want)
    np.testing.assert_array_equal(r.predict(pd.DataFrame({"t": points[:, 0]})), want)
    # After another program has taken the engine, the same values.
    vexor.fit("PARAMETERS x = 1; FUNCTION (x - 2)^2;\n")
    np.testing.assert_array_equal(r.predict(points), want)
    # And from a copy that travelled through pickle.
    np.testing.assert_array_equal(pickle.loads(pickle.dumps(r)).predict(points), want)


def test_a_point_where_the_program_fails_predicts_nan():
    r = vexor.fit("VARIABLES x, y; PARAMETERS a = 1;\nFUNCTION y = a * sqrt(x);\n",
                  {"x": [1.0, 4.0, 9.0], "y": [1.1, 2.0, 2.9]})
    p = r.predict({"x": [4.0, -1.0]})
    assert p[0] == pytest.approx(2 * r.params["a"]) and math.isnan(p[1])


def test_a_minimisation_has_no_residuals():
    r = vexor.fit(os.path.join(EXAMPLES, "minimize.vex"))
    assert r.converged
    assert r.residuals is None and r.predicted is None
    with pytest.raises(ValueError, match="minimisation"):
        r.predict([[1.0]])


def test_a_bounded_fit_has_no_standard_errors():
    r = vexor.fit(DECAY.replace("COVARIANCE;", "CONSTRAIN k = 0, 0.3;\n"), decay_data())
    assert r.params["k"] == 0.3
    assert all(math.isnan(v) for v in r.stderr.values())
    assert r.covariance is None


def test_the_time_limit_stops_an_endless_program():
    r = vexor.fit("VARIABLES x, y; PARAMETERS a = 1; DOUBLE i;\nWHILE (1) i = i + 1;\nFUNCTION y = a * x;\n",
                  [[1, 1], [2, 2]], time_limit=0.2)
    assert r.code == -10 and not r.converged


def test_fewer_observations_than_parameters():
    r = vexor.fit(DECAY, decay_data()[:2])
    assert r.code == -7 and not r.converged
    assert r.message == "no fit was made (the report says why)"
    assert "Fewer data observations than parameters" in r.report


def test_threads_take_turns_at_the_engine():
    import threading
    want = vexor.fit(DECAY, decay_data()).params
    got, errors = [], []

    def work():
        try:
            for _ in range(20):
                got.append(vexor.fit(DECAY, decay_data()).params)
                vexor.fit("PARAMETERS x = 1; FUNCTION (x - 2)^2;\n")
        except Exception as err:  # pragma: no cover - reported below
            errors.append(err)

    threads = [threading.Thread(target=work) for _ in range(3)]
    for t in threads:
        t.start()
    for t in threads:
        t.join()
    assert not errors and len(got) == 60 and all(g == want for g in got)


def test_threads_and_vector_math():
    big = {"x": np.linspace(0, 10, 20000)}
    big["y"] = 3 * np.exp(-0.4 * big["x"]) + 1.5 * np.sin(2.2 * big["x"]) + 0.1 * np.sin(91.0 * np.arange(20000))
    program = "VARIABLES x, y; PARAMETERS a = 1, b = 1, c = 1, d = 2;\nFUNCTION y = a * exp(-b * x) + c * sin(d * x);\n"
    one = vexor.fit(program, big, threads=1)
    for n in (2, 7):
        many = vexor.fit(program, big, threads=n)
        assert many.params == one.params and many.report.split("Analysis completed")[0] == \
            one.report.split("Analysis completed")[0]
    fast = vexor.fit(program, big, vector_math=True)
    for k, v in one.params.items():
        assert abs(fast.params[k] - v) <= 1e-3 * one.stderr[k]


def test_exact_derivatives_and_bounded_errors_are_the_command_lines(tmp_path):
    # The same numbers as vexor run with the same options, to the last bit.
    program = tmp_path / "fit.vex"
    program.write_text(DECAY.replace("COVARIANCE;", "CONSTRAIN k = 0, 0.3;\n") + "DATA;\n" +
                       "".join(f"{t} {c}\n" for t, c in decay_data()))
    for options, kwargs in ((["--derivatives", "exact"], {"derivatives": "exact"}),
                            (["--bounded-errors"], {"bounded_errors": True}),
                            (["--derivatives=exact", "--bounded-errors"], {"derivatives": "exact", "bounded_errors": True})):
        run = tool("run", "--format", "json", *options, str(program), cwd=tmp_path)
        assert run.returncode == 0, run.stderr
        want = json.loads(run.stdout)
        r = vexor.fit(str(program), **kwargs)
        assert r.statistics["evaluations"] == want["result"]["evaluations"]
        for p in want["parameters"]:
            assert r.params[p["name"]] == p["estimate"]
            if p.get("std_error") is not None:
                assert r.stderr[p["name"]] == p["std_error"]
    # k is held at 0.3: it has no standard error (0), the others have theirs.
    r = vexor.fit(str(program), bounded_errors=True)
    assert r.params["k"] == 0.3 and r.stderr["k"] == 0.0
    assert all(v > 0 for k, v in r.stderr.items() if k != "k")
    assert r.differenced == ""


def test_a_column_without_a_derivative_rule_is_named():
    r = vexor.fit("VARIABLES x, y; PARAMETERS a = 0.5, b = 1;\nFUNCTION y = EI1(a, x) * b;\n",
                  [[0.1, 0.2], [0.5, 0.6], [1, 1.3], [1.2, 1.7]], derivatives="exact")
    assert r.converged
    assert r.differenced == "a: EI1 has no derivative rule for its argument 1"
    assert vexor.fit(DECAY, decay_data(), derivatives="exact").differenced == ""
