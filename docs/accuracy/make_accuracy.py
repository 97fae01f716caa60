#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Runs panoval_study, measures its pictures by other means, and writes docs/accuracy.md with its figures.

    docs/accuracy/make_accuracy.py build/release/bin/panoval_study [TRIALS [SCENES]]

Needs numpy and scikit-image, and the programs panoval and make_board beside panoval_study. The other means:
find_ellipse (in the study itself), the half-level contour with a least squares ellipse, and the centroid of grey levels.
"""
import csv
import json
import math
import pathlib
import subprocess
import sys
import tempfile
import warnings

import numpy as np
from skimage.io import imread
from skimage.measure import EllipseModel, find_contours
from skimage.transform import ProjectiveTransform

from make_find_ellipse import COLOURS, Figure

HERE = pathlib.Path(__file__).resolve().parent
METHODS = ["measure", "half-level contour", "centroid", "find_ellipse"]
EXACT = "measure, floats"  # the same before rounding, where there is no noise


def read_pictures(path):
    data = path.read_bytes()
    place = 0
    while place < len(data):
        width, height = np.frombuffer(data, "<i4", 2, place)
        place += 8
        yield np.frombuffer(data, np.uint8, width * height, place).reshape(height, width).astype(float)
        place += int(width) * int(height)


def half_level(picture, row):
    """Contour half way between the levels inside and outside, then least squares; both levels are known to it."""
    best = None
    for contour in find_contours(picture, (50 + 200) / 2):
        if len(contour) > 5 and (best is None or len(contour) > len(best)):
            best = contour
    if best is None:
        return None
    with warnings.catch_warnings():
        warnings.simplefilter("ignore")
        model = EllipseModel()
        if not model.estimate(best[:, ::-1]):
            return None
    x, y, a, b, theta = model.params
    return x, y, max(a, b), min(a, b), theta if a >= b else theta + math.pi / 2


def centroid(picture, row):
    """Of the level below the surroundings, within 1.3 times the true ellipse."""
    y, x = np.mgrid[:picture.shape[0], :picture.shape[1]]
    dx, dy = x - row["x"], y - row["y"]
    along = dx * math.cos(row["angle"]) + dy * math.sin(row["angle"])
    across = dy * math.cos(row["angle"]) - dx * math.sin(row["angle"])
    reach = 3 * row["blur"] + 1
    weight = np.where((along / (row["a"] + reach)) ** 2 + (across / (row["b"] + reach)) ** 2 < 1, 200 - picture, 0)
    total = weight.sum()
    return ((weight * x).sum() / total, (weight * y).sum() / total, None, None, None) if total > 0 else None


def numbers_of(row, mark):
    return tuple(row[mark + name] for name in ("x", "y", "a", "b", "angle"))


def read_trials(folder):
    rows = []
    with open(folder / "trials.csv", newline="") as file:
        for line, picture in zip(csv.DictReader(file), read_pictures(folder / "pictures.bin")):
            row = {key: float(value) for key, value in line.items()}
            found = {"measure": numbers_of(row, "p") if row["code"] == 0 else None,
                     "find_ellipse": numbers_of(row, "l") if row["library"] else None,
                     "half-level contour": half_level(picture, row), "centroid": centroid(picture, row),
                     EXACT: numbers_of(row, "e") if row["ea"] > 0 else None}
            row["found"] = found
            rows.append(row)
    return rows


def errors(row, method):
    """Centre's errors in x and y, those of the semi-axes, and that of the angle."""
    found = row["found"][method]
    if found is None:
        return None
    shape = (None, None, None) if found[2] is None else (
        found[2] - row["a"], found[3] - row["b"],
        (found[4] - row["angle"] + math.pi / 2) % math.pi - math.pi / 2)
    return found[0] - row["x"], found[1] - row["y"], *shape


def found_errors(rows, method):
    """Of the targets that a method has found, not something else."""
    for row in rows:
        e = errors(row, method)
        if e is not None and math.hypot(e[0], e[1]) < row["b"] / 2:
            yield row, e


def over_bound(rows, method):
    """Root mean square of the centre's error over the bound's, as one number for both coordinates."""
    ratios = []
    for row, e in found_errors(rows, method):
        bound = np.array([[row["bound_xx"], row["bound_xy"]], [row["bound_xy"], row["bound_yy"]]])
        v = np.array(e[:2])
        ratios.append(float(v @ np.linalg.solve(bound, v)) / 2)
    return math.sqrt(np.mean(ratios)) if ratios else float("nan")


def bins_of(rows, key, count):
    rows = sorted(rows, key=key)
    for i in range(count):
        part = rows[i * len(rows) // count:(i + 1) * len(rows) // count]
        yield key(part[len(part) // 2]), part


AXES = [("radius", "semi-major axis, pixels", lambda r: r["radius"], (4, 100)),
        ("noise", "noise by contrast in percent", lambda r: 100 * r["noise"] / r["contrast"], (0.5, 10)),
        ("blur", "blur, sigma in pixels", lambda r: r["blur"], (0.4, 2)),
        ("aspect", "semi-minor by semi-major axis", lambda r: r["aspect"], (0.4, 1))]


def draw_over_bound(noisy):
    for name, label, key, x_range in AXES:
        figure = Figure("Centre: standard deviation over the bound", label, "error over bound", x_range, (0.8, 50),
                        True, True)
        for method, colour in zip(METHODS, COLOURS):
            points = [(x, over_bound(part, method)) for x, part in bins_of(noisy, key, 8)]
            figure.line([p for p in points if math.isfinite(p[1])], colour, method)
        figure.write(HERE / f"bound_{name}.svg")


def draw_errors(rows, name, title, y_label, y_range, methods, value):
    """Over the radius, one line a method, `value` of the errors of a bin's targets."""
    figure = Figure(title, "semi-major axis, pixels", y_label, (4, 100), y_range, True, True)
    for method, colour in zip(methods, COLOURS):
        points = []
        for x, part in bins_of(rows, lambda r: r["radius"], 8):
            said = list(found_errors(part, method))
            if said:
                points.append((x, value(said)))
        figure.line(points, colour, method)
    figure.write(HERE / f"{name}.svg")


def rms(values):
    return math.sqrt(np.mean([v * v for v in values]))


def draw_all_errors(clean, noisy):
    shaped = [m for m in METHODS if m != "centroid"]
    draw_errors([r for r in clean if is_sharp(r)], "clean_centre", "Without noise: median error of the centre",
                "pixels", (1e-5, 1), METHODS + [EXACT],
                lambda said: float(np.median([math.hypot(e[0], e[1]) for _, e in said])))
    draw_errors([r for r in clean if is_sharp(r)], "clean_axes", "Without noise: median error of the semi-axes",
                "pixels", (1e-5, 1), shaped + [EXACT],
                lambda said: float(np.median([abs(v) for _, e in said for v in e[2:4]])))
    draw_errors(noisy, "noisy_axes", "With noise: error of the semi-axes", "root mean square, pixels", (0.005, 1),
                shaped, lambda said: rms([v for _, e in said for v in e[2:4]]))
    draw_errors([r for r in noisy if r["aspect"] < 0.9], "noisy_angle", "With noise: error of the angle, aspect below 0.9",
                "root mean square, degrees", (0.05, 50), shaped,
                lambda said: rms([math.degrees(e[4]) for _, e in said]))


def draw_calibration(noisy):
    figure = Figure("True error over reported sigma", "semi-major axis, pixels", "root mean square", (4, 100), (0.5, 1.5),
                    True)
    for (name, error, sigma), colour in zip((("x", 0, "sigma_x"), ("y", 1, "sigma_y"), ("semi-major", 2, "sigma_a"),
                                             ("semi-minor", 3, "sigma_b")), COLOURS):
        points = []
        for x, part in bins_of([r for r in noisy if r["code"] == 0], lambda r: r["radius"], 8):
            points.append((x, math.sqrt(np.mean([(errors(r, "measure")[error] / r[sigma]) ** 2 for r in part]))))
        figure.line(points, colour, name)
    figure.write(HERE / "calibration.svg")


def number(value, digits=3):
    return "-" if value is None or not math.isfinite(value) else f"{value:.{digits}f}"


def bound_table(noisy):
    lines = ["| semi-major axis | targets | " + " | ".join(METHODS) + " |", "|" + "---|" * (len(METHODS) + 2)]
    edges = [4, 6, 10, 20, 40, 100.1]
    for low, high in zip(edges, edges[1:]):
        part = [r for r in noisy if low <= r["radius"] < high]
        lines.append(f"| {low} to {round(high)} | {len(part)} | " +
                     " | ".join(number(over_bound(part, m), 2) for m in METHODS) + " |")
    lines.append(f"| all | {len(noisy)} | " + " | ".join(number(over_bound(noisy, m), 2) for m in METHODS) + " |")
    return "\n".join(lines)


def found_table(noisy):
    lines = ["| | " + " | ".join(METHODS) + " |", "|" + "---|" * (len(METHODS) + 1)]
    share = [sum(1 for r in noisy if (e := errors(r, m)) is not None and math.hypot(e[0], e[1]) < r["b"] / 2)
             for m in METHODS]
    return "\n".join(lines + ["| measured | " + " | ".join(f"{100 * s / len(noisy):.1f} %" for s in share) + " |"])


def is_sharp(row):
    return row["radius"] >= 5 and row["blur"] <= row["radius"] / 5


def clean_table(clean):
    methods = [EXACT] + METHODS
    lines = ["| | " + " | ".join([EXACT] + [f"{m}, 8 bit" for m in METHODS]) + " |",
             "|" + "---|" * (len(methods) + 1)]
    rows = [r for r in clean if is_sharp(r)]
    for name, share in (("median", 50), ("95 % below", 95), ("largest", 100)):
        cells = []
        for m in methods:
            e = [math.hypot(e[0], e[1]) for _, e in found_errors(rows, m)]
            cells.append(number(float(np.percentile(e, share)) if e else None, 4))
        lines.append(f"| centre, pixels, {name} | " + " | ".join(cells) + " |")
    for name, place in (("semi-major", 2), ("semi-minor", 3)):
        cells = []
        for m in methods:
            e = [e[place] for _, e in found_errors(rows, m) if e[place] is not None]
            cells.append(number(float(np.median(e)), 4) + ", " + number(float(np.max(np.abs(e))), 4) if e else "-")
        lines.append(f"| {name}, median error (bias), largest | " + " | ".join(cells) + " |")
    lines.append("| centre, root mean square over the bound of rounding | - | " +
                 " | ".join(number(over_bound(rows, m), 2) for m in METHODS) + " |")
    return f"{len(rows)} targets with a semi-major axis of 5 pixels or more and a blur of at most a fifth of it.\n\n" + \
        "\n".join(lines)


def calibration_text(noisy):
    rows = [r for r in noisy if r["code"] == 0]
    inside, far = 0, 0
    for r in rows:
        v = np.array(errors(r, "measure")[:2])
        c = np.array([[r["sigma_x"] ** 2, r["cov_xy"]], [r["cov_xy"], r["sigma_y"] ** 2]])
        inside += float(v @ np.linalg.solve(c, v)) < 5.991
        far += max(abs(v[0]) / r["sigma_x"], abs(v[1]) / r["sigma_y"]) > 5
    turned = [r for r in rows if not r["round"] and r["aspect"] < 0.9]
    angle = rms([errors(r, "measure")[4] / r["sigma_angle"] for r in turned])
    values = [rms([errors(r, "measure")[i] / r[s] for r in rows])
              for i, s in ((0, "sigma_x"), (1, "sigma_y"), (2, "sigma_a"), (3, "sigma_b"))]
    return (f"Errors over reported standard deviations, root mean square of {len(rows)} targets: x {values[0]:.3f}, "
            f"y {values[1]:.3f}, semi-major axis {values[2]:.3f}, semi-minor axis {values[3]:.3f}, angle {angle:.3f} "
            f"({len(turned)} targets of aspect below 0.9). {100 * inside / len(rows):.1f} % of the centres lie inside "
            f"their 95 % ellipse; {far} of {len(rows)} are further than 5 sigma away in x or y.")


def scenes_table(folder):
    sums = {}
    with open(folder / "scenes.csv", newline="") as file:
        for row in csv.DictReader(file):
            key = (row["conditions"], row["kind"])
            counts = [int(row[k]) for k in ("targets", "found", "records", "false", "library")]
            sums[key] = [a + b for a, b in zip(sums.get(key, [0] * 5), counts)]
    sums[("all", "")] = [sum(v[i] for v in sums.values()) for i in range(5)]
    lines = ["| conditions | scene | targets | found | missed | records | false | found by find_ellipse |",
             "|---|---|---|---|---|---|---|---|"]
    for (conditions, kind), (targets, found, records, false, library) in sums.items():
        lines.append(f"| {conditions} | {kind} | {targets} | {found} | {targets - found} | {records} | {false} | "
                     f"{library} |")
    return "\n".join(lines)


def board_methods(picture, places):
    """Centres by every means, of the targets that the program has ordered. The other means are cut out around these."""
    for place in places:
        x, y, reach = place["x"], place["y"], place["semi_major"] + 6
        left, top = int(x - reach), int(y - reach)
        part = picture[max(0, top):int(y + reach) + 1, max(0, left):int(x + reach) + 1].astype(float)
        row = {"x": x - max(0, left), "y": y - max(0, top), "a": place["semi_major"], "b": place["semi_minor"],
               "angle": place["angle"], "blur": place["blur"]}
        levels = place["level_inside"], place["level_outside"]
        scaled = 200 + 150 * (part - levels[1]) / abs(levels[1] - levels[0])  # as half_level and centroid expect it
        found = {"image of the circle's centre": (place["centre_x"], place["centre_y"]), "ellipse's centre": (x, y)}
        for name, result in (("half-level contour", half_level(scaled, row)), ("centroid", centroid(scaled, row))):
            if result is not None:
                found[name] = result[0] + max(0, left), result[1] + max(0, top)
        yield found


def plane_residuals(cells, points):
    """Deviation of a coordinate from the best plane, by degrees of freedom, and the largest distance from it."""
    cells, points = np.array(cells, float), np.array(points, float)
    plane = ProjectiveTransform()
    plane.estimate(cells, points)
    for _ in range(5):  # from the algebraic fit to least squares of distances
        h = plane.params / plane.params[2, 2]
        at = np.c_[cells, np.ones(len(cells))]
        depth = at @ h[2]
        said = (at @ h[:2].T) / depth[:, None]
        zero = np.zeros_like(at)
        jx = np.c_[at / depth[:, None], zero, -at[:, :2] * (said[:, :1] / depth[:, None])]
        jy = np.c_[zero, at / depth[:, None], -at[:, :2] * (said[:, 1:] / depth[:, None])]
        off = points - said
        step = np.linalg.lstsq(np.r_[jx, jy], np.r_[off[:, 0], off[:, 1]], rcond=None)[0]
        plane = ProjectiveTransform((h.ravel() + np.r_[step, 0]).reshape(3, 3))
    off = points - plane(cells)
    return math.sqrt((off ** 2).sum() / (2 * len(cells) - 8)), float(np.hypot(*off.T).max())


def board_table(programs, folder):
    """Residuals of the demonstration's board, whose discs lie in one plane and on a perfect grid."""
    picture = folder / "board.png"
    subprocess.run([programs / "make_board", folder, HERE.parent / "images" / "panorama.jpg"], check=True)

    def measured(*options):
        run = subprocess.run([programs / "panoval", "ellipses", "--json", *options, picture], check=True,
                             capture_output=True)
        return json.loads(run.stdout)["images"][0]
    image = measured("--board", "7x11")
    places = []
    for place in image["board"]["places"]:
        if place.get("number"):  # not missing
            places.append(place | image["targets"][place["number"] - 1])  # its own x, not the plane's
    library = measured("--method", "library")["targets"]
    points = {}
    for place, found in zip(places, board_methods(imread(picture), places)):
        near = min(library, key=lambda t: math.hypot(t["x"] - place["x"], t["y"] - place["y"]))
        if math.hypot(near["x"] - place["x"], near["y"] - place["y"]) < 5:
            found["find_ellipse"] = near["x"], near["y"]
        for name, point in found.items():
            points.setdefault(name, []).append(((place["column"], place["row"]), point))
    lines = ["| centre | targets | deviation of a coordinate, pixels | largest distance |", "|---|---|---|---|"]
    for name, pairs in points.items():
        deviation, largest = plane_residuals(*zip(*pairs))
        lines.append(f"| {name} | {len(pairs)} | {deviation:.4f} | {largest:.4f} |")
    sigma = math.sqrt(np.mean([p["sigma_x"] ** 2 + p["sigma_y"] ** 2 for p in places]) / 2)
    return "\n".join(lines) + f"\n\nThe reported standard deviation of a coordinate is {sigma:.4f} pixels."


def main():
    program = sys.argv[1]
    trials = sys.argv[2] if len(sys.argv) > 2 else "2000"
    scenes = sys.argv[3] if len(sys.argv) > 3 else "10"
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        subprocess.run([program, name, trials, scenes], check=True)
        rows = read_trials(folder)
        clean = [r for r in rows if not r["noisy"]]
        noisy = [r for r in rows if r["noisy"]]
        draw_over_bound(noisy)
        draw_calibration(noisy)
        draw_all_errors(clean, noisy)
        text = (HERE / "accuracy.md.in").read_text()
        for mark, value in (("BOUND", bound_table(noisy)), ("FOUND", found_table(noisy)), ("CLEAN", clean_table(clean)),
                            ("CALIBRATION", calibration_text(noisy)), ("SCENES", scenes_table(folder)),
                            ("BOARD", board_table(pathlib.Path(program).resolve().parent, folder)),
                            ("TRIALS", str(len(noisy))), ("COUNT", scenes)):
            text = text.replace("@" + mark + "@", value)
        (HERE.parent / "accuracy.md").write_text(text)


if __name__ == "__main__":
    main()
