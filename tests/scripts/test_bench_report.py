"""What scripts/bench --report makes of results: test_bench_report.py ROOT."""
import json
import pathlib
import subprocess
import sys
import tempfile
import unittest
import xml.etree.ElementTree as xml

ROOT = pathlib.Path(sys.argv.pop())
MACHINE = {'cpu': 'A CPU', 'cores': 2, 'memory': '24 GiB', 'compiler': 'c++ 12'}
FIGURES = [
    {'name': 'store.read', 'unit': 'ms', 'aim': 1.2, 'peer_name': 'a | b < c'},
    {'name': 'store.slow', 'unit': 'ms', 'aim': 1.2, 'peer_name': 'rows'},
    {'name': 'ring.speed', 'unit': 'GB/s', 'aim': 0.9, 'better': 'higher', 'peer_name': 'a ring'},
    {'name': 'ring.worse', 'unit': 'GB/s', 'aim': 0.9, 'better': 'higher', 'peer_name': 'a ring'},
    {'name': 'start.bytes', 'unit': 'MiB', 'aim': 150, 'full_aim': 300},
    {'name': 'start.idle', 'unit': 'switches', 'aim': 0},
    {'name': 'later.figure', 'unit': 'ms', 'aim': 1, 'peer_name': 'nobody'},
]


def pair(ratio):
    return {'ours': 10 * ratio, 'peer': 10, 'ratio': ratio, 'spread': 0.02, 'pairs': 15, 'commit': 'abc1234'}


RESULTS = {
    'store': {'store.read': pair(1.2), 'store.slow': pair(1.21)},
    'ring': {'ring.speed': pair(0.9), 'ring.worse': pair(0.5)},
    'start': {'start.bytes': {'ours': 151.0}, 'start.idle': {'ours': 0.0}},
    'start-full': {'start.bytes': {'ours': 299.0}},
}


class Report(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)

    def make(self, results, name='out'):
        kept, out = self.folder / (name + '-results'), self.folder / name
        kept.mkdir()
        out.mkdir()
        for area, figures in results.items():
            (kept / f'{area}.json').write_text(json.dumps({'machine': MACHINE, 'figures': figures}))
        (self.folder / 'figures.json').write_text(json.dumps(FIGURES))
        done = subprocess.run([sys.executable, ROOT / 'scripts/bench-report.py', '--figures', self.folder / 'figures.json',
                               '--results', kept, '--out', out], capture_output=True, text=True)
        return done, {path.name: path.read_text() for path in out.iterdir()}

    def lines(self, page):
        cells = [line.replace('\\|', '/').split('|') for line in page.splitlines() if line.startswith('| `')]
        return {row[1].strip(' `'): [cell.strip() for cell in row] for row in cells}

    def test_is_the_same_for_the_same_results(self):
        first = self.make(RESULTS)[1]
        again = {area: dict(reversed(figures.items())) for area, figures in reversed(RESULTS.items())}
        self.assertEqual(first, self.make(again, 'again')[1])
        self.assertEqual(set(first), {'performance.md', 'performance.svg'})

    def test_says_which_bars_hold(self):
        page = self.make(RESULTS)[1]['performance.md']
        rows = self.lines(page)
        holds = {name: row[6] for name, row in rows.items()}
        self.assertEqual(holds, {
            'store.read': 'yes', 'store.slow': '**no**', 'ring.speed': 'yes', 'ring.worse': '**no**',
            'start.bytes': '**no**', 'start.bytes (full)': 'yes', 'start.idle': 'yes', 'later.figure': 'not measured'})
        self.assertIn('do not hold: `store.slow`, `ring.worse`, `start.bytes`.', page)
        self.assertEqual({len(row) for row in rows.values()}, {12}, 'a peer\'s name breaks the table')
        self.assertIn('A CPU, 2 cores, 24 GiB; c++ 12', page)

    def test_draws_better_ones_to_the_left_of_the_peer(self):
        picture = xml.fromstring(self.make(RESULTS)[1]['performance.svg'])
        space = '{http://www.w3.org/2000/svg}'
        one = float(picture.find(f'{space}line[@class="one"]').get('x1'))
        bars = [(r.get('class'), float(r.get('x')) >= one - 0.1) for r in picture.iter(space + 'rect')]
        # Slower, slower, less by a tenth, less by half: all of them to the right.
        self.assertEqual(bars, [('held', True), ('missed', True), ('held', True), ('missed', True)])
        faster = xml.fromstring(self.make({'store': {'store.read': pair(0.02)}}, 'faster')[1]['performance.svg'])
        one = float(faster.find(f'{space}line[@class="one"]').get('x1'))
        bar = faster.find(space + 'rect')
        self.assertAlmostEqual(float(bar.get('x')) + float(bar.get('width')), one, delta=0.2)

    def test_writes_nothing_without_results(self):
        done, files = self.make({})
        self.assertNotEqual(done.returncode, 0)
        self.assertIn('nothing has been measured', done.stderr)
        self.assertEqual(files, {})


unittest.main()
