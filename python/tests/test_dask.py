"""kelto.dask.correct: equal to kelto.correct on the threaded scheduler and on a cluster of two
worker processes, to which the correction matrix travels pickled."""

import logging
import pickle

import dask
import dask.array as da
import numpy as np
import pytest

import kelto
import kelto.dask


@pytest.fixture(scope="module")
def cube(scene):
    # The sample scene four times over, so that chunks of rows and columns meet.
    return np.tile(np.ascontiguousarray(scene.data), (2, 2, 1))


def test_the_matrix_travels_pickled(scene_matrix):
    again = pickle.loads(pickle.dumps(scene_matrix))
    assert again == scene_matrix


def test_threaded_scheduler_equals_the_direct_correction(cube, scene, scene_matrix):
    direct = kelto.correct(cube, scene_matrix, scale=scene.scale, fill=scene.fill)
    lazy = kelto.dask.correct(da.from_array(cube, chunks=(40, 50, 16)), scene_matrix,
                              scale=scene.scale, fill=scene.fill)
    assert lazy.dtype == np.float32
    assert lazy.shape == direct.shape
    assert lazy.chunks[2] == (len(scene_matrix.virtual_bands),)
    with dask.config.set(scheduler="threads"):
        np.testing.assert_array_equal(lazy.compute(), direct)


def test_an_array_chunked_along_the_bands_is_rechunked(cube, scene, scene_matrix):
    direct = kelto.correct(cube, scene_matrix, scale=scene.scale, fill=scene.fill)
    lazy = kelto.dask.correct(da.from_array(cube, chunks=(64, 64, 5)), scene_matrix,
                              scale=scene.scale, fill=scene.fill)
    np.testing.assert_array_equal(lazy.compute(scheduler="threads"), direct)
    # A numpy array is taken as one chunk.
    np.testing.assert_array_equal(
        kelto.dask.correct(cube, scene_matrix, scene.scale, scene.fill).compute(), direct)


def test_mistakes_are_found_before_anything_runs(cube, scene_matrix):
    with pytest.raises(ValueError, match="15 bands"):
        kelto.dask.correct(da.from_array(cube[..., :15]), scene_matrix)
    with pytest.raises(ValueError, match="three dimensions"):
        kelto.dask.correct(da.from_array(cube[0]), scene_matrix)


def test_a_cluster_of_two_worker_processes(cube, scene, scene_matrix):
    distributed = pytest.importorskip("distributed")
    direct = kelto.correct(cube, scene_matrix, scale=scene.scale, fill=scene.fill)
    with distributed.LocalCluster(n_workers=2, threads_per_worker=1, processes=True,
                                  dashboard_address=None, silence_logs=logging.ERROR) as cluster, \
            distributed.Client(cluster) as client:
        lazy = kelto.dask.correct(da.from_array(cube, chunks=(32, 64, 16)), scene_matrix,
                                  scale=scene.scale, fill=scene.fill)
        result = client.compute(lazy).result()
        # Both workers took part: the chunks went to processes of their own.
        assert len(client.scheduler_info()["workers"]) == 2
    np.testing.assert_array_equal(result, direct)
