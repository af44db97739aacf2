#!/usr/bin/env python3
"""Writes pavilion_clean.obj, a watertight pavilion of polygons with holes, and pavilion.obj, the same with defects.

The defects are those that cleaning undoes, so `facetbox clean pavilion.obj --all 0.01` gives back the clean faces.
All coordinates are multiples of 1/1024, hence exact as floats. Run it in any folder: files go beside this script.
"""

from pathlib import Path

FOLDER = Path(__file__).resolve().parent
MATERIALS = ["plaster", "glass", "wood", "stone", "tiles"]  # faces are written in this order
JITTER = 1 / 1024


class Face:
    """Corners are positions; a face with texture coordinates has one pair per corner."""

    def __init__(self, corners, material, uvs=None):
        self.corners, self.material, self.uvs, self.holes = list(corners), material, uvs, []

    def reversed(self):
        return Face(self.corners[::-1], self.material, self.uvs and self.uvs[::-1])

    def rotated(self, shift):
        uvs = self.uvs and self.uvs[shift:] + self.uvs[:shift]
        return Face(self.corners[shift:] + self.corners[:shift], self.material, uvs)


class Plane:
    """A frame on a flat part, seen from outside: u to the right, v up, normal u x v towards the eye."""

    def __init__(self, origin, u, v, material, textured=False):
        self.origin, self.u, self.v, self.material, self.textured = origin, u, v, material, textured
        self.normal = (u[1] * v[2] - u[2] * v[1], u[2] * v[0] - u[0] * v[2], u[0] * v[1] - u[1] * v[0])

    def at(self, point, depth=0):
        return tuple(self.origin[i] + point[0] * self.u[i] + point[1] * self.v[i] - depth * self.normal[i]
                     for i in range(3))

    def face(self, loop):
        """The polygon of a counter-clockwise loop."""
        uvs = [(p[0] / 4, p[1] / 4) for p in loop] if self.textured else None
        return Face([self.at(p) for p in loop], self.material, uvs)

    def opening(self, loop):
        """The hole face of an opening: it runs opposite to the face around it."""
        return self.face(loop[::-1])

    def sides(self, loop, depth, material):
        """The faces behind the rim of an opening, down to `depth`."""
        return [Face([self.at(p), self.at(q), self.at(q, depth), self.at(p, depth)], material)
                for p, q in zip(loop, loop[1:] + loop[:1])]


def rectangle(left, bottom, right, top):
    return [(left, bottom), (right, bottom), (right, top), (left, top)]


def octagon(x, y, far, near):
    return [(x + a, y + b) for a, b in [(near, -far), (far, -near), (far, near), (near, far),
                                        (-near, far), (-far, near), (-far, -near), (-near, -far)]]


FRONT = Plane((0, 0, 12), (1, 0, 0), (0, 1, 0), "plaster", True)
BACK = Plane((16, 0, 0), (-1, 0, 0), (0, 1, 0), "plaster", True)
RIGHT = Plane((16, 0, 12), (0, 0, -1), (0, 1, 0), "plaster", True)
LEFT = Plane((0, 0, 0), (0, 0, 1), (0, 1, 0), "plaster", True)
FLOOR = Plane((0, 0, 0), (1, 0, 0), (0, 0, 1), "stone")
EAVES = Plane((0, 5, 0), (1, 0, 0), (0, 0, 1), "tiles")
ROOF = Plane((0, 6, 0), (1, 0, 0), (0, 0, -1), "tiles")

WALL_WINDOWS = {
    FRONT: [[(x, 1.5), (x + 2, 1.5), (x + 2, 3), (x + 1.5, 3.5), (x + 0.5, 3.5), (x, 3)] for x in (2, 12)],
    BACK: [rectangle(x, 1.5, x + 2, 3.5) for x in (2, 7, 12)],
    RIGHT: [octagon(6, 2.5, 1.5, 0.75)],
    LEFT: [[(x, 1.5), (x + 2, 1.5), (x + 2, 3), (x + 1, 3.75), (x, 3)] for x in (2, 8)],
}
DOOR = [(7, 0), (7, 3), (9, 3), (9, 0)]
COURTYARD = octagon(11, -6, 2, 1)
SPIRE = rectangle(3, -7, 5, -5)


def clean_faces():
    faces = []

    def add(face, *holes):
        face.holes = list(holes)
        faces.extend([face, *holes])

    for plane, outline in [(FRONT, [(0, 0)] + DOOR + [(16, 0), (16, 5), (0, 5)]), (BACK, rectangle(0, 0, 16, 5)),
                           (RIGHT, rectangle(0, 0, 12, 5)), (LEFT, rectangle(0, 0, 12, 5))]:
        windows = WALL_WINDOWS[plane]
        add(plane.face(outline), *[plane.opening(window) for window in windows])
        for window in windows:
            faces.extend(plane.sides(window, 0.5, "stone"))
            add(Face([plane.at(p, 0.5) for p in window], "glass"))

    faces.extend(FRONT.sides(DOOR[::-1], 1, "stone")[:3])
    add(Face([FRONT.at(p, 1) for p in rectangle(7, 0, 9, 3)], "wood"))
    courtyard_below = [(x, -v) for x, v in COURTYARD[::-1]]
    add(FLOOR.face([(0, 0), (16, 0), (16, 12), (9, 12), (9, 11), (7, 11), (7, 12), (0, 12)]),
        FLOOR.opening(courtyard_below))
    faces.extend(ROOF.sides(COURTYARD, 6, "stone"))

    # The slab lies on the walls: their top edges are the rim of a hole in its underside.
    add(EAVES.face(rectangle(-1, -1, 17, 13)), EAVES.opening(rectangle(0, 0, 16, 12)))
    faces.extend(ROOF.sides(rectangle(-1, -13, 17, 1)[::-1], 1, "tiles"))
    add(ROOF.face(rectangle(-1, -13, 17, 1)), ROOF.opening(COURTYARD), ROOF.opening(SPIRE))
    apex = (4, 9, 6)
    for p, q in zip(SPIRE, SPIRE[1:] + SPIRE[:1]):
        add(Face([ROOF.at(p), ROOF.at(q), apex], "tiles"))
    return faces


class Damage:
    """Puts defects into a list of faces."""

    def __init__(self, faces):
        self.faces = faces
        self.copies = 0

    def find(self, *corners):
        """The only face that visits all these positions, hole faces left out."""
        hole_faces = [h for face in self.faces for h in face.holes]
        found = [f for f in self.faces if f not in hole_faces and all(c in f.corners for c in corners)]
        assert len(found) == 1, (corners, len(found))
        return found[0]

    def replace(self, face, parts):
        for hole in face.holes:
            if not any(hole in part.holes for part in parts):
                self.faces.remove(hole)
        position = self.faces.index(face)
        self.faces[position:position + 1] = parts

    def split_edge(self, a, b, middle):
        """A straight corner in every face that has the edge."""
        for face in self.faces:
            n = len(face.corners)
            for i in range(n):
                j = (i + 1) % n
                if {face.corners[i], face.corners[j]} == {a, b}:
                    self.insert(face, i, middle)
                    break

    @staticmethod
    def insert(face, i, middle):
        a, b = face.corners[i], face.corners[(i + 1) % len(face.corners)]
        if face.uvs:
            axis = max(range(3), key=lambda k: abs(b[k] - a[k]))
            t = (middle[axis] - a[axis]) / (b[axis] - a[axis])
            (u0, v0), (u1, v1) = face.uvs[i], face.uvs[(i + 1) % len(face.uvs)]
            face.uvs.insert(i + 1, (u0 + t * (u1 - u0), v0 + t * (v1 - v0)))
        face.corners.insert(i + 1, middle)

    def invert(self, face):
        self.faces[self.faces.index(face)] = face.reversed()

    def unweld(self, face):
        """Vertices of its own, a little off."""
        for i, corner in enumerate(face.corners):
            self.copies += 1
            signs = [1 if self.copies >> k & 1 else -1 for k in range(3)]
            face.corners[i] = tuple(c + s * JITTER for c, s in zip(corner, signs))


def damaged_faces():
    damage = Damage(clean_faces())

    # Flat parts in several faces; the corners on their outer edges are straight ones for the neighbors.
    back = damage.find(BACK.at((0, 0)), BACK.at((16, 0)), BACK.at((16, 5)))
    for a, b, middle in ((0, 16, 5), (5, 16, 11)):
        damage.split_edge(BACK.at((a, 0)), BACK.at((b, 0)), BACK.at((middle, 0)))
        damage.split_edge(BACK.at((a, 5)), BACK.at((b, 5)), BACK.at((middle, 5)))
    parts = [BACK.face(rectangle(left, 0, right, 5)) for left, right in ((0, 5), (11, 16))]
    parts[0].holes, parts[1].holes = [back.holes[0]], [back.holes[2]]
    outer, inner = rectangle(5, 0, 11, 5), WALL_WINDOWS[BACK][1]
    ring = [BACK.face([outer[i], outer[(i + 1) % 4], inner[(i + 1) % 4], inner[i]]) for i in range(4)]
    damage.replace(back, parts + ring)

    eaves = damage.find(EAVES.at((-1, -1)), EAVES.at((17, -1)), EAVES.at((17, 13)))
    rim = eaves.holes[0].corners  # with the straight corners at the back wall
    outer, inner = rectangle(-1, -1, 17, 13), rectangle(0, 0, 16, 12)
    ring = [[EAVES.at(p) for p in (outer[i], outer[(i + 1) % 4], inner[(i + 1) % 4], inner[i])] for i in range(4)]
    extra = [c for c in rim if c not in [EAVES.at(p) for p in inner]]
    ring[0][3:3] = sorted(extra, key=lambda c: -c[0])
    damage.replace(eaves, [Face(corners, "tiles") for corners in ring])

    roof = damage.find(ROOF.at((-1, -13)), ROOF.at((17, -13)), ROOF.at((17, 1)))
    damage.split_edge(ROOF.at((-1, -13)), ROOF.at((17, -13)), ROOF.at((7, -13)))
    damage.split_edge(ROOF.at((17, 1)), ROOF.at((-1, 1)), ROOF.at((7, 1)))
    halves = [ROOF.face(rectangle(7, -13, 17, 1)), ROOF.face(rectangle(-1, -13, 7, 1))]
    halves[0].holes, halves[1].holes = [roof.holes[0]], [roof.holes[1]]
    damage.replace(roof, halves)

    wood = damage.find(FRONT.at((7, 0), 1), FRONT.at((9, 3), 1))
    a, b, c, d = wood.corners
    damage.replace(wood, [Face([a, b, c], "wood"), Face([a, c, d], "wood")])

    # Straight corners with nothing behind them.
    damage.split_edge((16, 0, 12), (16, 5, 12), (16, 2.25, 12))
    damage.split_edge((0, 0, 12), (0, 5, 12), (0, 3.5, 12))
    damage.split_edge((17, 5, -1), (17, 5, 13), (17, 5, 4))

    # A sliver in a crack: one neighbor has the corner in the middle, the other has not.
    top, bottom = ROOF.at(COURTYARD[0]), ROOF.at(COURTYARD[0], 6)
    middle = (top[0], 2, top[2])
    neighbor = damage.find(top, bottom, ROOF.at(COURTYARD[1]))
    i = [k for k in range(4) if {neighbor.corners[k], neighbor.corners[(k + 1) % 4]} == {top, bottom}][0]
    a, b = neighbor.corners[i], neighbor.corners[(i + 1) % 4]
    damage.insert(neighbor, i, middle)
    damage.faces.append(Face([a, b, middle], "stone"))

    # Edges without length: a corner twice, once exactly and once a little off.
    pane = damage.find(*[LEFT.at(p, 0.5) for p in WALL_WINDOWS[LEFT][0]])
    pane.corners.insert(2, pane.corners[2])
    pane = damage.find(*[LEFT.at(p, 0.5) for p in WALL_WINDOWS[LEFT][1]])
    pane.corners.insert(4, tuple(c + JITTER for c in pane.corners[4]))

    # Faces that lost touch with their neighbors.
    right_pane = damage.find(*[RIGHT.at(p, 0.5) for p in WALL_WINDOWS[RIGHT][0]])
    tip = damage.find((4, 9, 6), ROOF.at(SPIRE[0]), ROOF.at(SPIRE[1]))
    shaft = damage.find(ROOF.at(COURTYARD[4]), ROOF.at(COURTYARD[5]))
    left_wall = damage.find((0, 0, 0), (0, 5, 0), (0, 5, 12))
    for face in (right_pane, tip, shaft, left_wall):
        damage.unweld(face)

    # Turned inside out.
    for corners in ([FRONT.at(p, 0.5) for p in WALL_WINDOWS[FRONT][0]], [(17, 5, 13), (17, 6, 13), (17, 5, 4)],
                    [EAVES.at((-1, -1)), EAVES.at((-1, 13)), EAVES.at((0, 12))],
                    [ROOF.at(COURTYARD[6]), ROOF.at(COURTYARD[7])], [BACK.at((5, 0)), BACK.at((11, 0)), BACK.at((9, 1.5))]):
        damage.invert(damage.find(*corners))

    # Twice or thrice there: begun at another corner, turned round, with vertices of its own.
    twice = damage.find(*[BACK.at(p, 0.5) for p in WALL_WINDOWS[BACK][0]])
    thrice = damage.find((4, 9, 6), ROOF.at(SPIRE[2]), ROOF.at(SPIRE[3]))
    wall = damage.find(RIGHT.at((0, 0)), RIGHT.at((12, 0)), RIGHT.at((12, 5)))
    for copy in (twice.rotated(2), thrice.reversed(), thrice.rotated(1), wall.reversed().rotated(1)):
        damage.faces.append(copy)
    damage.unweld(damage.faces[-2])
    return damage.faces


def write(name, title, faces, vertices):
    faces = [face for material in MATERIALS for face in faces if face.material == material]
    number = {id(face): i + 1 for i, face in enumerate(faces)}
    vertex_ids = {v: i + 1 for i, v in enumerate(vertices)}
    uv_ids = {}
    for face in faces:
        for corner in face.corners:
            vertex_ids.setdefault(corner, len(vertex_ids) + 1)
        for uv in face.uvs or []:
            uv_ids.setdefault(uv, len(uv_ids) + 1)

    lines = [f"# {title}", "# Made by make_pavilion.py", "mtllib pavilion.mtl", "o pavilion"]
    lines += ["v " + " ".join(f"{c:.12g}" for c in v) for v in vertex_ids]
    lines += ["vt " + " ".join(f"{c:.12g}" for c in uv) for uv in uv_ids]
    material = None
    for face in faces:
        if face.material != material:
            material = face.material
            lines.append("usemtl " + material)
        corners = [str(vertex_ids[c]) for c in face.corners]
        if face.uvs:
            corners = [f"{v}/{uv_ids[uv]}" for v, uv in zip(corners, face.uvs)]
        lines.append("f " + " ".join(corners))
    for face in faces:
        if face.holes:
            lines.append("# facetbox:holes " + " ".join(str(number[id(f)]) for f in [face, *face.holes]))
    (FOLDER / name).write_text("\n".join(lines) + "\n")
    print(f"{name}: {len(vertex_ids)} vertices, {len(faces)} faces")


def check_watertight(faces):
    uses = [(p, q) for face in faces for p, q in zip(face.corners, face.corners[1:] + face.corners[:1])]
    assert len(set(uses)) == len(uses)
    assert {(q, p) for p, q in uses} == set(uses)


def main():
    faces = clean_faces()
    check_watertight(faces)
    # Both files list the clean vertices first, so that welding ends on them.
    vertices = list(dict.fromkeys(c for face in faces for c in face.corners))
    write("pavilion_clean.obj", "A small pavilion: walls with windows, a slab with a courtyard and a spire", faces,
          vertices)
    write("pavilion.obj", "The pavilion with all that cleaning is for", damaged_faces(), vertices)


if __name__ == "__main__":
    main()
