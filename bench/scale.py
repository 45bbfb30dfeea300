"""The command on one process and on several: times, bytes, memory, and whether results are the same.

Each row is a run of the whole command from start to end, by the wall's clock; the least of --repeats. Results are held
against those of one process without pieces, sorted by place: bit for bit, but for measure, whose sums are made in another
order. The program ends with 1 where results differ.
"""

import argparse
import json
import os
import re
import resource
import shutil
import subprocess
import sys
import time

import numpy as np
from vtkmodules.util.numpy_support import vtk_to_numpy
from vtkmodules.vtkIOXML import vtkXMLGenericDataObjectReader

MEGA = 1e6
PROCESS_LINE = re.compile(r"process +(\d+): peak +([\d.]+) MB, read +([\d.]+) MB, sent +([\d.]+) MB")


def arguments():
    words = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    words.add_argument("--command", required=True)
    words.add_argument("--data", required=True, help="folder for inputs and results; inputs are kept")
    words.add_argument("--commit", default="")
    words.add_argument("--markdown")
    words.add_argument("--json")
    words.add_argument("--quick", action="store_true", help="an eighth of the nodes along each axis")
    words.add_argument("--size", type=int, help="nodes along each axis of the sample, instead of 512")
    words.add_argument("--cells", type=int, help="cells along each axis of the mesh in pieces, instead of 255")
    words.add_argument("--large", type=int, help="nodes along each axis of what is larger than memory, instead of 800")
    words.add_argument("--processes", default="1,2", help="counts of processes")
    words.add_argument("--repeats", type=int, default=3)
    words.add_argument("--count", action="store_true", help="count messages on 2, 4, 8 and 16 processes, and do nothing else")
    words.add_argument("--only", default="", help="commands whose name holds the text")
    return words.parse_args()


# ---- runs ------------------------------------------------------------------------------------------------------------------


class Run:
    """What one run took."""

    def __init__(self, command, words, processes=0, limit=None):
        line = [command, *words, "--time"]
        if processes > 0:
            line = ["mpirun", "--oversubscribe", "--allow-run-as-root", "-n", str(processes), *line]
        # From a small process: the peak of one begins with that of its parent.
        line = ["/bin/sh", "-c", '"$@"; exit $?', "sh", *line]
        limited = (lambda: resource.setrlimit(resource.RLIMIT_AS, (limit, limit))) if limit else None
        begun = time.monotonic()
        done = subprocess.run(line, capture_output=True, text=True, preexec_fn=limited, check=False)
        self.seconds = time.monotonic() - begun
        self.ok = done.returncode == 0
        self.said = done.stdout + done.stderr
        figures = PROCESS_LINE.findall(done.stdout)
        self.peak = [float(one[1]) for one in figures]
        self.read = [float(one[2]) for one in figures]
        self.sent = [float(one[3]) for one in figures]

    def require(self):
        if not self.ok:
            sys.exit("scale: a run failed\n" + self.said)
        return self


def least_of(repeats, make):
    runs = [make().require() for _ in range(repeats)]
    return min(runs, key=lambda run: run.seconds)


# ---- results sorted by place -----------------------------------------------------------------------------------------------


def data_of(path):
    reader = vtkXMLGenericDataObjectReader()
    reader.SetFileName(path)
    reader.Update()
    return reader.GetOutput()


def node_rows(data):
    """A row of bytes for each node: its place and all that it has."""
    n = data.GetNumberOfPoints()
    columns = [np.array([data.GetPoint(i) for i in range(n)], dtype=np.float64)] if not hasattr(
        data, "GetPoints") or data.GetPoints() is None else [vtk_to_numpy(data.GetPoints().GetData())]
    arrays = data.GetPointData()
    names = sorted(arrays.GetArrayName(i) for i in range(arrays.GetNumberOfArrays()))
    columns += [vtk_to_numpy(arrays.GetArray(name)).reshape(n, -1) for name in names]
    parts = [np.ascontiguousarray(one).view(np.uint8).reshape(n, -1) for one in columns]
    rows = np.ascontiguousarray(np.concatenate(parts, axis=1))
    return rows.view(np.dtype((np.void, rows.shape[1]))).ravel()


def ranks_of_nodes(rows):
    """The place of each node in the sorted list; equal nodes have equal ones."""
    values, ranks = np.unique(rows, return_inverse=True)
    return values, ranks.astype(np.int64)


def cell_rows(data, ranks):
    """Sorted rows of the ranks of each cell's nodes, turned so that the least comes first, by the length of rows."""
    lists = {}
    if data.IsA("vtkImageData") or data.IsA("vtkRectilinearGrid") or data.IsA("vtkStructuredGrid"):
        return lists
    arrays = [data.GetVerts(), data.GetLines(), data.GetPolys()] if data.IsA("vtkPolyData") else [data.GetCells()]
    for cells in arrays:
        if cells.GetNumberOfCells() == 0:
            continue
        offsets = vtk_to_numpy(cells.GetOffsetsArray())
        nodes = ranks[vtk_to_numpy(cells.GetConnectivityArray())]
        for length in np.unique(np.diff(offsets)):
            starts = offsets[:-1][np.diff(offsets) == length]
            rows = nodes[starts[:, None] + np.arange(length)]
            if length == 3:
                first = np.argmin(rows, axis=1)
                rows = rows[np.arange(len(rows))[:, None], (first[:, None] + np.arange(3)) % 3]
            rows = rows[np.lexsort(rows.T[::-1])]
            lists[int(length)] = rows
    return lists


def fingerprint(path):
    """What two results have alike where they are the same mesh with the same values, in any order."""
    if path.endswith(".csv"):
        with open(path, "rb") as file:
            return file.read()
    data = data_of(path)
    values, ranks = ranks_of_nodes(node_rows(data))
    return data.GetNumberOfPoints(), values.tobytes(), {n: rows.tobytes() for n, rows in cell_rows(data, ranks).items()}


# ---- inputs ----------------------------------------------------------------------------------------------------------------


class Inputs:
    def __init__(self, options):
        self.command, self.folder = options.command, options.data
        os.makedirs(self.folder, exist_ok=True)
        small = 8 if options.quick else 1
        self.size = options.size or 512 // small
        self.cells = options.cells or (256 // small) - 1
        self.large = options.large or 800 // small

    def path(self, name):
        return os.path.join(self.folder, name)

    def made(self, name, *words):
        path = self.path(name)
        if not os.path.exists(path):
            Run(self.command, [*words, "-o", path]).require()
        return path

    def lattice(self):
        return self.made(f"sample{self.size}.vti", "sample", "marschner-lobb", "--size", str(self.size))

    def mesh(self):
        """Hexahedra in 16 pieces, and the same in one file."""
        n = self.cells + 1
        whole = self.made(f"nodes{n}.vti", "sample", "marschner-lobb", "--size", str(n))
        name = array_of(whole)
        pieces = self.made(f"cells{n}.pvtu", "threshold", whole, "--array", name, "--min", "-1e30", "--pieces", "16")
        return self.made(f"cells{n}.vtu", "threshold", whole, "--array", name, "--min", "-1e30"), pieces

    def beyond_memory(self):
        return self.made(f"large{self.large}.vti", "sample", "marschner-lobb", "--size", str(self.large))


def array_of(path):
    """The name of the first node array, from the head of the file."""
    with open(path, "rb") as file:
        head = file.read(4000).decode("latin-1")
    return re.search(r'<DataArray[^>]*Name="([^"]+)"', head[head.index("<PointData"):]).group(1)


# ---- tables ----------------------------------------------------------------------------------------------------------------


def table(title, heads, rows):
    widths = [max(len(str(row[i])) for row in [heads, *rows]) for i in range(len(heads))]
    lines = ["| " + " | ".join(str(one).ljust(width) for one, width in zip(row, widths)) + " |" for row in [heads, *rows]]
    lines.insert(1, "|" + "|".join("-" * (width + 2) for width in widths) + "|")
    return "\n".join([f"### {title}", "", *lines, ""])


def listed(figures):
    return ", ".join(f"{one:.1f}" if one < 100 else f"{one:.0f}" for one in figures) or "-"


# ---- cases -----------------------------------------------------------------------------------------------------------------


def strong_scaling(options, inputs, figures):
    """The same work on one process without MPI, and on 1, 2, ... of them."""
    counts = [int(one) for one in options.processes.split(",")]
    lattice = inputs.lattice()
    whole, pieces = inputs.mesh()
    array, of_mesh = array_of(lattice), array_of(whole)
    points = ["--line", "-0.9,-0.8,-0.7", "0.9,0.7,0.8", str(max(1000, inputs.size * 2000))]
    cases = []
    for title, plain, split, name in [(f"{inputs.size}^3 nodes", lattice, lattice, array),
                                      (f"{inputs.cells ** 3} cells, 16 pieces", whole, pieces, of_mesh)]:
        ending = ".vti" if split.endswith(".vti") else ".vtu"
        cases += [("iso", title, plain, split, ["--array", name, "--level", "0.5"], ".vtp"),
                  ("cut", title, plain, split, ["--array", name, "--level", "0.5"], ".vtu"),
                  ("gradient", title, plain, split, ["--array", name], ending),
                  ("probe", title, plain, split, points, ".vtp")]
    rows, wrong = [], []
    for command, title, plain, split, words, ending in cases:
        if options.only not in command:
            continue
        out = inputs.path("result" + ending)
        listed_out = inputs.path("result.p" + ending[1:])
        base = least_of(options.repeats, lambda: Run(options.command, [command, plain, *words, "-o", out]))
        expected = fingerprint(out)
        rows.append([command, title, "none", f"{base.seconds:.2f}", "1.00", listed(base.read), "-", listed(base.peak), ""])
        figures.append({"case": command, "data": title, "processes": 0, "seconds": base.seconds, "read": base.read,
                        "sent": base.sent, "peak": base.peak})
        # On one process too: a list of files is read as it stands otherwise, with nodes on seams in each piece.
        if split.endswith(".pvtu"):
            words = [*words, "--pieces", "16"]
        first = None
        for n in counts:
            # Results by pieces, as a user of several processes has them; joined for the comparison alone.
            to = listed_out if command != "probe" else out
            run = least_of(options.repeats, lambda: Run(options.command, [command, split, *words, "-o", to], n))
            first = first or run.seconds
            if command != "probe":
                Run(options.command, [command, split, *words, "-o", out, "--gather"], n).require()
            same = fingerprint(out) == expected
            if not same:
                wrong.append(f"{command} of {title} on {n} processes")
            rows.append([command, title, n, f"{run.seconds:.2f}", f"{first / run.seconds:.2f}", listed(run.read),
                         listed([1000 * one for one in run.sent]), listed(run.peak), "same" if same else "OTHER"])
            figures.append({"case": command, "data": title, "processes": n, "seconds": run.seconds, "read": run.read,
                            "sent": run.sent, "peak": run.peak, "same": same})
    heads = ["command", "data", "processes", "s", "times as fast", "MB read by each", "kB sent by each", "peak MB of each",
             "result"]
    return table("On several processes", heads, rows), wrong


def beyond_memory(options, inputs, figures):
    """--pieces 64 within a limit that is less than the data."""
    path = inputs.beyond_memory()
    name = array_of(path)
    bytes_of_data = 4 * inputs.large ** 3
    # What the program and its libraries take of addresses before any data comes.
    base = Run(options.command, ["sample", "marschner-lobb", "--size", "4", "-o", inputs.path("tiny.vti")]).require()
    limit = (1 << 30) + bytes_of_data // 2 if not options.quick else None
    rows, wrong = [], []
    for command, words, ending in [("iso", ["--level", "0.5"], ".vtp"), ("gradient", [], ".vti")]:
        if options.only not in command:
            continue
        line = [command, path, "--array", name, *words]
        whole = Run(options.command, [*line, "-o", inputs.path("whole" + ending)], limit=limit)
        run = Run(options.command, [*line, "--pieces", "64", "-o", inputs.path("part.p" + ending[1:])], limit=limit).require()
        rows.append([command, f"{bytes_of_data / MEGA:.0f}", "none" if limit is None else f"{limit / MEGA:.0f}",
                     "done" if whole.ok else "not for want of memory", f"{run.seconds:.1f}", listed(run.peak), listed(run.read)])
        figures.append({"case": command, "data_bytes": bytes_of_data, "limit": limit, "whole": whole.ok,
                        "seconds": run.seconds, "peak": run.peak, "read": run.read, "program": base.peak})
        if limit is not None and run.peak and max(run.peak) * MEGA > bytes_of_data:
            wrong.append(f"{command} with --pieces 64 took more memory than the data has")
    heads = ["command", "MB of data", "MB of addresses at most", "whole", "64 pieces, s", "peak MB", "MB read"]
    return table("Data larger than memory", heads, rows), wrong


def counted(options, inputs, figures):
    """Messages and bytes between processes, from Open MPI's own monitoring."""
    lattice = inputs.lattice()
    name = array_of(lattice)
    flow = inputs.made(f"flow{inputs.size}.vti", "gradient", lattice, "--array", name)
    seeds = ["--vectors", f"gradient({name})", "--seeds-random", "100", "--max-steps", "500"]
    points = ["--line", "-0.9,-0.8,-0.7", "0.9,0.7,0.8", "100000"]
    cases = [("iso", lattice, ["--array", name, "--level", "0.5"], ".pvtp"),
             ("iso --gather", lattice, ["--array", name, "--level", "0.5", "--gather"], ".vtp"),
             ("gradient", lattice, ["--array", name], ".pvti"),
             ("gradient --gather", lattice, ["--array", name, "--gather"], ".vti"),
             ("measure", lattice, ["--array", name], None),
             ("probe", lattice, points, ".vtp"),
             ("stream", flow, seeds, ".vtp")]
    rows = []
    report = inputs.path("messages")
    for title, path, words, ending in cases:
        if options.only not in title:
            continue
        for n in (2, 4, 8, 16):
            line = ["mpirun", "--oversubscribe", "--allow-run-as-root", "-n", str(n), "--mca", "pml_monitoring_enable", "1",
                    "--mca", "pml_monitoring_enable_output", "3", "--mca", "pml_monitoring_filename", report,
                    options.command, title.split()[0], path, *words, "--quiet"]
            if ending is not None:
                line += ["-o", inputs.path("result" + ending)]
            done = subprocess.run(line, capture_output=True, text=True, check=False)
            if done.returncode != 0:
                sys.exit("scale: a run failed\n" + done.stdout + done.stderr)
            sent = []  # of each process: messages and bytes
            received = [0] * n
            for rank in range(n):
                messages = size = 0
                with open(f"{report}.{rank}.prof", encoding="utf-8") as file:
                    for to, one_size, count in re.findall(r"^E\t\d+\t(\d+)\t(\d+) bytes\t(\d+) msgs", file.read(), re.M):
                        messages += int(count)
                        size += int(one_size)
                        received[int(to)] += int(one_size)
                sent.append((messages, size))
                os.remove(f"{report}.{rank}.prof")
            rows.append([title, n, sent[0][0], max(one[0] for one in sent), sum(one[0] for one in sent),
                         f"{sum(one[1] for one in sent) / 1000:.1f}", f"{max(one[1] for one in sent) / 1000:.1f}",
                         f"{received[0] / 1000:.1f}"])
            figures.append({"case": title, "processes": n, "messages_and_bytes": sent, "received_by_first": received[0]})
    heads = ["command", "processes", "messages of the first", "most messages of one", "all messages", "kB in all",
             "kB sent by one at most", "kB received by the first"]
    return table(f"Messages, {inputs.size}^3 nodes", heads, rows)


def main():
    options = arguments()
    options.command = os.path.abspath(options.command)
    inputs = Inputs(options)
    figures = []
    wrong, also = [], []
    if options.count:
        text = counted(options, inputs, figures)
    else:
        text, wrong = strong_scaling(options, inputs, figures)
        more, also = beyond_memory(options, inputs, figures)
        text += "\n" + more
    text = f"commit {options.commit}, {os.cpu_count()} processors\n\n{text}"
    print(text)
    if options.markdown:
        with open(options.markdown, "w", encoding="utf-8") as file:
            file.write(text)
    if options.json:
        with open(options.json, "w", encoding="utf-8") as file:
            json.dump({"commit": options.commit, "runs": figures}, file, indent=1)
    for name in os.listdir(inputs.folder):
        if name.startswith(("result", "whole", "part", "tiny")):
            path = inputs.path(name)
            shutil.rmtree(path) if os.path.isdir(path) else os.remove(path)
    for one in wrong + also:
        print("scale: not as on one process: " + one, file=sys.stderr)
    return 1 if wrong + also else 0


if __name__ == "__main__":
    sys.exit(main())
