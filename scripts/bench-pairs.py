"""bench-pairs.py PROGRAM AREA [--json] [--only FIGURE] [--pairs N] [--full]: runs a benchmark program's figures.

A figure "area.name" is the benchmark "area.name/ours" and, where it has one, "area.name/peer". Each run is a process of
its own with a fresh heap; ours and the peer's alternate, and the ratio is the median of the pairs' ratios. `spread`
is half the distance between the quartiles of the ratios over their median. A figure that is the worst of several
variants has each of them measured, as "area.name/ours/variant", and shows the one with the worst ratio.

What was measured is kept for scripts/bench --report in build/release/bench-results/AREA.json, or AREA-full.json, each
figure with the commit that it was measured at; figures that were measured before stay.
"""
import argparse
import json
import os
import pathlib
import statistics
import subprocess
import sys

arguments = argparse.ArgumentParser()
arguments.add_argument('program')
arguments.add_argument('area')
arguments.add_argument('--json', action='store_true')
arguments.add_argument('--only')
arguments.add_argument('--pairs', type=int, default=15)
arguments.add_argument('--full', action='store_true', help='with as many rows as an area has at most')
options = arguments.parse_args()
results = pathlib.Path('build/release/bench-results') / (options.area + ('-full' if options.full else '') + '.json')
if options.full:
    os.environ['KX_BENCH_FULL'] = '1'

figures = json.loads(pathlib.Path('bench/figures.json').read_text())
figures = [f for f in figures if f['name'].startswith(options.area + '.') and (not options.only or f['name'] == options.only)]
if not figures:
    sys.exit(f'bench: no figures for {options.area}')
subprocess.run([options.program, '--prepare'], check=True)


def run(name):
    out = subprocess.run([options.program, f'--benchmark_filter=^{name}/', '--benchmark_format=json'],
                         capture_output=True, text=True, check=True).stdout
    results = json.loads(out)['benchmarks']
    if len(results) != 1 or results[0].get('error_occurred'):
        sys.exit(f'bench: {name}: {results and results[0].get("error_message")}')
    return results[0]['real_time']


def pairs(name, variant):
    """What a pair of sides gives: medians, ratio and spread."""
    ours, peer = f'{name}/ours{variant}', f'{name}/peer{variant}'
    run(ours), run(peer)  # warm the page cache
    times = [(run(ours), run(peer)) for _ in range(options.pairs)]
    ratios = [a / b for a, b in times]
    quartiles = statistics.quantiles(ratios * 2 if len(ratios) == 1 else ratios, n=4)  # of one pair there is no spread
    return {'ours': statistics.median(t[0] for t in times), 'peer': statistics.median(t[1] for t in times),
            'ratio': statistics.median(ratios), 'pairs': len(times),
            'spread': (quartiles[2] - quartiles[0]) / 2 / statistics.median(ratios)}


def output(*command):
    return subprocess.run(command, capture_output=True, text=True).stdout


def machine():
    """What the figures hold for."""
    def first(path, key):
        return next((line.split(':', 1)[1].strip() for line in open(path) if line.startswith(key)), 'unknown')
    memory = first('/proc/meminfo', 'MemTotal').split()[0]
    return {'cpu': first('/proc/cpuinfo', 'model name'), 'cores': os.cpu_count(),
            'memory': f'{round(int(memory) / 2**20)} GiB' if memory.isdigit() else memory,
            'compiler': output('c++', '--version').split('\n')[0]}


def commit():
    """With a plus where something is not committed."""
    return output('git', 'rev-parse', '--short', 'HEAD').strip() + ('+' if output('git', 'status', '--porcelain') else '')


def keep(row):
    kept = json.loads(results.read_text()) if results.exists() else {'figures': {}}
    kept['machine'] = machine()
    kept['figures'][row['name']] = {**row, 'commit': commit()}
    results.parent.mkdir(parents=True, exist_ok=True)
    results.write_text(json.dumps(kept, indent=1) + '\n')


rows = []
for figure in figures:
    name = figure['name']
    better = figure.get('better', 'lower')
    row = {'name': name, 'ours': None, 'peer': None, 'peer_name': figure.get('peer_name'), 'ratio': None, 'pairs': 0,
           'spread': None, 'unit': figure['unit'], 'better': better,
           'aim': figure.get('full_aim', figure['aim']) if options.full else figure['aim']}
    worst = ''
    if 'peer_name' in figure:
        variants = {v: pairs(name, v) for v in ['/' + w for w in figure.get('worst_of', [])] or ['']}
        worst = (max if better == 'lower' else min)(variants, key=lambda v: variants[v]['ratio'])
        row.update(variants[worst])
    else:
        variants = ['/' + w for w in figure.get('worst_of', [])] or ['']
        medians = [statistics.median(run(name + '/ours' + v) for _ in range(5)) for v in variants]
        row.update(ours=(max if better == 'lower' else min)(medians), pairs=0)
    rows.append({k: round(v, 4) if isinstance(v, float) else v for k, v in row.items()})
    keep(rows[-1])
    if not options.json:
        shown = f'{row["ratio"]:.3f}{worst.replace("/", " ")} ({"at most" if better == "lower" else "at least"} {row["aim"]}, spread {row["spread"]:.3f}, {row["ours"]:.1f} against {row["peer"]:.1f} {row["unit"]})' \
            if row['ratio'] else f'{row["ours"]:.1f} {row["unit"]} (aim {row["aim"]})'
        print(f'{name}: {shown}', flush=True)
if options.json:
    print(json.dumps(rows, indent=1))
