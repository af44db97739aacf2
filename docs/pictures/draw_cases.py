#!/usr/bin/env python3
"""Draws small models before and after the program has cleaned them, for operations.md.

Usage: draw_cases.py PROGRAM FOLDER_OF_MODELS OUTPUT_FOLDER

Blue is the front of a face, red its back; dots are vertices.
"""

import math
import pathlib
import subprocess
import sys
import tempfile

# Narrow models are drawn wider than they are.
STRETCHED = {"overlapping_fan": 4.0, "zero_area_out_of_plane": 3.0}

# Per model: what the program is asked for, how often, and from where one looks.
CASES = {
    "plate_pocket_below": (["--all", "1e-5"], 2, (0.6, -1.0, 0.8)),
    "overlapping_fan": (["--remove-coplanar", "0.01", "--triangulate"], 1, (0.0, 1.0, 0.0)),
    "zero_area_out_of_plane": (["--remove-coplanar", "0.01"], 1, (0.3, 1.0, 0.2)),
    "twisted_quad": (["--triangulate"], 1, (1.0, 0.5, 0.6)),
    "self_edges": (["--conform-normals"], 1, (-0.6, -1.0, 0.9)),
    "touching_hole": (["--conform-normals"], 1, (1.0, 0.4, -0.3)),
    "zurich_part_z_up": (["--conform-normals"], 1, (0.4, -1.0, 0.6)),
}
WIDTH, HEIGHT, MARGIN = 215, 200, 24


def read(path):
    """Vertices, faces, and per face its hole faces."""
    vertices, faces, holes = [], [], {}
    for line in path.read_text().splitlines():
        words = line.split()
        if line.startswith("# facetbox:holes"):
            numbers = [int(word) - 1 for word in words[2:]]
            holes.setdefault(numbers[0], []).extend(numbers[1:])
        elif words and words[0] == "v":
            vertices.append([float(word) for word in words[1:4]])
        elif words and words[0] == "f":
            faces.append([int(word.split("/")[0]) - 1 for word in words[1:]])
    return vertices, faces, holes


def normalized(v):
    length = math.sqrt(sum(x * x for x in v))
    return [x / length for x in v]


def cross(a, b):
    return [a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]]


def dot(a, b):
    return sum(x * y for x, y in zip(a, b))


def projection(vertices, eye, stretch):
    """Where a vertex stands in a picture, and how near it is: seen from far away in direction `eye`."""
    to_eye = normalized(eye)
    up = [0.0, 1.0, 0.0] if abs(to_eye[1]) < 0.9 else [0.0, 0.0, -1.0]
    right = normalized(cross(up, to_eye))
    up = cross(to_eye, right)
    right = [stretch * x for x in right]
    flat = [(dot(v, right), dot(v, up)) for v in vertices]
    low = [min(p[i] for p in flat) for i in (0, 1)]
    size = [max(p[i] for p in flat) - low[i] for i in (0, 1)]
    scale = min((WIDTH - 2 * MARGIN) / max(size[0], 1e-300), (HEIGHT - 2 * MARGIN) / max(size[1], 1e-300))
    left = (WIDTH - scale * size[0]) / 2
    bottom = HEIGHT - (HEIGHT - scale * size[1]) / 2 + MARGIN / 3

    def place(v):
        return left + scale * (dot(v, right) - low[0]), bottom - scale * (dot(v, up) - low[1])

    return place, lambda v: dot(v, to_eye)


def drawn(model, view, offset):
    vertices, faces, holes = model
    place, nearness = view
    hole_faces = {hole for group in holes.values() for hole in group}
    lines = []

    def mean_nearness(face):
        return sum(nearness(vertices[v]) for v in faces[face]) / len(faces[face])

    for face in sorted((f for f in range(len(faces)) if f not in hole_faces), key=mean_nearness):
        path, area = "", 0.0
        for ring in [face, *holes.get(face, [])]:
            points = [place(vertices[v]) for v in faces[ring]]
            if ring == face:
                area = sum(a[0] * b[1] - a[1] * b[0] for a, b in zip(points, points[1:] + points[:1]))
            path += "M" + " L".join(f"{x + offset:.1f},{y:.1f}" for x, y in points) + " Z "
        color = "#c9dcef" if area < 0 else "#f0c4c4"
        lines.append(
            f'<path d="{path.strip()}" fill="{color}" fill-opacity="0.85" stroke="#2b4c6f" stroke-width="1.2" '
            'stroke-linejoin="round" fill-rule="evenodd"/>'
        )
    for v in sorted({v for face in faces for v in face}):
        x, y = place(vertices[v])
        lines.append(f'<circle cx="{x + offset:.1f}" cy="{y:.1f}" r="2" fill="#2b4c6f"/>')
    return lines


def draw(program, source, target, options, times, eye):
    before = read(source)
    with tempfile.TemporaryDirectory() as folder:
        given = source
        for i in range(times):
            cleaned = pathlib.Path(folder) / f"{i}.obj"
            subprocess.run([program, "clean", given, "-o", cleaned, *options], check=True, stdout=subprocess.DEVNULL)
            given = cleaned
        after = read(given)
    view = projection([before[0][v] for face in before[1] for v in face], eye, STRETCHED.get(source.stem, 1.0))
    label = '<text x="{}" y="16" text-anchor="middle" font-family="sans-serif" font-size="12" fill="#555">{}</text>'
    lines = [
        f'<svg xmlns="http://www.w3.org/2000/svg" width="{2 * WIDTH}" height="{HEIGHT + 10}" '
        f'viewBox="0 0 {2 * WIDTH} {HEIGHT + 10}">',
        f'<rect width="{2 * WIDTH}" height="{HEIGHT + 10}" fill="white"/>',
        label.format(WIDTH // 2, "before"),
        *drawn(before, view, 0),
        label.format(WIDTH + WIDTH // 2, "after"),
        *drawn(after, view, WIDTH),
        "</svg>",
    ]
    target.write_text("\n".join(lines) + "\n")


def main():
    program, models, output = sys.argv[1], pathlib.Path(sys.argv[2]), pathlib.Path(sys.argv[3])
    for name, (options, times, eye) in CASES.items():
        draw(program, models / f"{name}.obj", output / f"case-{name.replace('_', '-')}.svg", options, times, eye)


if __name__ == "__main__":
    main()
