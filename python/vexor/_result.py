"""The result of a fit: plain Python and NumPy values, kept after the engine
has moved on to other programs (and picklable, so fits travel between
processes)."""

import math

import numpy as np


class Result:
    """What a fit gave.

    code         the engine's result code (1 to 6 the kinds of convergence,
                 negative a failure, -10 stopped by the time limit; None
                 when the fit could not be made, see ``error``)
    converged    code is 1 to 6
    message      the stop reason, as the listing words it
    params       {name: estimate} in program order
    stderr, tvalues, pvalues
                 {name: value}; NaN where the fit computed none (a bounded
                 fit, a singular covariance: the report says why)
    conf_int     {name: (lower, upper)} at the program's CONFIDENCE level
    covariance   p x p array of the estimates' covariance, or None
    correlation  the CORRELATE matrix (correlation_names its variables), or None
    statistics   {n, iterations, evaluations, sse, stderr, r2, adj_r2,
                  durbin_watson, sum_deviations, avg_deviation,
                  max_deviation, df, f, prob_f, runtime}
    report       the analysis listing ("\\n" line ends)
    predicted, residuals
                 per observation (residual = observed - predicted), None for
                 a minimisation
    error        None, or why the fit could not be made (fit_many)
    """

    def __init__(self, program, file, code, variables, dependent, parameters, raw):
        self.program = program
        self.file = file
        self.variables = list(variables)
        self.dependent = dependent
        self.names = list(parameters)
        self.code = code
        self.error = None
        self.converged = 1 <= code <= 6
        self.report = raw.get("report", "")
        self._estimates = raw["estimates"]
        self.params = dict(zip(self.names, self._estimates.tolist()))
        self.starts = dict(zip(self.names, raw["starts"].tolist()))
        fitted = raw["fitted"]
        self.message = raw["message"] if fitted else "no fit was made (the report says why)"
        nan = [math.nan] * len(self.names)

        def named(key):
            v = raw.get(key) if fitted else None
            return dict(zip(self.names, v.tolist() if v is not None else nan))

        self.stderr = named("stderr")
        self.tvalues = named("tvalues")
        self.pvalues = named("pvalues")
        lower, upper = named("lower"), named("upper")
        self.conf_int = {k: (lower[k], upper[k]) for k in self.names}
        self.covariance = raw.get("covariance") if fitted else None
        self.correlation = raw.get("correlation") if fitted else None
        self.correlation_names = raw.get("correlation_names") if fitted else None
        self.statistics = dict(raw["statistics"]) if fitted else {}
        observed = raw.get("observed") if fitted else None
        self.predicted = raw.get("predicted") if fitted else None
        self.observed = observed
        self.residuals = observed - self.predicted if observed is not None else None

    @classmethod
    def failed(cls, program, error):
        """A fit that could not be made: no code, no estimates, and why."""
        r = cls.__new__(cls)
        r.program, r.file, r.variables, r.dependent, r.names = program, False, [], -1, []
        r.code, r.converged, r.error = None, False, str(error)
        r.message = r.error
        r.report = getattr(error, "report", "")
        r._estimates = np.zeros(0)
        r.params, r.starts, r.stderr, r.tvalues, r.pvalues, r.conf_int = {}, {}, {}, {}, {}, {}
        r.covariance = r.correlation = r.correlation_names = None
        r.statistics = {}
        r.observed = r.predicted = r.residuals = None
        return r

    def predict(self, data):
        """The fitted model at new points, given like fit's data (the
        dependent variable may be left out); an array, NaN where the program
        fails."""
        if self.error is not None:
            raise ValueError(f"this fit was not made: {self.error}")
        from ._engine import evaluate
        return evaluate(self, data)

    def __repr__(self):
        if self.error is not None:
            return f"<vexor.Result failed: {self.error}>"
        params = ", ".join(f"{k}={v:.6g}" for k, v in self.params.items())
        extra = ""
        if "sse" in self.statistics:
            extra = f", sse={self.statistics['sse']:.6g}, n={self.statistics['n']}"
        return f"<vexor.Result code={self.code} ({self.message.rstrip('.')}): {params}{extra}>"
