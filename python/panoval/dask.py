# SPDX-License-Identifier: MIT
"""One panorama on many machines, with Dask's distributed: one task a tile, few and large, no graphs of arrays.

Pictures, plan and store lie on a file system that all workers see. A task opens only the pictures that its tile shows, writes
its chunks and then its mark. A task whose worker died is given to another one; what is marked is not made again. Results are the
same bytes for any number of workers and any order.

    with distributed.Client("scheduler:8786") as client:
        panoval.dask.stitch(client, names, positions, "/shared/panorama.zarr")

With client=None the same functions run here, one after the other.
"""

from __future__ import annotations

import uuid
from typing import Any, Callable, Dict, Iterator, List, NamedTuple, Optional, Sequence, Tuple

import numpy as np

from ._callbacks import Progress, Report, progress_of
from ._images import position
from ._opening import OpenPicture
from .errors import PanovalError
from .mosaic import Mosaic
from .store import Store, write_whole
from .gain_parts import align, components
from .measuring_tasks import GainJob, Known, Labels, SeamJob, find_gains, find_seams, know, regions_of, touches
from .tasks import Run, TileError, blend_tile, metadata_of_plan, name_of_plan, open_file

__all__ = ["Blended", "TilesError", "measure", "blend", "stitch"]

_IN_FLIGHT = 1000  # tasks that the scheduler knows of at once


class Blended(NamedTuple):
    """What a run came to."""

    made: List[int]  #: tiles that were made now
    kept: List[int]  #: tiles that were there already
    failed: Dict[int, BaseException]  #: what the others failed with


class TilesError(PanovalError):
    """Tiles that could not be made while the others went on; `result` is what the run came to."""

    def __init__(self, text: str, code: int = 0, result: Optional[Blended] = None) -> None:
        super().__init__(text, code)
        self.result = result


Outcome = Tuple[int, Any, Optional[BaseException]]


def _here(work: Callable[..., Any], arguments: Sequence[Tuple[Any, ...]]) -> Iterator[Outcome]:
    """Runs tasks in this process."""
    for number, values in enumerate(arguments):
        try:
            yield number, work(*values), None
        except Exception as failure:
            yield number, None, failure


def _attempt(work: Callable[..., Any], *values: Any) -> Any:
    """A task on a worker; what it raises says where."""
    from distributed import get_worker

    try:
        return work(*values)
    except Exception as failure:
        failure.worker = get_worker().address  # type: ignore[attr-defined]
        raise


class _Submitted:
    """Tasks of one kind with their attempts. One that failed is tried again, where it can be on another worker: a picture may
    be missing on one machine alone."""

    def __init__(self, client: Any, work: Callable[..., Any], arguments: Sequence[Tuple[Any, ...]], retries: int,
                 label: str) -> None:
        self._client, self._work, self._arguments, self._label = client, work, arguments, label
        self._retries = retries
        self._failed_on: Dict[int, List[str]] = {}
        self.numbers: Dict[str, int] = {}

    def submit(self, number: int) -> Any:
        failed_on = self._failed_on.get(number, [])
        others = [] if not failed_on else [worker for worker in self._client.scheduler_info()["workers"]
                                           if worker not in failed_on]
        future = self._client.submit(_attempt, self._work, *self._arguments[number], pure=False, workers=others or None,
                                     allow_other_workers=bool(others), key=f"{self._label}-{number}-{len(failed_on)}")
        self.numbers[future.key] = number
        return future

    def wants_again(self, number: int, failure: BaseException) -> bool:
        failed_on = self._failed_on.setdefault(number, [])
        failed_on.append(getattr(failure, "worker", ""))
        return len(failed_on) <= self._retries


def _on_workers(client: Any, work: Callable[..., Any], arguments: Sequence[Tuple[Any, ...]], retries: int,
                label: str) -> Iterator[Outcome]:
    """Submits tasks, never more than a few at once beyond what the workers can do; yields what comes, in any order."""
    from distributed import as_completed

    submitted = _Submitted(client, work, arguments, retries, label)
    waiting = iter(range(len(arguments)))
    running = as_completed([submitted.submit(number) for number, _ in zip(waiting, range(_IN_FLIGHT))])
    for future in running:
        number = submitted.numbers.pop(future.key)
        failure = future.exception()
        if failure is not None and submitted.wants_again(number, failure):
            running.add(submitted.submit(number))
            continue
        yield number, None if failure else future.result(), failure
        future.release()
        for following in waiting:
            running.add(submitted.submit(following))
            break


def outcomes(client: Any, work: Callable[..., Any], arguments: Sequence[Tuple[Any, ...]], retries: int, phase: str,
             report: Optional[Report]) -> Iterator[Outcome]:
    """Runs tasks and tells how far they have come."""
    label = f"panoval-{phase}-{uuid.uuid4().hex}"
    results = _here(work, arguments) if client is None else _on_workers(client, work, arguments, retries, label)
    done = 0
    for outcome in results:
        done += 1
        if report is not None:
            report(phase, done / len(arguments))
        yield outcome


def blend(client: Any, plan: str, store: Any, open_picture: OpenPicture = open_file, *, tiles: Optional[Sequence[int]] = None,
          coverage: bool = False, memory: int = 0, threads: int = 1, retries: int = 2, progress: Progress = None,
          errors: str = "raise") -> Blended:
    """Blends the tiles of a plan into an OME-Zarr store, one task a tile; makes only those that are missing.

    client        a distributed.Client, or None for this process
    plan          text of a plan with gains and seams: Mosaic.plan, or panoval.dask.measure
    store         folder of the store; begun, or gone on with where the same plan began it
    open_picture  (index, name) -> picture, as for Mosaic.from_plan; must be something that can be sent to workers
    tiles         numbers, in the order in which they are handed out; None: all
    coverage      True: the last channel of the store is the coverage
    memory, threads  of each worker's mosaic; memory 0: 512 MiB
    retries       how often a task that failed is tried again, on another worker where there is one
    progress      as for Mosaic.measure
    errors        'raise': TilesError at the end, when all others are done; 'keep': failed tiles are in the result

    Raises StoreError where the folder is something else, PlanError for a text that is no plan.

    >>> import tempfile
    >>> mosaic = Mosaic(tile_size=64); mosaic.add(np.full((64, 128), 9, np.uint8), (0, 0)); mosaic.measure("gains", "seams")
    >>> with tempfile.TemporaryDirectory() as folder:
    ...     blend(None, mosaic.plan(), folder + "/p.zarr", lambda index, name: np.full((64, 128), 9, np.uint8)).made
    [0, 1]
    """
    if errors not in ("raise", "keep"):
        raise ValueError(f"errors is {errors!r}, expected 'raise' or 'keep'")
    with Mosaic.from_plan(plan) as mosaic:
        name = name_of_plan(plan)
        begun = Store.begin(store, mosaic.layout, name, coverage, metadata_of_plan(plan))
    place = begun.folder / ".panoval" / "plan.json"
    text = plan.encode("utf-8", "surrogateescape")
    if not place.exists() or place.read_bytes() != text:
        write_whole(place, text)
    run = Run(str(place.resolve()), name, str(begun.folder.resolve()), open_picture, coverage, memory, threads,
              uuid.uuid4().hex)
    chosen = list(range(begun.picture.tiles)) if tiles is None else [int(tile) for tile in tiles]
    result = Blended([], [], {})
    with progress_of(progress) as report:
        for number, outcome, failure in outcomes(client, blend_tile, [(run, tile) for tile in chosen], retries, "blend",
                                                 report):
            if failure is not None:
                result.failed[chosen[number]] = _named(failure, chosen[number])
            else:
                (result.made if outcome == "made" else result.kept).append(chosen[number])
    if result.failed and errors == "raise":
        first = result.failed[min(result.failed)]
        raise TilesError(f"{len(result.failed)} of {len(chosen)} tiles failed, the others are there; {first}",
                         getattr(first, "code", 0), result)
    return result


def _named(failure: BaseException, tile: int) -> BaseException:
    """A failure that the task could not name itself, e.g. where its workers died."""
    if isinstance(failure, TileError):
        return failure
    return TileError(f"tile {tile}: {type(failure).__name__}: {failure}", 0, tile)


def measure(client: Any, names: Sequence[str], positions: Sequence[Any], open_picture: OpenPicture = open_file, *,
            region: int = 0, retries: int = 2, progress: Progress = None, **options: Any) -> str:
    """Measures gains and seams in tasks, so that no machine needs all pictures; returns a plan for `blend`.

    client        a distributed.Client, or None for this process
    names         of the pictures, as open_picture knows them
    positions     x, y of each one's top-left corner, whole numbers
    open_picture  (index, name) -> picture, as for Mosaic.from_plan
    region        side of the regions in which seams are looked for, pixels; 0: four times the largest picture
    retries       how often a task that failed is tried again
    progress      as for Mosaic.measure; the phases are 'pictures', 'gains', 'seams'
    options       of Mosaic, for the plan and the tasks; wrap and vignetting are not possible here

    Raises what a task raised, which names the picture.

    >>> plan = measure(None, ["left", "right"], [(0, 0), (20, 0)], lambda index, name: np.full((16, 32), 90, np.uint8))
    >>> Mosaic.from_plan(plan).layout.width
    52
    """
    for name in ("wrap", "vignetting"):
        if options.get(name):
            raise ValueError(f"{name} is not possible here; measure in one process, with Mosaic, and blend with its plan")
    if len(names) != len(positions):
        raise ValueError(f"positions has {len(positions)} elements, expected {len(names)} as names")
    places = [position(place, f"positions[{i}]", 2**40) for i, place in enumerate(positions)]
    with progress_of(progress) as report:
        arguments = [(open_picture, i, name, *place) for i, (name, place) in enumerate(zip(names, places))]
        known = _all(client, know, arguments, retries, "pictures", report)
        with Mosaic(**options) as mosaic:
            for picture in known:
                picture.add_to(mosaic, open_picture)
            side = region or 4 * max(max(picture.shape[:2]) for picture in known)
            _measure_gains(client, mosaic, known, open_picture, side, options, retries, report)
            if mosaic.has_seams:
                _measure_seams(client, mosaic, known, open_picture, side, options, retries, report)
            return mosaic.plan()


def _all(client: Any, work: Callable[..., Any], arguments: Sequence[Tuple[Any, ...]], retries: int, phase: str,
         report: Optional[Report]) -> List[Any]:
    """The results of tasks in their order; raises the first failure when all others are through."""
    results: List[Any] = [None] * len(arguments)
    failures: Dict[int, BaseException] = {}
    for number, result, failure in outcomes(client, work, arguments, retries, phase, report):
        results[number] = result
        if failure is not None:
            failures[number] = failure
    if failures:
        raise failures[min(failures)]
    return results


def _measure_gains(client: Any, mosaic: Mosaic, known: Sequence[Known], open_picture: OpenPicture, side: int,
                   options: Dict[str, Any], retries: int, report: Optional[Report]) -> None:
    """Gains of the pictures of each region against each other, then all of them together."""
    layout, overlaps = mosaic.layout, [(overlap.first, overlap.second) for overlap in mosaic.overlaps]
    gains = np.ones((len(known), 4))
    if options.get("gains", "automatic") not in (None, "off"):
        parts = []
        for rect in regions_of(layout.width, layout.height, side):
            inside = [picture.number for picture in known if touches(picture, (layout.origin_x, layout.origin_y), rect)]
            parts += [part for part in components(inside, overlaps) if len(part) > 1]
        parts = [list(part) for part in dict.fromkeys(tuple(part) for part in parts)]
        jobs = [(GainJob(tuple(known[i] for i in part), options, open_picture),) for part in parts]
        found = _all(client, find_gains, jobs, retries, "gains", report)
        areas = [picture.shape[0] * picture.shape[1] for picture in known]
        gains = align(len(known), parts, found, components(range(len(known)), overlaps), options.get("anchor"), areas)
    mosaic.set_gains(gains)


def _measure_seams(client: Any, mosaic: Mosaic, known: Sequence[Known], open_picture: OpenPicture, side: int,
                   options: Dict[str, Any], retries: int, report: Optional[Report]) -> None:
    layout = mosaic.layout
    origin = (layout.origin_x, layout.origin_y)
    regions = regions_of(layout.width, layout.height, side)
    gains, falloff = mosaic.gains["gain"], mosaic.falloff
    jobs, numbers = [], []
    for number, rect in enumerate(regions):
        chosen = tuple(picture for picture in known if touches(picture, origin, rect))
        if chosen:
            jobs.append((SeamJob(rect, origin, chosen, gains[[picture.number for picture in chosen]], falloff, options,
                                 open_picture),))
            numbers.append(number)
    strips = dict(zip(numbers, _all(client, find_seams, jobs, retries, "seams", report)))
    mosaic.set_seams(Labels(layout.width, regions, strips))


def stitch(client: Any, names: Sequence[str], positions: Sequence[Any], store: Any, open_picture: OpenPicture = open_file, *,
           coverage: bool = False, region: int = 0, retries: int = 2, progress: Progress = None, **options: Any) -> Blended:
    """`measure`, then `blend` into an OME-Zarr store. Called again it measures again and makes the tiles that are missing.

    Arguments as for these two; what is raised, too.

    >>> import tempfile
    >>> with tempfile.TemporaryDirectory() as folder:
    ...     np.save(folder + "/a.npy", np.full((16, 32), 90, np.uint8))
    ...     names = [folder + "/a.npy"] * 2
    ...     len(stitch(None, names, [(0, 0), (20, 0)], folder + "/p.zarr", tile_size=32).made)
    2
    """
    plan = measure(client, names, positions, open_picture, region=region, retries=retries, progress=progress, **options)
    return blend(client, plan, store, open_picture, coverage=coverage, memory=options.get("memory", 0),
                 retries=retries, progress=progress)
