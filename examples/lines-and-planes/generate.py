#!/usr/bin/env python3
"""Draws the job of this folder from a known truth.

The truth stands in the constants below and, table by table, in the folder truth. The noise is
seeded, so the script writes the same files every time:

    python3 generate.py

Scene (metres, image units millimetres): a wall in the plane z = 0.2 x, two edges as 3D lines, twelve
points of which five lie on the wall and three on the first edge. Six images of one camera look at
it; images 1 to 3 carry a second camera at a fixed pose, so each of them has a relative orientation;
image 6 has a principal distance and point of its own. Four points are measured, one distance too.
"""

import math
import random
from pathlib import Path

SEED = 20260101
SIGMA_IMAGE = 0.001      # mm, of image coordinates and line image coordinates
SIGMA_MEASURED = 0.0002  # m, of measured coordinates
SIGMA_DISTANCE = 0.0001  # m

CAMERAS = {
    1: dict(ck=-30.0, xh=0.05, yh=-0.03, a1=2e-5, b1=1e-5),
    2: dict(ck=-25.0, xh=0.0, yh=0.02, a1=-3e-5, b1=0.0),
}
PROJECTION = dict(ck=-31.5, xh=0.10, yh=0.04)  # of image 6

# Position and omega, phi, kappa in degrees; the rig is given in the frame of its image.
IMAGES = {
    1: ((0.0, -3.0, 5.0), (31.0, 0.0, 2.0)),
    2: ((2.5, -1.5, 5.0), (16.0, 26.0, 91.0)),
    3: ((-2.5, -1.5, 5.0), (16.0, -26.0, -88.0)),
    4: ((2.0, 2.5, 5.0), (-26.0, 20.0, 178.0)),
    5: ((-2.0, 2.5, 5.0), (-26.0, -20.0, 40.0)),
    6: ((0.0, 0.5, 6.0), (-5.0, 1.0, -60.0)),
}
RIG = 20
RIG_POSE = ((0.30, 0.02, -0.01), (1.0, -2.0, 4.0))
PAIRS = {31: 1, 32: 2, 33: 3}  # relative orientation: image

WALL = dict(point=(0.0, 0.0, 0.0), normal=(-0.2, 0.0, 1.0))
EDGES = {
    1: ((-1.0, -1.0, 0.6), (1.0, 1.2, 0.9)),
    2: ((1.1, -1.0, 0.1), (0.9, 1.0, 0.3)),
}
POINTS_ON_EDGE = {1: 0.1, 2: 0.5, 3: 0.9}  # point: place along edge 1
POINTS_ON_WALL = {4: (-0.9, -0.8), 5: (0.8, -0.9), 6: (0.9, 0.8), 7: (-0.8, 0.9), 8: (0.1, 0.0)}
OTHER_POINTS = {9: (-1.1, -1.0, 0.5), 10: (1.1, -1.1, 0.7), 11: (1.2, 1.1, 0.4), 12: (-1.0, 1.2, 0.8)}
MEASURED_POINTS = (9, 10, 11, 12)
DISTANCE = (4, 6)


def rotation(omega, phi, kappa):
    a, b, c = (math.radians(t) for t in (omega, phi, kappa))
    ca, sa, cb, sb, cc, sc = (f(t) for t in (a, b, c) for f in (math.cos, math.sin))
    return ((cb * cc, -cb * sc, sb),
            (ca * sc + sa * sb * cc, ca * cc - sa * sb * sc, -sa * cb),
            (sa * sc - ca * sb * cc, sa * cc + ca * sb * sc, ca * cb))


def into(pose, x):
    """The point in the frame of the pose: transpose(R) (x - t)."""
    t, r = pose[0], rotation(*pose[1])
    d = [x[k] - t[k] for k in range(3)]
    return [sum(r[k][i] * d[k] for k in range(3)) for i in range(3)]


def image_of(camera, x, projection=None):
    x_ideal, y_ideal = camera["ck"] * x[0] / x[2], camera["ck"] * x[1] / x[2]
    r2 = x_ideal ** 2 + y_ideal ** 2
    k = camera["a1"] * r2
    dx = x_ideal * k + camera["b1"] * (2 * x_ideal ** 2 + r2)
    dy = y_ideal * k + 2 * camera["b1"] * x_ideal * y_ideal
    frame = projection or camera
    scale = frame["ck"] / camera["ck"]
    return (x_ideal + dx) * scale + frame["xh"], (y_ideal + dy) * scale + frame["yh"]


def see(image_id, x):
    """Image coordinates of an object point in an image or through a relative orientation."""
    if image_id in PAIRS:
        return image_of(CAMERAS[2], into(RIG_POSE, into(IMAGES[PAIRS[image_id]], x)))
    projection = PROJECTION if image_id == 6 else None
    return image_of(CAMERAS[1], into(IMAGES[image_id], x), projection)


def on_edge(edge, t):
    p, q = EDGES[edge]
    return [p[k] + t * (q[k] - p[k]) for k in range(3)]


def true_points():
    points = {i: on_edge(1, t) for i, t in POINTS_ON_EDGE.items()}
    points.update({i: [x, y, 0.2 * x] for i, (x, y) in POINTS_ON_WALL.items()})
    points.update({i: list(x) for i, x in OTHER_POINTS.items()})
    return points


def write(name, columns, rows):
    text = lambda v: v if isinstance(v, str) else str(v) if isinstance(v, int) else f"{v:.9g}"
    lines = [",".join(columns)] + [",".join(text(v) for v in row) for row in rows]
    path = Path(__file__).resolve().parent / name
    path.parent.mkdir(exist_ok=True)
    path.write_text("\n".join(lines) + "\n", encoding="utf-8")


def main():
    draw = random.Random(SEED)
    off = lambda size: size * draw.uniform(-1.0, 1.0)
    points = true_points()

    camera_columns = ["id", "ck", "xh", "yh", "a1", "b1"]
    cameras = [[i] + [c[k] for k in camera_columns[1:]] for i, c in CAMERAS.items()]
    write("truth/cameras.csv", camera_columns, cameras)
    write("cameras.csv", camera_columns + ["estimate"],
          [[1, -30.05, 0.0, 0.0, 0.0, 0.0, "ck xh yh a1 b1"], [2, -25.03, 0.0, 0.0, 0.0, 0.0, "ck xh yh a1"]])

    projection_columns = ["id", "ck", "xh", "yh"]
    write("truth/projections.csv", projection_columns, [[1] + [PROJECTION[k] for k in ("ck", "xh", "yh")]])
    write("projections.csv", projection_columns, [[1, -31.4, 0.0, 0.0]])

    image_columns = ["id", "camera", "projection", "x0", "y0", "z0", "omega", "phi", "kappa"]
    poses = {**IMAGES, RIG: RIG_POSE}
    row = lambda i, pose: [i, 2 if i == RIG else 1, "1" if i == 6 else ""] + list(pose[0]) + list(pose[1])
    write("truth/images.csv", image_columns, [row(i, p) for i, p in poses.items()])
    write("images.csv", image_columns,
          [row(i, ([t + off(0.01) for t in p[0]], [a + off(0.2) for a in p[1]])) for i, p in poses.items()])
    write("relative_orientations.csv", ["id", "image", "base_image"], [[i, e, RIG] for i, e in PAIRS.items()])

    write("truth/points.csv", ["id", "x", "y", "z"], [[i] + p for i, p in points.items()])
    write("points.csv", ["id", "x", "y", "z"],
          [[i] + [x + off(0.01) for x in p] for i, p in sorted(points.items())])

    line_columns = ["id", "x1", "y1", "z1", "x2", "y2", "z2"]
    write("truth/lines.csv", line_columns, [[i] + list(p) + list(q) for i, (p, q) in EDGES.items()])
    write("lines.csv", line_columns,
          [[i] + [x + off(0.01) for x in p + q] for i, (p, q) in EDGES.items()])
    plane_columns = ["id", "x", "y", "z", "nx", "ny", "nz"]
    write("truth/planes.csv", plane_columns, [[5] + list(WALL["point"]) + list(WALL["normal"])])
    write("planes.csv", plane_columns, [[5, 0.0, 0.0, 0.01, -0.19, 0.01, 1.0]])

    noisy = lambda value, sigma: value + draw.gauss(0.0, sigma)
    images = list(IMAGES) + list(PAIRS)
    write("image_coordinates.csv", ["point", "image", "x", "y", "sx", "sy"],
          [[p, i] + [noisy(v, SIGMA_IMAGE) for v in see(i, points[p])] + [SIGMA_IMAGE, SIGMA_IMAGE]
           for i in images for p in sorted(points)])
    # No line image coordinates where a projection stands: the two cannot go together.
    write("line_image_coordinates.csv", ["line", "image", "x", "y", "sx", "sy"],
          [[e, i] + [noisy(v, SIGMA_IMAGE) for v in see(i, on_edge(e, 0.1 * k))] + [SIGMA_IMAGE, SIGMA_IMAGE]
           for i in images if i != 6 for e in EDGES for k in range(11)])
    write("measured_coordinates.csv", ["point", "x", "y", "z", "sx", "sy", "sz"],
          [[p] + [noisy(v, SIGMA_MEASURED) for v in points[p]] + [SIGMA_MEASURED] * 3 for p in MEASURED_POINTS])
    write("distances.csv", ["point1", "point2", "distance", "sigma"],
          [[*DISTANCE, noisy(math.dist(points[DISTANCE[0]], points[DISTANCE[1]]), SIGMA_DISTANCE), SIGMA_DISTANCE]])
    write("points_on_lines.csv", ["id", "point", "line"], [[i, i, 1] for i in POINTS_ON_EDGE])
    write("points_on_planes.csv", ["id", "point", "plane"], [[i, i, 5] for i in POINTS_ON_WALL])


if __name__ == "__main__":
    main()
