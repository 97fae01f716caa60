#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Makes the pictures of docs/panoramas.md: the same place of one panorama with whole masks, nearest and optimal seams.

seam_pictures.py MAKE_SCENE PANOVAL OUT.jpg   (needs numpy and Pillow)

Two shots of the made scene overlap. In one of them somebody stands where they overlap, and the other one lies a pixel
too low, as registration leaves it. The same arguments always give the same picture, but for JPEG's own coder.
"""
import json
import os
import subprocess
import sys
import tempfile

import numpy as np
from PIL import Image, ImageDraw

SIDE = 260  # pixels of the panorama that are shown
ZOOM = 2
WAYS = [("none", "--seams none"), ("nearest", "--seams nearest"), ("optimal", "--seams optimal")]


def stand(picture, x, y):
    """Somebody in a red coat, 24 x 90 pixels, with feet at (x, y)."""
    draw = ImageDraw.Draw(picture)
    draw.rectangle((x - 8, y - 40, x - 2, y), fill=(40, 42, 60))
    draw.rectangle((x + 2, y - 40, x + 8, y), fill=(40, 42, 60))
    draw.rounded_rectangle((x - 12, y - 74, x + 12, y - 34), 6, fill=(170, 40, 36))
    draw.ellipse((x - 8, y - 90, x + 8, y - 73), fill=(214, 170, 140))


def make_shots(make_scene, folder):
    """The layout of two shots, and where somebody stands in the panorama."""
    subprocess.run([make_scene, folder, "--size", "full", "--pictures", "5"], check=True, stdout=subprocess.DEVNULL)
    with open(os.path.join(folder, "layout.json"), encoding="utf-8") as file:
        shots = json.load(file)[1:3]
    sizes = [Image.open(os.path.join(folder, shot["file"])).size for shot in shots]
    left = max(shot["x"] for shot in shots)
    right = min(shot["x"] + size[0] for shot, size in zip(shots, sizes))
    x, y = (left + right) // 2 - 26, shots[0]["y"] + sizes[0][1] - 120
    path = os.path.join(folder, shots[0]["file"])
    picture = Image.open(path)
    stand(picture, x - shots[0]["x"], y - shots[0]["y"])
    picture.save(path)
    shots[1]["y"] += 1
    with open(os.path.join(folder, "pair.json"), "w", encoding="utf-8") as file:
        json.dump(shots, file)
    origin = [min(shot[axis] for shot in shots) for axis in ("x", "y")]
    return x - origin[0], y - origin[1]


def blend(panoval, folder, way):
    """The panorama and, with seams, whose every pixel is."""
    out = os.path.join(folder, way + ".png")
    seams = os.path.join(folder, way + "_seams.pgm")
    command = [panoval, "stitch", "-q", "-o", out, "--layout", os.path.join(folder, "pair.json"), "--seams", way]
    subprocess.run(command + (["--save-seams", seams] if way != "none" else []), check=True, stderr=subprocess.DEVNULL)
    owners = np.array(Image.open(seams)) if way != "none" else None
    return Image.open(out).convert("RGB"), owners


def crop(picture, owners, at, text):
    """The place at (x, y), enlarged, and under it the same with the seam."""
    box = (at[0] - SIDE // 2, at[1] - SIDE * 2 // 3, at[0] + SIDE - SIDE // 2, at[1] - SIDE * 2 // 3 + SIDE)
    tile = Image.new("RGB", (SIDE * ZOOM, SIDE * ZOOM + 24), "white")
    tile.paste(picture.crop(box).resize((SIDE * ZOOM, SIDE * ZOOM), Image.NEAREST), (0, 24))
    draw = ImageDraw.Draw(tile)
    draw.text((6, 6), text, fill="black")
    if owners is not None:
        part = owners[box[1]:box[3], box[0]:box[2]]
        for y, x in np.argwhere(part[:, 1:] != part[:, :-1]):
            draw.rectangle(((x + 1) * ZOOM - 1, y * ZOOM + 24, (x + 1) * ZOOM, y * ZOOM + 24 + ZOOM - 1), fill="yellow")
        for y, x in np.argwhere(part[1:] != part[:-1]):
            draw.rectangle((x * ZOOM, (y + 1) * ZOOM + 23, x * ZOOM + ZOOM - 1, (y + 1) * ZOOM + 24), fill="yellow")
    return tile


def main():
    make_scene, panoval, out = sys.argv[1:]
    with tempfile.TemporaryDirectory() as folder:
        at = make_shots(make_scene, folder)
        tiles = [crop(*blend(panoval, folder, way), at, text) for way, text in WAYS]
    sheet = Image.new("RGB", (sum(tile.width for tile in tiles) + 8 * (len(tiles) - 1), tiles[0].height), "white")
    for i, tile in enumerate(tiles):
        sheet.paste(tile, (i * (tile.width + 8), 0))
    sheet.save(out, quality=85)


if __name__ == "__main__":
    main()
