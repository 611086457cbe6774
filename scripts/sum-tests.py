"""sum-tests.py RESULTS: adds up the test programs' own counts (Google Test's JSON) and the tests without one.

Prints "N passed, N failed, N skipped" and ends with 1 when something failed or nothing ran.
"""
import json
import pathlib
import sys
import xml.etree.ElementTree as xml

results = pathlib.Path(sys.argv[1])
passed = failed = skipped = 0
for case in xml.parse(results / 'ctest.xml').getroot().iter('testcase'):
    bad = case.find('failure') is not None or case.get('status') == 'fail'
    report = results / (case.get('name') + '.json')
    if report.exists():
        tests = [t for suite in json.loads(report.read_text())['testsuites'] for t in suite['testsuite']]
        wrong = sum(1 for t in tests if t.get('failures'))
        left = sum(1 for t in tests if t.get('result') in ('SKIPPED', 'SUPPRESSED') or t.get('status') == 'NOTRUN')
        failed += wrong
        skipped += left
        passed += len(tests) - wrong - left
        if bad and not wrong:  # it ended badly after its last test, a leak for example
            failed += 1
    elif bad:
        failed += 1
    elif case.find('skipped') is not None:
        skipped += 1
    else:
        passed += 1
print(f'{passed} passed, {failed} failed, {skipped} skipped')
sys.exit(0 if passed and not failed else 1)
