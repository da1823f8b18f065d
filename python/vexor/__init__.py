"""VEXOR: nonlinear regression with models written in the VEXOR modelling
language.

    import vexor
    r = vexor.fit('''
        VARIABLES dose, response;
        PARAMETERS bottom = 0, top = 100, ec50 = 1, hill = 1;
        FUNCTION response = bottom + (top - bottom) / (1 + (ec50 / dose)^hill);
    ''', data=frame)          # a DataFrame with columns dose and response
    r.params, r.stderr, r.conf_int, r.statistics["r2"], print(r.report)
    r.predict({"dose": [0.5, 1, 2]})

    results = vexor.fit_many(program, datasets)      # in worker processes

The engine is one per process: fits in one process take turns (a lock), and
fit_many spreads them over processes or a Dask cluster.
"""

from ._vexor import version as __engine_version__, cancel
from ._errors import CompileError
from ._result import Result
from ._engine import fit
from ._many import fit_many

__version__ = __engine_version__
__all__ = ["fit", "fit_many", "Result", "CompileError", "cancel"]
