"""check-cycles.py ROOT: no more than four classes of the framework may include each other in a circle.

A class is its header, its private header and its source together. What nobody can take apart nobody dares to change.
"""
import collections
import pathlib
import re
import sys

MOST = 4
root = pathlib.Path(sys.argv[1])
includes = collections.defaultdict(set)


def class_of(path):
    return re.sub(r'(_p)?\.(h|cpp)$', '', path)


for file in sorted(root.glob('kestrixkit/**/*')):
    if file.suffix in ('.h', '.cpp'):
        name = class_of(str(file.relative_to(root)))
        includes[name] |= {class_of(i) for i in re.findall(r'#include [<"](kestrixkit/[^>"]+)', file.read_text())} - {name}


def reached(name):
    seen, todo = set(), [name]
    while todo:
        for other in includes[todo.pop()] - seen:
            seen.add(other)
            todo.append(other)
    return seen


reach = {name: reached(name) for name in list(includes)}
found = False
while reach:
    name, far = reach.popitem()
    circle = {other for other in far if name in reach.get(other, ())} | {name}
    for other in circle:
        reach.pop(other, None)
    if len(circle) > MOST:
        print('a circle of includes:', ', '.join(sorted(pathlib.PurePath(c).name for c in circle)))
        found = True
sys.exit(found)
