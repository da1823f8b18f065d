"""Every way a fit can be asked wrongly: the exception and its words."""

import numpy as np
import pandas as pd
import pytest

import vexor
from conftest import DECAY, decay_data


def test_a_program_with_errors_raises_compile_error_with_the_lines():
    with pytest.raises(vexor.CompileError) as caught:
        vexor.fit("VARIABLES x, y;\nPARAMETERS a = 1;\nFUNCTION y = a * q;\nFUNCTION y = ;\n")
    e = caught.value
    assert isinstance(e, ValueError)
    assert str(e).startswith("the program did not compile (")
    assert e.messages[0] == (3, "Unrecognized word or variable: q")
    assert all(line in (3, 4) for line, _ in e.messages)
    assert "Error: Unrecognized word or variable: q" in e.report


def test_a_program_file_that_cannot_be_read():
    with pytest.raises(vexor.CompileError, match="Unable to open VEXOR source file: /no/such.vex"):
        import pathlib
        vexor.fit(pathlib.Path("/no/such.vex"))


@pytest.mark.parametrize("data, words", [
    (np.zeros((3, 3)), "data have 3 columns; the program's VARIABLES are t, counts: 2 columns wanted"),
    (np.zeros(5), r"data must be 2-D \(rows of t, counts\), not of shape \(5,\)"),
    (np.zeros((2, 2, 2)), "data must be 2-D"),
    ({"t": [1.0, 2.0]}, "the data have no column for variable 'counts' \\(columns: t\\)"),
    ({"t": [1.0, 2.0], "counts": [1.0]}, "column 'counts' has 1 values, the columns before it 2"),
    ({"t": [1.0, 2.0], "counts": ["a", "b"]}, "column 'counts': the values are not numbers"),
    ({"t": [[1.0], [2.0]], "counts": [1.0, 2.0]}, "column 't' must be 1-D"),
    ({"t": [1.0], "COUNTS": [2.0], "Counts": [1.0]},
     r"columns \['COUNTS', 'Counts'\] all name variable 'counts' \(names ignore case\)"),
    (pd.DataFrame({"time": [1.0], "counts": [2.0]}), "no column for variable 't' \\(columns: time, counts\\)"),
    ([["1", "x"]], "data: the values are not numbers"),
])
def test_data_that_do_not_fit_the_program_raise_value_error(data, words):
    with pytest.raises(ValueError, match=words):
        vexor.fit(DECAY, data)


def test_data_for_a_minimisation():
    with pytest.raises(ValueError, match="the program has no VARIABLES \\(a minimisation\\): it takes no data"):
        vexor.fit("PARAMETERS x = 1; FUNCTION (x - 2)^2;\n", [[1.0]])


def test_options():
    with pytest.raises(TypeError, match="unknown option\\(s\\) thread; the options are: "
                                        "bounded_errors, derivatives, report, threads, time_limit, vector_math"):
        vexor.fit(DECAY, decay_data(), thread=2)
    with pytest.raises(ValueError, match="threads must be a whole number from 0 \\(one per core\\) to 64, not 65"):
        vexor.fit(DECAY, decay_data(), threads=65)
    with pytest.raises(ValueError, match="derivatives must be 'forward' or 'exact', not 'central'"):
        vexor.fit(DECAY, decay_data(), derivatives="central")
    with pytest.raises(ValueError, match="time_limit must be 0 or more seconds"):
        vexor.fit(DECAY, decay_data(), time_limit=-1)
    with pytest.raises(TypeError, match="program must be the program's text or a path, not int"):
        vexor.fit(42)
    r = vexor.fit(DECAY, decay_data(), report=False)
    assert r.report == "" and r.converged


def test_points_that_do_not_fit_the_program():
    r = vexor.fit(DECAY, decay_data())
    with pytest.raises(ValueError, match="3 columns; the program's VARIABLES are t, counts: "
                                         "2 or 1 \\(without counts\\) columns wanted"):
        r.predict(np.zeros((2, 3)))
    with pytest.raises(ValueError, match="no column for variable 't'"):
        r.predict({"x": [1.0]})


def test_a_failed_fit_cannot_predict():
    bad = vexor.Result.failed("program", ValueError("no data"))
    assert bad.code is None and not bad.converged and bad.error == "no data"
    assert repr(bad) == "<vexor.Result failed: no data>"
    with pytest.raises(ValueError, match="this fit was not made: no data"):
        bad.predict([[1.0, 2.0]])
