"""Data in the forms users hold them, as the engine's matrix.

The engine takes rows of values in the order of the program's VARIABLES.
Users hand over one of:

* ``None``: the program's own DATA;
* a 2-D array (anything ``numpy.asarray`` takes) with one column per
  variable, in VARIABLES order;
* a mapping of variable names to 1-D arrays of equal length;
* a pandas DataFrame, its columns matched by name.

Names match exactly, or else ignoring case (the language ignores case);
columns that name no variable are ignored.  For points to evaluate at, the
dependent variable may be left out (its column is then 0 and unused).
"""

import numpy as np


def _numeric(values, what):
    try:
        a = np.asarray(values, dtype=np.float64)
    except (TypeError, ValueError) as err:
        raise ValueError(f"{what}: the values are not numbers ({err})") from None
    return a


def _is_frame(data):
    return type(data).__module__.partition(".")[0] == "pandas" and hasattr(data, "columns")


def _lookup(keys, name):
    """The key that names the variable: exact, else ignoring case."""
    if name in keys:
        return name
    folded = [k for k in keys if isinstance(k, str) and k.lower() == name.lower()]
    if len(folded) > 1:
        raise ValueError(f"columns {folded} all name variable {name!r} (names ignore case)")
    return folded[0] if folded else None


def matrix(data, variables, dependent, points=False):
    """The rows x len(variables) float64 matrix of `data`, C order.

    With `points`, the dependent variable's column may be missing.
    """
    k = len(variables)
    optional = dependent if points and dependent >= 0 else None
    if isinstance(data, dict) or _is_frame(data) or (hasattr(data, "keys") and hasattr(data, "__getitem__")):
        keys = list(data.columns) if _is_frame(data) else list(data.keys())
        columns, n = [], None
        for i, name in enumerate(variables):
            key = _lookup(keys, name)
            if key is None:
                if i == optional:
                    columns.append(None)
                    continue
                have = ", ".join(str(c) for c in keys) or "none"
                raise ValueError(f"the data have no column for variable {name!r} (columns: {have})")
            col = _numeric(data[key], f"column {key!r}")
            if col.ndim != 1:
                raise ValueError(f"column {key!r} must be 1-D, not of shape {col.shape}")
            if n is not None and len(col) != n:
                raise ValueError(f"column {key!r} has {len(col)} values, the columns before it {n}")
            n = len(col)
            columns.append(col)
        if n is None:
            n = 0
        out = np.zeros((n, k), dtype=np.float64)
        for i, col in enumerate(columns):
            if col is not None:
                out[:, i] = col
        return out
    a = _numeric(data, "data")
    if a.ndim == 1 and k == 1:
        a = a.reshape(-1, 1)
    if a.ndim != 2:
        raise ValueError(f"data must be 2-D (rows of {', '.join(variables)}), not of shape {a.shape}")
    if a.shape[1] == k:
        return np.ascontiguousarray(a)
    if optional is not None and a.shape[1] == k - 1:
        out = np.zeros((a.shape[0], k), dtype=np.float64)
        rest = [i for i in range(k) if i != optional]
        out[:, rest] = a
        return out
    want = f"{k}" if optional is None else f"{k} or {k - 1} (without {variables[optional]})"
    raise ValueError(
        f"data have {a.shape[1]} columns; the program's VARIABLES are {', '.join(variables)}: {want} columns wanted")
