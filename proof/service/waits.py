"""Hosts that wait for the executor's check right behind their start."""
import tempfile

import stage
from web import Answer, whole

APP = 'waits'
WAIT = 30_000  # milliseconds


def _start_and_wait(web):
    """Returns what the host learns: status, whether an update is there, after how long."""
    with tempfile.TemporaryFile() as output:
        stage.start_program(stage.HOST, APP, 'start', web.url('feed'), web.url('report'), 3600,
                            'wait', WAIT, output=output).wait(60)
        output.seek(0)
        return map(int, output.read().split())


def wait_behind_starts(web, starts):
    """Starts a program so many times, a day after the last time, with an update published.

    It waits at once for a check, while that of the start is still on its way.
    """
    web.answers = {'feed': Answer(whole(stage.FEED)), 'report': Answer(whole(b'ok'))}
    stage.clean_user_folders()
    stage.replace_jobs('')
    stage.place_executor(stage.GOOD_EXECUTOR)
    wrong = without_executor = longest = 0
    for _ in range(starts):
        service = stage.Service()
        stage.set_times_back(APP, 2 * stage.DAY)
        status, found, milliseconds = _start_and_wait(web)
        longest = max(longest, milliseconds)
        # Wine did not start it. The service, like the real one, tries again later than hosts wait.
        is_unstarted = service.count('cannot be started') > 0
        if is_unstarted:
            stage.replace_jobs('')
        # The files are set back by hand, so no other process may be at work on them.
        stage.eventually(lambda: not stage.live_jobs() and service.executors_rest())
        if status == 0 and not found and is_unstarted:
            without_executor += 1
        elif status != 0 or not found:
            wrong += 1
            stage.say(f'  status {status}, update {found} after {milliseconds} ms')
    stage.row('a host that waits for a check right behind its start learns of a published update',
              f'{starts} starts with reports on',
              f'{wrong} wrong answers, {without_executor} hosts whose executor Wine did not start, '
              f'longest wait {longest} ms', '**no**' if wrong else 'yes')
    return not wrong
