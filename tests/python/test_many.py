"""vexor.fit_many: a thousand fits in worker processes and on a Dask
cluster, identical to the same fits made one after another here."""

import numpy as np
import pytest

import vexor
from conftest import LOGISTIC, logistic_sets

SETS = logistic_sets(1000)


def same(a, b):
    assert a.code == b.code
    assert a.params == b.params
    assert a.stderr == b.stderr or all(np.isnan(list(a.stderr.values())))
    assert a.statistics["sse"] == b.statistics["sse"]
    assert a.report.split("Analysis completed")[0] == b.report.split("Analysis completed")[0]


@pytest.fixture(scope="module")
def sequential():
    return [vexor.fit(LOGISTIC, d) for d in SETS]


def test_a_process_pool_gives_the_sequential_fits(sequential):
    results = vexor.fit_many(LOGISTIC, SETS, processes=2)
    assert len(results) == len(SETS)
    for a, b in zip(results, sequential):
        same(a, b)
    assert sum(r.converged for r in results) >= 990


def test_a_dask_cluster_gives_the_sequential_fits(sequential):
    distributed = pytest.importorskip("distributed")
    with distributed.LocalCluster(n_workers=2, processes=True, threads_per_worker=1,
                                  dashboard_address=None) as cluster, distributed.Client(cluster) as client:
        results = vexor.fit_many(LOGISTIC, SETS, client=client)
    assert len(results) == len(SETS)
    for a, b in zip(results, sequential):
        same(a, b)


def test_a_data_set_that_fails_does_not_lose_the_others():
    sets = [SETS[0], {"dose": [1.0, 2.0]}, np.zeros((5, 3)), SETS[1]]
    results = vexor.fit_many(LOGISTIC, sets, processes=2)
    assert [r.error is None for r in results] == [True, False, False, True]
    assert "no column for variable 'response'" in results[1].error
    assert "data have 3 columns" in results[2].error
    assert results[3].params == vexor.fit(LOGISTIC, SETS[1]).params


def test_a_program_with_errors_fails_at_once():
    with pytest.raises(vexor.CompileError):
        vexor.fit_many("VARIABLES x, y; FUNCTION y = q;\n", SETS[:3])


def test_in_this_process_and_empty():
    assert vexor.fit_many(LOGISTIC, []) == []
    one = vexor.fit_many(LOGISTIC, SETS[:3], processes=1)
    assert [r.params for r in one] == [vexor.fit(LOGISTIC, d).params for d in SETS[:3]]
    with pytest.raises(ValueError, match="processes must be 1 or more, not 0"):
        vexor.fit_many(LOGISTIC, SETS[:3], processes=0)
