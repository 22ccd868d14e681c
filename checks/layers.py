"""The modules form layers: what includes what has no cycle.

A module is a header and the source of the same name. It includes nothing of a room above its own,
so the host layer knows nothing of the library and the library nothing of the program; and nothing
that it includes leads back to it, or a reader who wants to understand one module has to understand
them all.

    python3 checks/layers.py [--print]

Prints each cycle, and each include from a room into one above it; with --print the layers, too, the
lowest first. Ends with status 1 when there is something to complain about.
"""

import argparse
import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
ROOMS = ("host", "common", "cpp")  # the lowest first
INCLUDE = re.compile(rf'^#include "((?:{"|".join(ROOMS)})/[^"]+)"', re.MULTILINE)


def module_of(path):
    return path.rsplit(".", 1)[0]


def height_of(module):
    return ROOMS.index(module.split("/", 1)[0])


def read_graph(root):
    """{module: the modules that it includes}"""
    graph = {}
    for room in ROOMS:
        for path in sorted((root / room).rglob("*")):
            if path.suffix not in (".h", ".cc"):
                continue
            module = module_of(path.relative_to(root).as_posix())
            included = {module_of(name) for name in INCLUDE.findall(path.read_text())}
            graph.setdefault(module, set()).update(included - {module})
    return graph


def layers_of(graph):
    """The modules in layers, each above those that it includes; and what is left, which lies on
    cycles or above one."""
    left, below, layers = dict(graph), set(), []
    while True:
        layer = sorted(module for module, included in left.items()
                       if not (included & graph.keys()) - below)
        if not layer:
            return layers, left
        layers.append(layer)
        below.update(layer)
        for module in layer:
            del left[module]


def cycles_of(left):
    """The sets of modules that include one another."""
    def reached(module):
        seen, todo = set(), [module]
        while todo:
            for other in left.get(todo.pop(), ()):
                if other not in seen:
                    seen.add(other)
                    todo.append(other)
        return seen

    reach = {module: reached(module) for module in left}
    cycles = {frozenset(other for other in reach[module] if module in reach.get(other, ()))
              for module in left if module in reach[module]}
    return sorted(sorted(cycle) for cycle in cycles)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--print", action="store_true", help="the layers, too")
    parser.add_argument("--root", type=pathlib.Path, default=ROOT, help=argparse.SUPPRESS)
    options = parser.parse_args()
    graph = read_graph(options.root)
    layers, left = layers_of(graph)
    if options.print:
        for number, layer in enumerate(layers):
            print(f"{number:2}  {' '.join(layer)}")
    complaints = [f"{module} includes {name}" for module in sorted(graph)
                  for name in sorted(graph[module]) if height_of(name) > height_of(module)]
    for cycle in cycles_of(left):
        complaints.append("these include one another:")
        complaints += [f"  {module}: {' '.join(sorted(left[module] & set(cycle)))}"
                       for module in cycle]
    print("\n".join(complaints) if complaints else
          f"{len(graph)} modules in {len(layers)} layers")
    return 1 if complaints or not graph else 0


if __name__ == "__main__":
    sys.exit(main())
