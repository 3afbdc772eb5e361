#!/usr/bin/env python3
"""Draws the job of this folder from a known truth and plants gross errors in it.

The truth stands in the constants below and, table by table, in the folder truth: the points, the
images, and the planted errors. The noise is seeded, so the script writes the same files every time:

    python3 generate.py

Scene (metres, image units millimetres): 60 points in front of a wall, eight images of a calibrated
camera in two rows of four. 48 points on a grid are seen in all images, its four corners are control
points; points 201 to 206 are seen in three images, 301 to 306 in two.
"""

import math
import random
from pathlib import Path

SEED = 20260214
SIGMA = 0.001  # mm, of image coordinates
CK = -30.0

# Position and omega, phi, kappa in degrees. The lower row stands upright, the upper one is turned.
IMAGES = {
    1: ((-3.0, -1.0, 6.0), (9.0, -26.0, 0.0)),
    2: ((-1.0, -1.0, 6.5), (9.0, -9.0, 0.0)),
    3: ((1.0, -1.0, 6.5), (9.0, 9.0, 0.0)),
    4: ((3.0, -1.0, 6.0), (9.0, 26.0, 0.0)),
    5: ((-3.0, 1.5, 6.0), (-13.0, -26.0, 90.0)),
    6: ((-1.0, 1.5, 6.5), (-13.0, -9.0, 90.0)),
    7: ((1.0, 1.5, 6.5), (-13.0, 9.0, -90.0)),
    8: ((3.0, 1.5, 6.0), (-13.0, 26.0, -90.0)),
}
GRID = {100 + 8 * row + column + 1: (-2.1 + 0.6 * column, -1.5 + 0.6 * row)
        for row in range(6) for column in range(8)}
CONTROL = (101, 108, 141, 148)
THREE_RAYS = {201: (1, 2, 4), 202: (2, 3, 4), 203: (1, 3, 4), 204: (5, 6, 8), 205: (1, 2, 6), 206: (3, 4, 7)}
TWO_RAYS = {301: (1, 4), 302: (2, 3), 303: (1, 3), 304: (2, 4), 305: (1, 4), 306: (2, 3)}

# Point, image, axis, size in standard deviations.
ERRORS = [
    (112, 5, "y", 3.0),
    (115, 6, "y", 5.0),
    (126, 7, "x", 5.0),
    (122, 2, "x", 8.0),
    (129, 7, "y", 20.0),
    (134, 4, "x", 100.0),
    (201, 2, "y", 5.0),
    (202, 3, "y", 8.0),
    (204, 6, "x", 20.0),
    (203, 4, "x", 8.0),
    (301, 1, "y", 5.0),
    (302, 2, "y", 20.0),
    (303, 3, "x", 20.0),
    (305, 4, "x", 100.0),
]


def rotation(omega, phi, kappa):
    a, b, c = (math.radians(t) for t in (omega, phi, kappa))
    ca, sa, cb, sb, cc, sc = (f(t) for t in (a, b, c) for f in (math.cos, math.sin))
    return ((cb * cc, -cb * sc, sb),
            (ca * sc + sa * sb * cc, ca * cc - sa * sb * sc, -sa * cb),
            (sa * sc - ca * sb * cc, sa * cc + ca * sb * sc, ca * cb))


def see(image, x):
    t, r = IMAGES[image][0], rotation(*IMAGES[image][1])
    d = [x[k] - t[k] for k in range(3)]
    c = [sum(r[k][i] * d[k] for k in range(3)) for i in range(3)]
    return CK * c[0] / c[2], CK * c[1] / c[2]


def write(name, columns, rows):
    text = lambda v: v if isinstance(v, str) else str(v) if isinstance(v, int) else f"{v:.9g}"
    lines = [",".join(columns)] + [",".join(text(v) for v in row) for row in rows]
    path = Path(__file__).resolve().parent / name
    path.parent.mkdir(exist_ok=True)
    path.write_text("\n".join(lines) + "\n", encoding="utf-8")


def main():
    draw = random.Random(SEED)
    off = lambda size: size * draw.uniform(-1.0, 1.0)
    points = {i: [x, y, off(0.4)] for i, (x, y) in GRID.items()}
    points.update({i: [off(1.8), off(1.2), off(0.4)] for i in [*THREE_RAYS, *TWO_RAYS]})
    images_of = {i: list(IMAGES) for i in GRID} | THREE_RAYS | TWO_RAYS
    planted = {(point, image, axis): size * SIGMA for point, image, axis, size in ERRORS}

    write("cameras.csv", ["id", "ck", "fixed"], [[1, CK, 1]])

    image_columns = ["id", "camera", "x0", "y0", "z0", "omega", "phi", "kappa"]
    write("truth/images.csv", image_columns, [[i, 1, *t, *a] for i, (t, a) in IMAGES.items()])
    write("images.csv", image_columns,
          [[i, 1] + [v + off(0.02) for v in t] + [v + off(0.3) for v in a] for i, (t, a) in IMAGES.items()])

    write("truth/points.csv", ["id", "x", "y", "z"], [[i, *x] for i, x in points.items()])
    write("points.csv", ["id", "x", "y", "z", "fixed"],
          [[i, *x, 1] if i in CONTROL else [i] + [v + off(0.02) for v in x] + [0] for i, x in points.items()])

    rows = []
    for image in IMAGES:
        for point, x in points.items():
            if image not in images_of[point]:
                continue
            measured = [value + draw.gauss(0.0, SIGMA) + planted.get((point, image, axis), 0.0)
                        for axis, value in zip("xy", see(image, x))]
            rows.append([point, image, *measured, SIGMA])
    write("image_coordinates.csv", ["point", "image", "x", "y", "sx"], rows)
    write("truth/errors.csv", ["point", "image", "axis", "size"], [list(e) for e in ERRORS])


if __name__ == "__main__":
    main()
