"""The result of a fit: plain Python and NumPy values, kept after the engine
has moved on to other programs, and picklable, so fits travel between
processes.  What the engine gave is kept compact (a 7 x p table of the
parameters, an array of statistics) and the dicts are made when first read,
so that thousands of results cross process boundaries cheaply."""

from functools import cached_property

import numpy as np

# The statistics, in the order the extension reads them.
STATISTICS = ("n", "iterations", "evaluations", "sse", "stderr", "r2", "adj_r2", "durbin_watson",
              "sum_deviations", "avg_deviation", "max_deviation", "df", "f", "prob_f", "runtime")
_COUNTS = {"n", "iterations", "evaluations", "df"}
# Rows of the parameter table.
_ESTIMATE, _START, _STDERR, _T, _P, _LOWER, _UPPER = range(7)


class Result:
    """What a fit gave.

    code         the engine's result code (1 to 6 the kinds of convergence,
                 negative a failure, -10 stopped by the time limit; None
                 when the fit could not be made, see ``error``)
    converged    code is 1 to 6
    message      the stop reason, as the listing words it
    params       {name: estimate} in program order (starts: the starting values)
    stderr, tvalues, pvalues
                 {name: value}; NaN where the fit computed none (a bounded
                 fit, a singular covariance: the report says why)
    conf_int     {name: (lower, upper)} at the program's CONFIDENCE level
                 (NaN without CONFIDENCE's intervals)
    covariance   p x p array of the estimates' covariance, or None
    correlation  the CORRELATE matrix (correlation_names its variables), or None
    statistics   {n, iterations, evaluations, sse, stderr, r2, adj_r2,
                  durbin_watson, sum_deviations, avg_deviation,
                  max_deviation, df, f, prob_f, runtime}; f and prob_f NaN
                  when the listing shows no analysis of variance
    report       the analysis listing ("\\n" line ends)
    observed, predicted, residuals
                 per observation (residual = observed - predicted), None for
                 a minimisation
    error        None, or why the fit could not be made (fit_many)
    """

    def __init__(self, program, file, code, variables, dependent, parameters, raw):
        self.program = program
        self.file = file
        self.code = code
        self.variables = list(variables)
        self.dependent = dependent
        self.names = list(parameters)
        self.error = None
        self._raw = raw

    @classmethod
    def failed(cls, program, error):
        """A fit that could not be made: no code, no estimates, and why."""
        r = cls(program, False, None, [], -1, [], {"table": np.zeros((7, 0)), "fitted": False,
                                                   "report": getattr(error, "report", "")})
        r.error = str(error)
        return r

    # Pickled without the dicts made from the raw values.
    def __getstate__(self):
        return {k: v for k, v in self.__dict__.items() if k in
                ("program", "file", "code", "variables", "dependent", "names", "error", "_raw")}

    def __setstate__(self, state):
        self.__dict__.update(state)

    @property
    def converged(self):
        return self.code is not None and 1 <= self.code <= 6

    @property
    def _fitted(self):
        return self._raw["fitted"]

    @property
    def message(self):
        if self.error is not None:
            return self.error
        return self._raw["message"] if self._fitted else "no fit was made (the report says why)"

    @property
    def report(self):
        return self._raw.get("report", "")

    @property
    def _estimates(self):
        return self._raw["table"][_ESTIMATE]

    def _row(self, row):
        return dict(zip(self.names, self._raw["table"][row].tolist()))

    @cached_property
    def params(self):
        return self._row(_ESTIMATE)

    @cached_property
    def starts(self):
        return self._row(_START)

    @cached_property
    def stderr(self):
        return self._row(_STDERR)

    @cached_property
    def tvalues(self):
        return self._row(_T)

    @cached_property
    def pvalues(self):
        return self._row(_P)

    @cached_property
    def conf_int(self):
        t = self._raw["table"]
        return {k: (lo, hi) for k, lo, hi in zip(self.names, t[_LOWER].tolist(), t[_UPPER].tolist())}

    @property
    def covariance(self):
        return self._raw.get("covariance")

    @property
    def correlation(self):
        return self._raw.get("correlation")

    @property
    def correlation_names(self):
        return self._raw.get("correlation_names")

    @cached_property
    def statistics(self):
        s = self._raw.get("statistics")
        if s is None:
            return {}
        return {k: (int(v) if k in _COUNTS else float(v)) for k, v in zip(STATISTICS, s.tolist())}

    @property
    def differenced(self):
        """With derivatives="exact": the parameters whose Jacobian columns were
        differenced and why ("b: EI1 has no derivative rule for its argument
        1"); "" when every column was exact, or with forward differences."""
        return self._raw.get("differenced", "")

    @property
    def observed(self):
        return self._raw.get("observed")

    @property
    def predicted(self):
        return self._raw.get("predicted")

    @cached_property
    def residuals(self):
        o = self.observed
        return o - self.predicted if o is not None else None

    # evaluate(result, data): set by the engine's module, which makes
    # Results (so that this module does not import it back).
    _evaluate = None

    def predict(self, data):
        """The fitted model at new points, given like fit's data (the
        dependent variable may be left out); an array, NaN where the program
        fails."""
        if self.error is not None:
            raise ValueError(f"this fit was not made: {self.error}")
        return Result._evaluate(self, data)

    def __repr__(self):
        if self.error is not None:
            return f"<vexor.Result failed: {self.error}>"
        params = ", ".join(f"{k}={v:.6g}" for k, v in self.params.items())
        extra = ""
        if "sse" in self.statistics:
            extra = f", sse={self.statistics['sse']:.6g}, n={self.statistics['n']}"
        return f"<vexor.Result code={self.code} ({self.message.rstrip('.')}): {params}{extra}>"
