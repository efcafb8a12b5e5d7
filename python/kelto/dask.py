"""The correction of Dask arrays, chunk by chunk, on any of Dask's schedulers.

A cube larger than memory, or a whole campaign of cubes, is a Dask array of shape (rows,
columns, bands); kelto.dask.correct gives the lazy corrected array, which Dask computes on
threads of one machine or on a dask.distributed cluster of processes or machines. The correction
matrix travels to the workers with the tasks, pickled.
"""

import numpy as np
import dask.array as da

from . import correct as _correct


def _correct_chunk(chunk, matrix, scale, fill):
    return _correct(chunk, matrix, scale=scale, fill=fill)


def correct(array, matrix, scale=1.0, fill=None):
    """The lazy correction of a Dask (or numpy) array of shape (rows, columns, bands): float32
    of shape (rows, columns, virtual bands), with NaN where fill was met. The bands of a chunk
    must all be in it: an array chunked along the bands is rechunked to one chunk of bands.
    Arguments as for kelto.correct."""
    if not isinstance(array, da.Array):
        array = da.from_array(array)
    if array.ndim != 3:
        raise ValueError("the cube must have three dimensions (rows, columns, bands), not "
                         f"{array.ndim} of shape {array.shape}")
    if array.shape[2] != matrix.band_count:
        raise ValueError(f"the cube has {array.shape[2]} bands, correction matrix "
                         f"\"{matrix.name}\" weighs {matrix.band_count}")
    if len(array.chunks[2]) > 1:
        array = array.rechunk({2: -1})
    virtual_bands = len(matrix.virtual_bands)
    return da.map_blocks(_correct_chunk, array, matrix, scale, fill, dtype=np.float32,
                         chunks=(array.chunks[0], array.chunks[1], (virtual_bands,)),
                         meta=np.empty((0, 0, 0), dtype=np.float32))
