# SPDX-License-Identifier: MIT
"""The interpreter's lock is given up for the time of a call."""

import threading
import time

import numpy as np

import panoval


def test_python_goes_on_while_a_routine_runs(helpers):
    image = np.tile(helpers.scene(480, 320, 1), (8, 8))
    done, ticks = threading.Event(), []

    def count():
        while not done.is_set():
            ticks.append(time.perf_counter())
            time.sleep(0.0005)

    counter = threading.Thread(target=count)
    counter.start()
    time.sleep(0.01)
    started = time.perf_counter()
    panoval.canny(image, 2.0)
    ended = time.perf_counter()
    done.set()
    counter.join()
    # Were the lock held, the other thread would stand still all the time between.
    assert sum(started < tick < ended for tick in ticks) >= 5, f"{ended - started} s"


def test_threads_get_the_same_results(helpers):
    images = [helpers.scene(200, 150, 1, seed=seed) for seed in range(4)]
    expected = [(panoval.smooth(image), panoval.measure(image), panoval.canny(image)) for image in images]
    found = [None] * 4

    def work(index):
        for _ in range(5):
            found[index] = (panoval.smooth(images[index]), panoval.measure(images[index]), panoval.canny(images[index]))

    threads = [threading.Thread(target=work, args=(index,)) for index in range(4)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    for one, other in zip(found, expected):
        assert all(np.array_equal(a, b) for a, b in zip(one, other))


def test_tiles_may_be_blended_by_several_threads(helpers):
    scene = helpers.scene(240, 160, 3)
    pictures, positions = helpers.cuts(scene)
    image = np.zeros_like(scene)
    with panoval.Mosaic(tile_size=64, threads=1) as mosaic:
        for picture, position in zip(pictures, positions):
            mosaic.add(picture, position)
        mosaic.measure("gains", "seams")
        tiles = list(mosaic.tiles())

        def work(part):
            for tile in part:
                image[tile.rect.slices] = mosaic.blend(tile.rect).samples

        threads = [threading.Thread(target=work, args=(tiles[i::3],)) for i in range(3)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
    assert np.array_equal(image, scene)
