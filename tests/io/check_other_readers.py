#!/usr/bin/python3
"""Reads files that the program has written with VTK and Open3D: they must see the same polygons as the program.

Usage: check_other_readers.py PROGRAM MODEL_FOLDER...
Ends with 77 where neither library is installed (Debian: python3-vtk9, python3-open3d).
"""

import json
import pathlib
import subprocess
import sys
import tempfile

try:
    import numpy as np
    import vtkmodules.all as vtk
except ImportError:
    vtk = None
try:
    import numpy as np
    import open3d
except ImportError:
    open3d = None

MOST_BYTES = 250_000  # larger models take long and tell nothing more


def run(program, *arguments, stdin=None):
    return subprocess.run([program, *map(str, arguments)], check=True, capture_output=True, text=True, stdin=stdin).stdout


def write(program, model, path):
    """Without the material library: the samples come without the textures that it names."""
    with open(model, "rb") as stdin:
        run(program, "convert", "-", path, "--from", model.suffix[1:], stdin=stdin)


def why_unlike(ours, theirs):
    """Empty where both are the same polygons in the same order. Some readers' numbers are a float's last bit off."""
    if [len(face) for face in ours] != [len(face) for face in theirs]:
        return f"{len(theirs)} polygons, but {len(ours)} are written, or their corners are others"
    close = np.isclose(np.concatenate(ours), np.concatenate(theirs), rtol=3e-7, atol=0)
    return "" if close.all() else f"{np.count_nonzero(~close)} coordinates are others"


def read_by_program(program, path):
    points, faces = [], []
    for line in run(program, "convert", path, "-", "--to", "obj").splitlines():
        words = line.split()
        if words[:1] == ["v"]:
            points.append([float(word) for word in words[1:4]])
        elif words[:1] == ["f"]:
            faces.append([int(word.split("/")[0]) - 1 for word in words[1:]])
    facts = json.loads(run(program, "info", "--json", path))
    assert facts["faces"] == len(faces), path
    return [[points[i] for i in face] for face in faces]


def faces_in(data):
    for i in range(data.GetNumberOfCells()):
        points = data.GetCell(i).GetPoints()
        yield [points.GetPoint(k) for k in range(points.GetNumberOfPoints())]


def read_by_vtk(path):
    kinds = {".ply": "PLY", ".stl": "STL", ".obj": "OBJ", ".gltf": "GLTF", ".glb": "GLTF"}
    if path.suffix not in kinds:
        return None
    reader = getattr(vtk, f"vtk{kinds[path.suffix]}Reader")()
    if path.suffix == ".stl":
        reader.MergingOff()  # which would leave out triangles with two corners at one place
    if path.suffix == ".ply":
        reader.SetDuplicatePointsForFaceTexture(False)  # which gives some corners other places
    reader.SetFileName(str(path))
    reader.Update()
    data = reader.GetOutput()
    if not data.IsA("vtkMultiBlockDataSet"):
        return list(faces_in(data))
    leaves = data.NewIterator()
    faces = []
    while not leaves.IsDoneWithTraversal():
        faces += faces_in(leaves.GetCurrentDataObject())
        leaves.GoToNextItem()
    return faces


def read_by_open3d(path):
    mesh = open3d.io.read_triangle_mesh(str(path))
    return np.asarray(mesh.vertices)[np.asarray(mesh.triangles)]


def main():
    program, folders = sys.argv[1], sys.argv[2:]
    for name, library in (("VTK", vtk), ("Open3D", open3d)):
        if not library:
            print(f"{name} is not installed: its readers are left out")
    if not vtk and not open3d:
        return 77
    if vtk:
        vtk.vtkObject.GlobalWarningDisplayOff()
    if open3d:
        open3d.utility.set_verbosity_level(open3d.utility.VerbosityLevel.Error)
    models = [path for folder in folders for path in sorted(pathlib.Path(folder).glob("**/*"))
              if path.suffix in (".obj", ".ply", ".off") and path.stat().st_size < MOST_BYTES]
    compared = failures = 0
    with tempfile.TemporaryDirectory() as work:
        for model in models:
            triangles = pathlib.Path(work, "triangles.stl")
            write(program, model, triangles)
            # Open3D reads triangles only.
            for reader, source in ((vtk and read_by_vtk, model), (open3d and read_by_open3d, triangles)):
                for end in ("ply", "stl", "obj", "off", "gltf", "glb") if reader else ():
                    path = pathlib.Path(work, f"model.{end}")
                    write(program, source, path)
                    theirs = reader(path)
                    if theirs is None:
                        continue
                    compared += 1
                    if why := why_unlike(read_by_program(program, path), theirs):
                        failures += 1
                        print(f"{model.name} as {end}, {reader.__name__}: {why}")
    print(f"{compared} files compared, {failures} are not alike")
    return 1 if failures or not compared else 0


sys.exit(main())
