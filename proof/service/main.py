# How the library, the executor and their users' files fare when what they rely on fails.
#
# main.py faults [test | third | PART]   a row for each fault; for those of ./test; for each
#                                        third; for those with PART in their name
# main.py stories                        the executor apart from faults
# main.py waits STARTS                   hosts that wait right behind so many starts
# main.py weeks DAYS APPLICATIONS        weeks without a network
import sys

import stage
import stories
from fault_run import Run
from fault_table import ROWS
from report import Promise, say
from stage import WEB
from web import Answer, whole
from weeks import Weeks


def run_faults(which=''):
    rows = {'test': [row for row in ROWS if row[2].in_test], 'third': ROWS[::3]}.get(
        which, [row for row in ROWS if which in row[0]])
    held = []
    for label, cause, want in rows:
        say(label)
        promise = Promise(label)
        promise.broken_by(label, *Run(cause, want).faults())
        times = '' if want.reports == 1 else f', and arrives x{want.reports}'
        held.append(promise.print(f'{want.meaning}{times}; then all is well'))
    return rows and all(held)


# A host starts so many times, a day after the last time, with an update published, and waits at
# once for a check, while that of its start is still on its way.
def wait_behind_starts(starts):
    promise = Promise('a host that waits right behind its start learns of the update')
    WEB.answers = {'feed': Answer(whole(stage.FEED)), 'report': Answer(whole(b'ok'))}
    stage.begin()
    stage.place_executor(stage.GOOD_EXECUTOR)
    start = f"DLLOnApplicationStartup {WEB.url('feed')} {WEB.url('report')} 3600"
    unstarted = longest = 0
    for number in range(starts):
        before = stage.journal().count('cannot be started')
        stage.set_times_back('waits', 2 * stage.DAY)
        wait = stage.run_host('waits', start, 'DLLIsUpgradeAvailable 30000')[-1]
        longest = max(longest, wait.milliseconds)
        # Wine did not start it. The service, like the real one, tries again later than hosts wait.
        is_unstarted = stage.journal().count('cannot be started') > before
        if is_unstarted:
            stage.change_jobs(lambda _: '')
        # The files are set back by hand, so no other process may be at work on them.
        stage.eventually(lambda: not stage.jobs() and stage.executors_rest())
        if wait.sign == '!' and wait.answer == 'none' and is_unstarted:
            unstarted += 1
        elif (wait.sign, wait.answer) != ('!', 'found'):
            promise.broken_by(f'start {number}', wait)
    return promise.print(f'{starts} starts', f', {unstarted} executors not started, '
                         f'longest wait {longest} ms')


AREAS = {'faults': run_faults, 'stories': stories.tell,
         'waits': lambda starts: wait_behind_starts(int(starts)),
         'weeks': lambda *sizes: Weeks(*map(int, sizes)).spend()}
sys.exit(0 if AREAS[sys.argv[1]](*sys.argv[2:]) else 1)
