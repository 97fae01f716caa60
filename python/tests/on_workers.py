# SPDX-License-Identifier: MIT
"""What the tests send to workers."""

import os
import time

import numpy as np

from panoval.store import Store


class Pictures:
    """Opens pictures of a folder. Sent to workers as it is."""

    def __init__(self, folder):
        self.folder = str(folder)

    def __call__(self, index, name):
        return np.load(os.path.join(self.folder, name + ".npy"), mmap_mode="r")


class MissingOnOne(Pictures):
    """One process does not see one picture."""

    def __init__(self, folder, pid):
        super().__init__(folder)
        self.pid = pid

    def __call__(self, index, name):
        if os.getpid() == self.pid and name == "p5":
            raise FileNotFoundError(2, "No such file", name)
        return super().__call__(index, name)


class Broken(Pictures):
    """One picture's rows raise."""

    def __call__(self, index, name):
        if name == "p0":
            raise RuntimeError("the tape is torn")
        return super().__call__(index, name)


def log_writes(log):
    """In a worker: notes when a tile is begun and when it is done."""
    original = getattr(Store.write, "original", Store.write)

    def write(self, tile, pixels):
        for word in ("begun", "done"):
            with open(log, "a") as file:
                file.write(f"{word} {tile.number} {os.getpid()}\n")
            if word == "begun":
                time.sleep(0.02)  # there is time to die in
                original(self, tile, pixels)

    write.original = original
    Store.write = write


def restore_writes():
    Store.write = getattr(Store.write, "original", Store.write)
