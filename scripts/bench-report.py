"""bench-report.py: writes docs/performance.md and docs/performance.svg from the results that scripts/bench has kept.

Measures nothing. The same results give the same two files. What bench/figures.json lists and nobody has measured is
listed as such; what misses its bar says so.
"""
import argparse
import json
import math
import pathlib
from xml.sax.saxutils import escape

arguments = argparse.ArgumentParser()
arguments.add_argument('--figures', type=pathlib.Path, default='bench/figures.json')
arguments.add_argument('--results', type=pathlib.Path, default='build/release/bench-results')
arguments.add_argument('--out', type=pathlib.Path, default='docs')
options = arguments.parse_args()

HEAD = """# How fast it is

Each figure beside what somebody would write by hand, or use instead, for the same work, measured in the same run: the
ratio is ours over the peer's, so that below 1 is faster. The bar is what must hold; a figure without a peer has its bar
in its own unit. Made by `scripts/bench --report` from what `scripts/bench AREA` measured last; `CONTRIBUTING.md` says how.

"""

TAIL = """
Pairs of runs alternate, each in a process of its own; the ratio is the median of the pairs' ratios, the spread half the
distance between their quartiles, over that median. Figures without a peer are medians of five runs. `(full)` is the
area with as many rows as it has at most (`--full`).
"""


def number(value):
    """Three figures, and no more digits than that behind the point."""
    if value is None:
        return ''
    if value == 0 or abs(value) >= 100:
        return f'{value:,.0f}'
    return f'{value:.{max(0, 2 - math.floor(math.log10(abs(value))))}f}'


class Row:
    """A figure as it is listed, with what was measured, if anything was."""

    def __init__(self, figure, measured, full):
        self.name = figure['name'] + (' (full)' if full else '')
        self.area = figure['name'].split('.')[0]
        self.unit = figure['unit']
        self.peer_name = figure.get('peer_name', '')
        self.aim = figure.get('full_aim', figure['aim']) if full else figure['aim']
        self.is_lower_better = figure.get('better', 'lower') == 'lower'
        self.measured = measured or {}
        self.ratio = self.measured.get('ratio')
        self.value = self.ratio if self.peer_name else self.measured.get('ours')

    def holds(self):
        """None where nobody knows."""
        if self.value is None:
            return None
        return self.value <= self.aim if self.is_lower_better else self.value >= self.aim

    def cells(self):
        measured = self.measured
        held = {None: 'not measured', True: 'yes', False: '**no**'}[self.holds()]
        bar = ('≤ ' if self.is_lower_better else '≥ ') + f'{self.aim:g}' + ('' if self.peer_name else ' ' + self.unit)
        with_unit = [number(measured.get(side)) and f'{number(measured.get(side))} {self.unit}' for side in ('ours', 'peer')]
        spread = measured.get('spread')
        return [f'`{self.name}`', *with_unit, number(self.ratio), bar, held,
                '' if spread is None else f'{spread:.2f}', str(measured.get('pairs') or ''), self.peer_name,
                measured.get('commit', '')]


def load():
    """Rows in the order of the list, and the machines."""
    figures = json.loads(options.figures.read_text())
    kept = {path.stem: json.loads(path.read_text()) for path in sorted(options.results.glob('*.json'))}
    rows = []
    for figure in figures:
        area, name = figure['name'].split('.')[0], figure['name']
        rows.append(Row(figure, kept.get(area, {}).get('figures', {}).get(name), False))
        full = kept.get(area + '-full', {}).get('figures', {}).get(name)
        if full:
            rows.append(Row(figure, full, True))
    machines = sorted({'{cpu}, {cores} cores, {memory}; {compiler}'.format(**each['machine']) for each in kept.values()})
    return rows, machines


def table(rows):
    head = ['figure', 'ours', 'peer', 'ratio', 'bar', 'holds', 'spread', 'pairs', 'the peer', 'commit']
    lines = ['| ' + ' | '.join(head) + ' |', '|' + '---|' * len(head)]
    lines += ['| ' + ' | '.join(cell.replace('|', '\\|') for cell in row.cells()) + ' |' for row in rows]
    return '\n'.join(lines) + '\n'


class Picture:
    """A bar for each ratio, from 1, which is the peer, to the left where ours is faster; a line across it is the bar to
    hold. Logarithmic. Where more is better the inverse is drawn."""

    WIDTH, LEFT, RIGHT, ROW, AREA = 960, 200, 180, 20, 30
    STYLE = """
text { font: 12px sans-serif; fill: #57606a } .area { font-weight: bold } .value { font-size: 11px }
.grid { stroke: #8b949e; stroke-opacity: .35 } .one { stroke: #8b949e; stroke-width: 1.5 }
.held { fill: #2f9e6a } .missed { fill: #d9622b } .bar { stroke: #24292f; stroke-width: 2.5 }
@media (prefers-color-scheme: dark) { text { fill: #adbac7 } .bar { stroke: #f0f3f6 } }
"""

    def __init__(self, rows):
        self.rows = [row for row in rows if row.ratio]
        values = [v for row in self.rows for v in self.drawn(row)] + [1]
        self.low = 10 ** math.floor(math.log10(min(values)) - 1e-9)
        self.high = 10 ** math.ceil(math.log10(max(values)) + 1e-9)

    @staticmethod
    def drawn(row):
        return (row.ratio, row.aim) if row.is_lower_better else (1 / row.ratio, 1 / row.aim)

    def x(self, value):
        share = math.log(value / self.low) / math.log(self.high / self.low)
        return self.LEFT + share * (self.WIDTH - self.LEFT - self.RIGHT)

    def line(self, style, x, top, bottom):
        return f'<line class="{style}" x1="{x:.1f}" x2="{x:.1f}" y1="{top}" y2="{bottom}"/>'

    def row(self, row, y):
        ratio, aim = self.drawn(row)
        left, right = sorted((self.x(ratio), self.x(1)))
        held = row.holds()
        label = escape(row.name.split('.', 1)[1])
        value = number(row.ratio) + ('' if held else f', bar {row.aim:g} missed')
        return [f'<text x="{self.LEFT - 10}" y="{y + 14}" text-anchor="end">{label}</text>',
                f'<rect class="{"held" if held else "missed"}" x="{left:.1f}" y="{y + 4}" '
                f'width="{max(right - left, 1):.1f}" height="{self.ROW - 8}"/>',
                self.line('bar', self.x(aim), y + 1, y + self.ROW - 1),
                f'<text class="value" x="{self.WIDTH - self.RIGHT + 10}" y="{y + 14}">{value}</text>']

    def body(self):
        parts, y, area = [], 34, None
        for row in self.rows:
            if row.area != area:
                area = row.area
                parts.append(f'<text class="area" x="10" y="{y + 21}">{escape(area)}</text>')
                y += self.AREA
            parts += self.row(row, y)
            y += self.ROW
        return parts, y + 10

    def text(self):
        body, height = self.body()
        axis, tick = [], self.low
        while tick <= self.high * 1.001:
            is_peer = abs(tick - 1) < 1e-9
            axis.append(self.line('one' if is_peer else 'grid', self.x(tick), 26, height - 6))
            axis.append(f'<text x="{self.x(tick):.1f}" y="18" text-anchor="middle">{"1 = peer" if is_peer else f"{tick:g}"}</text>')
            tick *= 10
        return '\n'.join([
            f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {self.WIDTH} {height}" width="{self.WIDTH}" '
            f'height="{height}" role="img">',
            '<title>Time of ours over that of the peer, and the bar to hold; to the left is faster</title>',
            f'<style>{self.STYLE}</style>', *axis, *body, '</svg>']) + '\n'


rows, machines = load()
if not any(row.measured for row in rows):
    raise SystemExit(f'bench: nothing has been measured yet: {options.results} holds no figures')
missed = [row.name for row in rows if row.holds() is False]
summary = 'Measured on ' + '; and on '.join(machines) + '.\n\n'
if missed:
    summary += 'Bars that do not hold: ' + ', '.join(f'`{name}`' for name in missed) + '.\n\n'
summary += '![Ratios of all figures with a peer](performance.svg)\n\n'
(options.out / 'performance.svg').write_text(Picture(rows).text())
(options.out / 'performance.md').write_text(HEAD + summary + table(rows) + TAIL)
