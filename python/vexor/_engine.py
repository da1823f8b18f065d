"""The engine of this process and the sequence of a fit.

The engine holds one program, one data set and one set of results for the
whole process.  A lock makes each fit (compile, data, compute, read) one
step, so threads of one process may call `fit` at once: they take turns.
Processes fit in parallel (see fit_many).
"""

import os
import threading

from . import _vexor
from ._data import matrix
from ._errors import CompileError
from ._result import Result

_engine = _vexor.Engine()
_lock = threading.Lock()
# The program whose compiled form the engine holds, with the estimates it
# was last evaluated at: a Result's predict compiles again only when
# another program came in between.
_current = {"program": None, "file": False}

_OPTIONS = {"time_limit", "threads", "vector_math", "derivatives", "bounded_errors", "report"}


def _compile(program, file):
    failure = _engine.compile(program, file)
    if failure is not None:
        _current["program"] = None
        summary, messages = failure
        raise CompileError(summary, [(int(line), str(text)) for line, text in messages], _engine.report())
    _current["program"] = program
    _current["file"] = file


def _source(program):
    """(text or path, is_file): a str naming an existing .vex file is read."""
    if isinstance(program, os.PathLike):
        return os.fspath(program), True
    if not isinstance(program, str):
        raise TypeError(f"program must be the program's text or a path, not {type(program).__name__}")
    if "\n" not in program and ";" not in program and os.path.isfile(program):
        return program, True
    return program, False


def fit(program, data=None, **options):
    """Compiles `program` and fits it to `data`; returns a Result.

    `program` is the program's text, or the path of a program file.  `data`
    is None (the program's own DATA), a 2-D array in VARIABLES order, a
    mapping of variable names to 1-D arrays, or a pandas DataFrame whose
    columns are matched by name.  Options: ``time_limit`` (seconds; the fit
    stops with code -10 when it runs longer), ``threads`` (for the passes
    over the observations; 0, the default, one per core; the results are
    the same for any count), ``vector_math`` (True: SLEEF's exp, sin, cos
    and ln, faster, the results may move in their last digits),
    ``derivatives`` ("forward", the default: the optimizer differences the
    residuals; "exact": the program's derivatives in the
    parameters, by automatic differentiation, with fewer passes over the
    data; Result.differenced names any column that was differenced
    instead), ``bounded_errors`` (True: standard errors in a fit with
    CONSTRAIN bounds, of the parameters not held on a bound; a held one's
    is 0), ``report`` (False leaves the listing out of the result, for
    speed).

    Raises CompileError when the program does not compile, ValueError when
    the data do not fit the program.
    """
    unknown = set(options) - _OPTIONS
    if unknown:
        raise TypeError(f"unknown option(s) {', '.join(sorted(unknown))}; "
                        f"the options are: {', '.join(sorted(_OPTIONS))}")
    time_limit = float(options.get("time_limit", 0.0) or 0.0)
    if not time_limit >= 0.0:
        raise ValueError(f"time_limit must be 0 or more seconds, not {options.get('time_limit')!r}")
    threads = options.get("threads", 0)
    if not isinstance(threads, int) or isinstance(threads, bool) or not 0 <= threads <= 64:
        raise ValueError(f"threads must be a whole number from 0 (one per core) to 64, not {threads!r}")
    vector_math = bool(options.get("vector_math", False))
    derivatives = options.get("derivatives", "forward")
    if derivatives not in ("forward", "exact"):
        raise ValueError(f"derivatives must be 'forward' or 'exact', not {derivatives!r}")
    bounded_errors = bool(options.get("bounded_errors", False))
    text, file = _source(program)
    with _lock:
        _compile(text, file)
        variables, dependent, parameters = _engine.program()
        if data is not None:
            if not variables:
                raise ValueError("the program has no VARIABLES (a minimisation): it takes no data")
            _engine.set_data(matrix(data, variables, dependent))
        code = _engine.compute(time_limit, threads, vector_math, derivatives == "exact", bounded_errors)
        raw = _engine.results(options.get("report", True))
    return Result(text, file, code, variables, dependent, parameters, raw)


def evaluate(result, data):
    """The fitted model of `result` at the points of `data`."""
    if not result.variables:
        raise ValueError("a minimisation has no input variables to evaluate at")
    points = matrix(data, result.variables, result.dependent, points=True)
    with _lock:
        if _current["program"] != result.program or _current["file"] != result.file:
            _compile(result.program, result.file)
        _engine.set_parameters(result._estimates)
        return _engine.evaluate(points)


Result._evaluate = staticmethod(evaluate)
