"""How the library, the executor and their users' files fare when what they rely on fails.

    main.py faults [test | third | PART]   a row for each fault; for those of ./test; for each
                                           third; for those with PART in their name
    main.py waits STARTS                   hosts that wait right behind so many starts
    main.py weeks DAYS APPLICATIONS        weeks without a network

Prints rows of a Markdown table; ends with 0 when each of them held.
"""
import sys

from fault_run import run_row
from fault_table import ROWS
from stage import say
from waits import wait_behind_starts
from web import WebServer
from weeks import spend_weeks_offline


def run_faults(web, which=''):
    rows = {'test': [row for row in ROWS if row[2].in_test], 'third': ROWS[::3]}.get(
        which, [row for row in ROWS if which in row[0]])
    failed = sum(not run_row(web, *row) for row in rows)
    say(f'  {len(rows)} faults, {failed} did not end well')
    return rows and not failed


def main(what, *arguments):
    web = WebServer()
    if what == 'faults':
        return run_faults(web, *arguments)
    if what == 'waits':
        return wait_behind_starts(web, int(arguments[0]))
    return spend_weeks_offline(web, *map(int, arguments))


sys.exit(0 if main(*sys.argv[1:]) else 1)
