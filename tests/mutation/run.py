#!/usr/bin/env python3
"""Plants each fault of mutants.tsv in turn, rebuilds, runs the suite, and records whether the
suite noticed. Not part of CI: it takes a long time and is run by hand.

  tests/mutation/run.py BUILD_DIR OUT.tsv [--only ID...] [-- CTEST ARGS]

BUILD_DIR is an already configured build of this tree: a faster, non-sanitized one for every
row but the leaks, a sanitizer build for those. OUT.tsv gets: id, file:line, result (killed, survived, skipped
when the text is not in the file exactly once, stillborn when the build fails)."""
import os, subprocess, sys

here = os.path.dirname(os.path.abspath(__file__))
tree = os.path.dirname(os.path.dirname(here))
cut = sys.argv.index('--') if '--' in sys.argv else len(sys.argv)
args, ctest = sys.argv[1:cut], sys.argv[cut + 1:]
build, out = args[0], args[1]
only = set(args[args.index('--only') + 1:]) if '--only' in args else None

def run(cmd, limit):
    try:
        return subprocess.run(cmd, cwd=tree, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                              timeout=limit).returncode
    except subprocess.TimeoutExpired:
        return -1  # a suite that hangs has noticed the fault too

with open(os.path.join(here, 'mutants.tsv'), encoding='utf-8') as rows, open(out, 'a') as log:
    for row in rows:
        if row.startswith('#') or not row.strip():
            continue
        mid, path, old, new = row.rstrip('\n').split('\t')
        if (only and mid not in only) or (not only and mid.endswith('leak')):
            continue
        old, new = old.replace('⏎', '\n'), new.replace('⏎', '\n')
        source = os.path.join(tree, path)
        text = open(source, encoding='utf-8').read()
        where = path
        if text.count(old) != 1:
            result = 'skipped'
        else:
            where = '%s:%d' % (path, text[:text.index(old)].count('\n') + 1)
            try:
                open(source, 'w', encoding='utf-8').write(text.replace(old, new))
                if run(['nice', 'cmake', '--build', build, '-j2'], 1800) != 0:
                    result = 'stillborn'
                else:
                    # Without the timings of earlier runs ctest keeps the declared order, so
                    # the quick unit tests come first and a fault is found sooner.
                    costs = os.path.join(build, 'Testing', 'Temporary', 'CTestCostData.txt')
                    if os.path.exists(costs):
                        os.remove(costs)
                    suite = ['nice', 'ctest', '--test-dir', build, '-j2', '--stop-on-failure']
                    result = 'killed' if run(suite + ctest, 2400) != 0 else 'survived'
            finally:
                open(source, 'w', encoding='utf-8').write(text)
        print(mid, where, result, sep='\t', file=log, flush=True)
        print(mid, where, result, flush=True)
