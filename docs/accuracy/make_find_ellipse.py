#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Runs panoval_accuracy and writes docs/accuracy_find_ellipse.md with its figures. Needs nothing beside Python itself.

    docs/accuracy/make_find_ellipse.py build/release/bin/panoval_accuracy
"""
import csv
import math
import pathlib
import subprocess
import sys
import tempfile

HERE = pathlib.Path(__file__).resolve().parent
COLOURS = ["#0072b2", "#d55e00", "#009e73", "#cc79a7", "#56b4e9", "#e69f00"]
NUMBERS = ["radius", "aspect", "angle", "phase_x", "phase_y", "blur", "contrast", "light", "noise", "divisions", "found",
           "others", "dx", "dy", "dmajor", "dminor", "dangle", "rms"]


# ---------------------------------------------------------------------------------------------------------- figures

class Figure:
    """A chart of lines and bands, drawn as SVG."""

    WIDTH, HEIGHT = 900, 400
    LEFT, RIGHT, TOP, BOTTOM = 70, 660, 40, 345  # of the plot; the legend stands to its right

    def __init__(self, title, x_label, y_label, x_range, y_range, log_x=False, log_y=False):
        self.title, self.x_label, self.y_label = title, x_label, y_label
        self.x_range, self.y_range = x_range, y_range
        self.log_x, self.log_y = log_x, log_y
        self.body, self.legend = [], []

    @staticmethod
    def share(value, low, high, log):
        if log:
            value, low, high = math.log(max(value, 1e-12)), math.log(low), math.log(high)
        return (value - low) / (high - low)

    def place(self, x, y):
        sx = self.share(x, *self.x_range, self.log_x)
        sy = min(max(self.share(y, *self.y_range, self.log_y), 0), 1)
        return (self.LEFT + sx * (self.RIGHT - self.LEFT), self.BOTTOM - sy * (self.BOTTOM - self.TOP))

    def path(self, points):
        return " ".join("%.1f,%.1f" % self.place(x, y) for x, y in points)

    def line(self, points, colour, name=None, dashed=False):
        dash = ' stroke-dasharray="6 4"' if dashed else ""
        self.body.append(f'<polyline points="{self.path(points)}" fill="none" stroke="{colour}" '
                         f'stroke-width="2"{dash}/>')
        if name:
            self.legend.append((name, colour, dash))

    def band(self, lower, upper, colour):
        self.body.append(f'<polygon points="{self.path(lower + upper[::-1])}" fill="{colour}" opacity="0.15"/>')

    @staticmethod
    def ticks(low, high, log):
        if log:
            decades = range(math.floor(math.log10(low)), math.ceil(math.log10(high)) + 1)
            return [m * 10.0 ** d for d in decades for m in (1, 2, 5) if low * 0.999 <= m * 10.0 ** d <= high * 1.001]
        step = 10 ** math.floor(math.log10((high - low) / 4))
        step *= max(m for m in (1, 2, 5, 10) if m * step <= (high - low) / 4 * 1.0001)
        first = math.ceil(low / step - 1e-9)
        return [i * step for i in range(first, math.floor(high / step + 1e-9) + 1)]

    def write(self, path):
        out = [f'<svg xmlns="http://www.w3.org/2000/svg" width="{self.WIDTH}" height="{self.HEIGHT}" '
               f'viewBox="0 0 {self.WIDTH} {self.HEIGHT}" font-family="sans-serif" font-size="13">',
               '<rect width="100%" height="100%" fill="white"/>',
               f'<text x="{self.LEFT}" y="22" font-size="15" font-weight="bold">{self.title}</text>']
        for x in self.ticks(*self.x_range, self.log_x):
            px, _ = self.place(x, self.y_range[0])
            out.append(f'<line x1="{px:.1f}" y1="{self.TOP}" x2="{px:.1f}" y2="{self.BOTTOM}" stroke="#ddd"/>')
            out.append(f'<text x="{px:.1f}" y="{self.BOTTOM + 18}" text-anchor="middle">{x:.4g}</text>')
        for y in self.ticks(*self.y_range, self.log_y):
            _, py = self.place(self.x_range[0], y)
            stroke = "#888" if y == 0 else "#ddd"
            out.append(f'<line x1="{self.LEFT}" y1="{py:.1f}" x2="{self.RIGHT}" y2="{py:.1f}" stroke="{stroke}"/>')
            out.append(f'<text x="{self.LEFT - 8}" y="{py + 4:.1f}" text-anchor="end">{y:.4g}</text>')
        out += self.body
        out.append(f'<rect x="{self.LEFT}" y="{self.TOP}" width="{self.RIGHT - self.LEFT}" '
                   f'height="{self.BOTTOM - self.TOP}" fill="none" stroke="black"/>')
        middle_y = (self.TOP + self.BOTTOM) / 2
        out.append(f'<text x="{(self.LEFT + self.RIGHT) / 2}" y="{self.HEIGHT - 14}" '
                   f'text-anchor="middle">{self.x_label}</text>')
        out.append(f'<text x="18" y="{middle_y}" text-anchor="middle" '
                   f'transform="rotate(-90 18 {middle_y})">{self.y_label}</text>')
        self.write_legend(out)
        path.write_text("\n".join(out) + "\n</svg>\n")

    def write_legend(self, out):
        left = self.RIGHT + 14
        for i, (name, colour, dash) in enumerate(self.legend):
            y = self.TOP + 10 + 20 * i
            out.append(f'<line x1="{left}" y1="{y}" x2="{left + 26}" y2="{y}" stroke="{colour}" '
                       f'stroke-width="2"{dash}/>')
            out.append(f'<text x="{left + 32}" y="{y + 4}">{name}</text>')


# ---------------------------------------------------------------------------------------------------------- numbers

def read(path):
    rows = []
    with open(path, newline="") as file:
        for row in csv.DictReader(file):
            for key in NUMBERS:
                row[key] = float(row[key]) if row[key] != "" else None
            if row["found"]:
                row["centre"] = math.hypot(row["dx"], row["dy"])
                row["turn"] = abs(row["dangle"]) * 180 / math.pi
            rows.append(row)
    return rows


def quantile(values, share):
    """Linear between the neighbours; None of nothing."""
    values = sorted(values)
    if not values:
        return None
    place = share * (len(values) - 1)
    low = math.floor(place)
    high = min(low + 1, len(values) - 1)
    return values[low] + (values[high] - values[low]) * (place - low)


def finite(values):
    return [v for v in values if v is not None and math.isfinite(v)]


def groups(rows, key):
    """Rows by the value of one column, in ascending order."""
    found = {}
    for row in rows:
        found.setdefault(row[key], []).append(row)
    return sorted(found.items())


def by_radius(rows, bins=14):
    """Rows by radius, in bins of equal ratio from 3 to 200; the key is the middle of the bin."""
    ratio = (200 / 3) ** (1 / bins)
    result = []
    for i in range(bins):
        low, high = 3 * ratio ** i, 3 * ratio ** (i + 1)
        result.append((low * ratio ** 0.5, [r for r in rows if low <= r["radius"] < high or
                                            (i == bins - 1 and r["radius"] >= high)]))
    return result


def curve(grouped, column, share, only=lambda row: True):
    points = []
    for x, rows in grouped:
        value = quantile(finite(r[column] for r in rows if r["found"] and only(r)), share)
        if value is not None:
            points.append((x, value))
    return points


# ------------------------------------------------------------------------------------------------------ the figures

def is_long(row):
    return row["aspect"] < 0.9


def draw_over_radius(clean, everything):
    sets = [("clean", clean, COLOURS[0]), ("everything", everything, COLOURS[1])]
    figure = Figure("Error of the centre over the radius", "semi-major axis, pixels", "pixels", (3, 200), (0.005, 2),
                    True, True)
    for name, rows, colour in sets:
        figure.line(curve(by_radius(rows), "centre", 0.5), colour, f"{name}: median")
        figure.line(curve(by_radius(rows), "centre", 0.95), colour, f"{name}: 95 percent below", True)
    figure.write(HERE / "centre_radius.svg")

    figure = Figure("Error of the angle over the radius, aspect below 0.9", "semi-major axis, pixels", "degrees",
                    (3, 200), (0.02, 50), True, True)
    for name, rows, colour in sets:
        figure.line(curve(by_radius(rows), "turn", 0.5, is_long), colour, f"{name}: median")
        figure.line(curve(by_radius(rows), "turn", 0.95, is_long), colour, f"{name}: 95 percent below", True)
    figure.write(HERE / "angle_radius.svg")

    for name, rows, _ in sets:
        figure = Figure(f"Errors of the semi-axes over the radius, {name}: median, 5 to 95 percent",
                        "semi-major axis, pixels", "pixels", (3, 200), (-1, 1), True)
        for column, label, colour in (("dmajor", "major", COLOURS[0]), ("dminor", "minor", COLOURS[1])):
            grouped = by_radius(rows)
            figure.band(curve(grouped, column, 0.05), curve(grouped, column, 0.95), colour)
            figure.line(curve(grouped, column, 0.5), colour, label)
        figure.write(HERE / f"axes_radius_{name}.svg")


def mean_over_phase(rows, column, scale=1):
    points = []
    for x, same in groups(rows, "phase_x"):
        values = finite(r[column] for r in same if r["found"])
        if values:
            points.append((x, scale * sum(values) / len(values)))
    return points


def spread_over_phase(rows, radius, column, scale=1):
    """Largest minus smallest mean."""
    values = [y for _, y in mean_over_phase([r for r in rows if r["radius"] == radius], column, scale)]
    return max(values) - min(values)


def draw_over_phase(discs, aslant):
    x_label = "centre x minus the pixel's centre, pixels (mean of 10 places in y)"
    figure = Figure("Error of a disc's centre x over its place within the pixel", x_label, "pixels", (-0.5, 0.5),
                    (-0.4, 0.4))
    for (radius, same), colour in zip(groups(discs, "radius"), COLOURS):
        figure.line(mean_over_phase(same, "dx"), colour, f"radius {radius:g}")
    figure.write(HERE / "centre_phase.svg")

    figure = Figure("Errors of the semi-axes over the place within the pixel, aspect 0.6, at 30 degrees", x_label,
                    "pixels", (-0.5, 0.5), (-0.8, 0.4))
    for (radius, same), colour in zip(groups(aslant, "radius"), COLOURS):
        figure.line(mean_over_phase(same, "dmajor"), colour, f"radius {radius:g}: major")
        figure.line(mean_over_phase(same, "dminor"), colour, f"radius {radius:g}: minor", True)
    figure.write(HERE / "axes_phase.svg")

    figure = Figure("Error of the angle over the place within the pixel, aspect 0.6, at 30 degrees", x_label,
                    "degrees", (-0.5, 0.5), (-6, 6))
    for (radius, same), colour in zip(groups(aslant, "radius"), COLOURS):
        figure.line(mean_over_phase(same, "dangle", 180 / math.pi), colour, f"radius {radius:g}")
    figure.write(HERE / "angle_phase.svg")


def degrees(row):
    """The direction to the nearest three degrees."""
    return 3 * round(row["angle"] * 60 / math.pi)


def draw_over_angle(rows):
    for column, title, unit, y_range, scale in (
            ("dmajor", "Error of the semi-major axis over the direction", "pixels", (-1, 0.5), 1),
            ("dminor", "Error of the semi-minor axis over the direction", "pixels", (-1, 0.5), 1),
            ("dangle", "Error of the angle over the direction", "degrees", (-6, 6), 180 / math.pi)):
        figure = Figure(title + ", radius 30: median, 5 to 95 percent", "direction of the major axis, degrees", unit,
                        (0, 180), y_range)
        for (aspect, same), colour in zip(groups(rows, "aspect"), COLOURS):
            grouped = groups([dict(row, degrees=degrees(row)) for row in same], "degrees")
            scaled = [[(x, y * scale) for x, y in curve(grouped, column, share)] for share in (0.05, 0.5, 0.95)]
            figure.band(scaled[0], scaled[2], colour)
            figure.line(scaled[1], colour, f"aspect {aspect:g}")
        figure.write(HERE / f"{column[1:]}_direction.svg")


def draw_conditions(rows):
    columns = {"noise": ("noise, grey levels", 1, (0, 20)), "blur": ("blur, sigma in pixels", None, (0, 3.2)),
               "light": ("change of light across the picture in percent", 100, (0, 60)),
               "contrast": ("contrast, grey levels, with noise of 2", 1, (20, 180))}
    for study, (label, scale, x_range) in columns.items():
        same = [r for r in rows if r["study"] == study]
        grouped = [(math.sqrt(x / 2) if scale is None else x * scale, group) for x, group in groups(same, study)]
        figure = Figure(f"Errors of ellipses of radius 20: {label.split(',')[0]}", label, "pixels; share", x_range, (-1, 1.2))
        figure.line(curve(grouped, "centre", 0.5), COLOURS[0], "centre: median")
        figure.line(curve(grouped, "centre", 0.95), COLOURS[0], "centre: 95 percent below", True)
        figure.line(curve(grouped, "dmajor", 0.5), COLOURS[1], "semi-major: median")
        figure.line(curve(grouped, "dminor", 0.5), COLOURS[2], "semi-minor: median")
        figure.line([(x, sum(r["found"] for r in group) / len(group)) for x, group in grouped], "#888", "share found")
        figure.write(HERE / f"{study}.svg")


def draw_over_divisions(rows):
    figure = Figure("Targets of radius 40 in light that changes by 20 percent: divisions",
                    "divisions of a picture 105 pixels wide", "pixels; count a picture", (1, 8), (0, 2))
    grouped = groups(rows, "divisions")
    figure.line(curve(grouped, "centre", 0.5), COLOURS[0], "centre: median")
    figure.line(curve(grouped, "centre", 0.95), COLOURS[0], "centre: 95 percent below", True)
    figure.line([(x, sum(r["found"] for r in group) / len(group)) for x, group in grouped], "#888", "found")
    figure.line([(x, sum(r["others"] for r in group) / len(group)) for x, group in grouped], COLOURS[1], "false")
    figure.write(HERE / "divisions.svg")


def draw_over_aspect(rows):
    figure = Figure("Error of the semi-axes over the aspect: median", "semi-minor by semi-major axis", "pixels",
                    (0.1, 1), (-1, 1))
    for i, (radius, same) in enumerate(groups(rows, "radius")):
        figure.line(curve(groups(same, "aspect"), "dmajor", 0.5), COLOURS[i], f"radius {radius:g}: major")
        figure.line(curve(groups(same, "aspect"), "dminor", 0.5), COLOURS[i], f"radius {radius:g}: minor", True)
    figure.write(HERE / "axes_aspect.svg")


# ------------------------------------------------------------------------------------------------------- the report

def percent(part, whole):
    return f"{100 * part / whole:.1f} %" if whole else "-"


def number(value, digits=2):
    return "-" if value is None else f"{value:.{digits}f}"


def counts_table(rows):
    lines = ["| radius | rendered | found | missed | false | centre, median | centre, 95 % | major | minor | angle |",
             "|---|---|---|---|---|---|---|---|---|---|"]
    ratio = (200 / 3) ** (1 / 7)
    for i in range(7):
        low, high = 3 * ratio ** i, 3 * ratio ** (i + 1)
        same = [r for r in rows if low <= r["radius"] < high]
        hit = [r for r in same if r["found"]]
        others = sum(int(r["others"]) for r in same)
        lines.append(f"| {low:.1f} to {high:.1f} | {len(same)} | {len(hit)} | {len(same) - len(hit)} | {others} | "
                     f"{number(quantile([r['centre'] for r in hit], 0.5), 3)} | "
                     f"{number(quantile([r['centre'] for r in hit], 0.95), 3)} | "
                     f"{number(quantile(finite(r['dmajor'] for r in hit), 0.5))} | "
                     f"{number(quantile(finite(r['dminor'] for r in hit), 0.5))} | "
                     f"{number(quantile(finite(r['turn'] for r in hit if is_long(r)), 0.5))} |")
    return "\n".join(lines)


def count_of(rows):
    return len(rows), sum(1 for r in rows if r["found"]), sum(int(r["others"]) for r in rows)


def worst_axis(rows):
    return max(abs(r[column]) for r in rows if r["found"] for column in ("dmajor", "dminor"))


def mirrored_differences(rows):
    """Differences of the semi-major axes between pictures that mirror each other."""
    found = {(r["aspect"], round(r["angle"] * 180 / math.pi)): r["dmajor"] for r in rows if r["found"]}
    return [abs(found[aspect, degrees] - found[aspect, 180 - degrees]) for aspect, degrees in found
            if degrees < 90 and (aspect, 180 - degrees) in found]


def facts(rows):
    """The numbers that the text quotes."""
    study = {}
    for row in rows:
        study.setdefault(row["study"], []).append(row)
    clean, everything = study["clean"], study["everything"]
    found = [r for r in clean if r["found"]]
    centred_45 = [r for r in study["angle_centred"] if abs(math.remainder(r["angle"], math.pi / 2)) > math.pi / 4 - 1e-6]
    beside_45 = [r for r in study["angle_centred"] if
                 0.01 < abs(abs(math.remainder(r["angle"], math.pi / 2)) - math.pi / 4) < 0.02]
    angle = [r for r in study["angle"] if r["found"]]
    near_45 = [r for r in angle if abs(abs(math.remainder(r["angle"], math.pi / 2)) - math.pi / 4) < 0.09]
    near_axes = [r for r in angle if abs(math.remainder(r["angle"], math.pi / 2)) < 0.09]
    phase = [r for r in study["phase"] if r["found"]]
    return {
        "clean_table": counts_table(clean),
        "everything_table": counts_table(everything),
        "clean_counts": "%d rendered, %d found, %d false" % count_of(clean),
        "everything_counts": "%d rendered, %d found, %d false" % count_of(everything),
        "bias_x": number(sum(r["dx"] for r in found) / len(found), 4),
        "bias_y": number(sum(r["dy"] for r in found) / len(found), 4),
        "small_share": percent(sum(1 for r in found if r["dmajor"] < 0), len(found)),
        "small_minor_share": percent(sum(1 for r in found if r["dminor"] < 0), len(found)),
        "rms_median": number(quantile(finite(r["rms"] for r in found), 0.5), 4),
        "rms_95": number(quantile(finite(r["rms"] for r in found), 0.95), 3),
        "mirror_95": number(quantile(mirrored_differences(study["angle_centred"]), 0.95)),
        "mirror_worst": number(max(mirrored_differences(study["angle_centred"]))),
        "light_one": number(quantile([r["centre"] for r in study["divisions"]
                                      if r["found"] and r["divisions"] == 1], 0.5)),
        "light_two": number(quantile([r["centre"] for r in study["divisions"]
                                      if r["found"] and r["divisions"] == 2], 0.5)),
        "exact_45_worst": number(worst_axis(centred_45)),
        "beside_45_worst": number(worst_axis(beside_45)),
        "exact_45": "%d of %d" % (sum(1 for r in centred_45 if r["found"]), len(centred_45)),
        "major_near_45": number(quantile([r["dmajor"] for r in near_45], 0.5)),
        "major_near_axes": number(quantile([r["dmajor"] for r in near_axes], 0.5)),
        "minor_near_45": number(quantile([r["dminor"] for r in near_45], 0.5)),
        "minor_near_axes": number(quantile([r["dminor"] for r in near_axes], 0.5)),
        "phase_major_4": number(spread_over_phase(study["phase_aslant"], 4, "dmajor")),
        "phase_major_40": number(spread_over_phase(study["phase_aslant"], 40, "dmajor")),
        "phase_angle_4": number(spread_over_phase(study["phase_aslant"], 4, "dangle", 180 / math.pi), 1),
        "phase_angle_40": number(spread_over_phase(study["phase_aslant"], 40, "dangle", 180 / math.pi), 1),
        "phase_largest": number(max(abs(r["dx"]) for r in phase), 2),
    }


def main():
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    with tempfile.TemporaryDirectory() as folder:
        table = pathlib.Path(folder) / "accuracy.csv"
        subprocess.run([sys.argv[1], str(table)], check=True, stdout=subprocess.DEVNULL)
        rows = read(table)
    of = {name: [r for r in rows if r["study"] == name] for name in {r["study"] for r in rows}}
    draw_over_radius(of["clean"], of["everything"])
    draw_over_phase(of["phase"], of["phase_aslant"])
    draw_over_angle(of["angle"])
    draw_conditions(rows)
    draw_over_divisions(of["divisions"])
    draw_over_aspect(of["aspect"])
    text = (HERE / "find_ellipse.md.in").read_text()
    for name, value in facts(rows).items():
        text = text.replace("{" + name + "}", value)
    (HERE.parent / "accuracy_find_ellipse.md").write_text(text)


if __name__ == "__main__":
    main()
