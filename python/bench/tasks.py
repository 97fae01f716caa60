#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Tiles of a large plan as tasks of Dask's workers: tasks.py [GIGAPIXELS [TILES [TILE_SIZE]]]

Plans a panorama of made pictures (6000 x 4000, colour; their rows are computed when asked for) with rectangular seams, and lets
one worker, then two, make TILES tiles from all over it. Prints the plan's size and how long it takes to make and to open,
tiles a second, and the most memory that a worker took.
"""

import os
import resource
import shutil
import sys
import tempfile
import time

import numpy as np

import panoval
import panoval.dask

WIDTH, HEIGHT, STEP_X, STEP_Y = 6000, 4000, 5400, 3600


class Made:
    """A picture whose rows are computed."""

    def __init__(self, index):
        x = np.arange(WIDTH)
        self._row = np.stack([(x + 13 * index) % 97 + 60, x % 61 + 80, (x // 7) % 50 + 90], axis=1).astype(np.uint8)

    def __getitem__(self, rows):
        return self._row[np.newaxis] + (np.arange(rows.start, rows.stop) % 43).astype(np.uint8)[:, np.newaxis, np.newaxis]


def open_made(index, name):
    """For workers."""
    return Made(index)


class Rectangles:
    """Labels of a grid of pictures: each owns the pixels from the middle of one overlap to that of the next."""

    def __init__(self, columns, rows):
        self._columns, self._rows = columns, rows
        width = STEP_X * (columns - 1) + WIDTH
        x = np.arange(width)
        self._column = np.clip((x - (WIDTH - STEP_X) // 2) // STEP_X, 0, columns - 1).astype(np.int32)

    def __getitem__(self, rows):
        y = np.arange(rows.start, rows.stop)
        row = np.clip((y - (HEIGHT - STEP_Y) // 2) // STEP_Y, 0, self._rows - 1).astype(np.int32)
        return self._column[np.newaxis] + self._columns * row[:, np.newaxis]


def plan_of(gigapixels, tile_size):
    """The plan's text."""
    side = np.sqrt(gigapixels * 1e9)
    columns, rows = max(1, round(side / STEP_X)), max(1, round(side / STEP_Y))
    with panoval.Mosaic(tile_size=tile_size, gains=None) as mosaic:
        for index in range(columns * rows):
            mosaic.add(Made(index), (STEP_X * (index % columns), STEP_Y * (index // columns)), shape=(HEIGHT, WIDTH, 3),
                       dtype=np.uint8, name=f"made {index}")
        mosaic.set_gains(np.ones(columns * rows))
        mosaic.set_seams(Rectangles(columns, rows))
        layout = mosaic.layout
        print(f"{layout.width} x {layout.height} pixels, {columns * rows} pictures, {layout.tiles} tiles")
        return mosaic.plan(), layout.tiles


def peak():
    """Most bytes that this process has held."""
    return resource.getrusage(resource.RUSAGE_SELF).ru_maxrss * 1024


def run(plan, tiles, workers, folder):
    """Tiles a second, and the workers' largest memory, before the tiles and after."""
    from distributed import Client, LocalCluster

    here = os.pathsep.join(filter(None, [os.path.dirname(os.path.abspath(__file__)), os.environ.get("PYTHONPATH")]))
    with LocalCluster(n_workers=workers, threads_per_worker=1, dashboard_address=None, memory_limit=0,
                      env={"PYTHONPATH": here}) as cluster, Client(cluster) as client:
        from tasks import open_made as shared  # as workers know it

        before = max(client.run(peak).values())
        first = panoval.dask.blend(client, plan, folder, shared, tiles=tiles[:workers])  # opens the plan
        started = time.perf_counter()
        rest = panoval.dask.blend(client, plan, folder, shared, tiles=tiles)
        seconds = time.perf_counter() - started
        assert len(first.made) == workers and not rest.failed
        return len(rest.made) / seconds, before, max(client.run(peak).values())


def main(gigapixels=1.0, count=24, tile_size=2048):
    """Prints the figures."""
    started = time.process_time()
    plan, total = plan_of(gigapixels, tile_size)
    made = time.process_time() - started
    started = time.process_time()
    panoval.Mosaic.from_plan(plan).close()
    print(f"plan: {len(plan) / 1e6:.1f} MB, {made:.1f} s of processor to make, {time.process_time() - started:.1f} s to open")
    tiles = [int(tile) for tile in np.linspace(0, total - 1, min(count, total)).round()]
    rates = []
    for workers in (1, 2):
        folder = tempfile.mkdtemp()
        try:
            rate, before, after = run(plan, tiles, workers, os.path.join(folder, "p.zarr"))
        finally:
            shutil.rmtree(folder)
        rates.append(rate)
        print(f"{workers} worker{'s' * (workers > 1)}: {rate:.2f} tiles a second, {rate * tile_size**2 / 1e6:.1f} MP/s; "
              f"memory of a worker {before / 1e6:.0f} MB before, {after / 1e6:.0f} MB at most")
    print(f"two workers: {rates[1] / rates[0]:.2f} x one; load {os.getloadavg()[0]:.1f}, {os.cpu_count()} cores")


if __name__ == "__main__":
    main(*(float(value) if i == 0 else int(value) for i, value in enumerate(sys.argv[1:4])))
