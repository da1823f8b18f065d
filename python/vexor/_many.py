"""Many fits of one program: one data set each, spread over processes.

The engine is one per process, so parallel fits need processes: a pool of
worker processes on this machine, or the workers of a Dask cluster.  The
data sets are sent in chunks (a few per worker), each worker fits its chunk
in order, and the results come back in the order of the data sets.  A data
set whose fit cannot be made (data that do not fit the program, a failure
inside the engine) gives a Result whose ``error`` says why; the others are
not lost.  A program that does not compile raises CompileError at once,
before any data set is sent.
"""

import multiprocessing
import os
from concurrent.futures import ProcessPoolExecutor

from . import _engine
from ._result import Result


def _fit_one(program, data, options):
    try:
        return _engine.fit(program, data, **options)
    except (ValueError, TypeError, RuntimeError, MemoryError) as err:
        return Result.failed(program, err)


def _fit_chunk(program, chunk, options):
    return [_fit_one(program, data, options) for data in chunk]


def _chunks(items, size):
    return [items[i:i + size] for i in range(0, len(items), size)]


def fit_many(program, datasets, processes=None, client=None, **options):
    """Fits `program` to each data set of `datasets` (each in a form fit
    takes); returns the list of Results in order.

    processes: worker processes on this machine (default: the number of
    cores; 1 fits in this process).  client: a dask.distributed Client; the
    fits then run on its workers (each worker process has its own engine;
    threads of one worker take turns at it).  Options as for fit.
    """
    datasets = list(datasets)
    # Compile once here: a program with errors fails the call, not each fit.
    text, file = _engine._source(program)
    with _engine._lock:
        _engine._compile(text, file)
    if not datasets:
        return []
    if client is not None:
        workers = max(1, len(client.scheduler_info().get("workers", {})))
        size = max(1, -(-len(datasets) // (workers * 4)))
        futures = client.map(_fit_chunk, [program] * len(_chunks(datasets, size)), _chunks(datasets, size),
                             [options] * len(_chunks(datasets, size)), pure=False)
        return [r for chunk in client.gather(futures) for r in chunk]
    if processes is None:
        processes = os.cpu_count() or 1
    processes = int(processes)
    if processes < 1:
        raise ValueError(f"processes must be 1 or more, not {processes}")
    if processes == 1 or len(datasets) == 1:
        return _fit_chunk(program, datasets, options)
    size = max(1, -(-len(datasets) // (processes * 4)))
    chunks = _chunks(datasets, size)
    # forkserver: workers start from a clean process, not a copy of this one
    # (which may hold threads, a Dask client, a GUI).
    context = multiprocessing.get_context("forkserver")
    with ProcessPoolExecutor(max_workers=min(processes, len(chunks)), mp_context=context) as pool:
        parts = pool.map(_fit_chunk, [program] * len(chunks), chunks, [options] * len(chunks))
        return [r for part in parts for r in part]
