"""sum-tests.py RESULTS: adds up the test programs' own counts (Google Test's JSON) and the tests without one.

Says of each that failed why: what the tests said, or how the output of a program ended that did not live to say it.
The last line is "N passed, N failed, N skipped"; ends with 1 when something failed or nothing ran.
"""
import json
import pathlib
import sys
import xml.etree.ElementTree as xml

results = pathlib.Path(sys.argv[1])
passed = failed = skipped = 0


def tell(program, title, text):
    print(f'-- {program}: {title}', *text.strip().splitlines(), sep='\n     ')


for case in xml.parse(results / 'ctest.xml').getroot().iter('testcase'):
    name, bad = case.get('name'), case.find('failure') is not None or case.get('status') == 'fail'
    report = results / (name + '.json')
    wrong = 0
    if report.exists():
        tests = [t for suite in json.loads(report.read_text())['testsuites'] for t in suite['testsuite']]
        wrong = sum(1 for t in tests if t.get('failures'))
        left = sum(1 for t in tests if t.get('result') in ('SKIPPED', 'SUPPRESSED') or t.get('status') == 'NOTRUN')
        failed += wrong
        skipped += left
        passed += len(tests) - wrong - left
        for test in tests:
            for failure in test.get('failures', []):
                tell(name, f"{test['classname']}.{test['name']}", failure['failure'])
    elif not bad:
        if case.find('skipped') is not None:
            skipped += 1
        else:
            passed += 1
    if bad and not wrong:  # it died, or ended badly after its last test: a leak for example
        failed += 1
        tell(name, 'ended badly', '\n'.join((case.findtext('system-out') or '').splitlines()[-40:]))
print(f'{passed} passed, {failed} failed, {skipped} skipped')
sys.exit(0 if passed and not failed else 1)
