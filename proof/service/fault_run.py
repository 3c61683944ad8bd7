"""Runs one fault on a fresh application, from its beginning to its good end."""
import dataclasses
import itertools
import os
import tempfile

import stage
from fault_table import GOOD_ENDS, HOST_CHECK, REPORT
from web import Answer, whole

_numbers = itertools.count(1)


def run_row(web, label, cause, want):
    """Prints the row; returns whether the fault ended as it must."""
    stage.say(f'  {label}')
    with tempfile.TemporaryFile() as answers:
        found = _Run(web, cause, want, answers).execute()
    end = GOOD_ENDS[want.route].meaning
    if want.reports != 1:
        end += f' and has arrived x{want.reports}'
    stage.row(label, f'{want.meaning}; then {end}', found, '**no**' if found else 'yes')
    return not found


class _Run:
    def __init__(self, web, cause, want, answers):
        self.web, self.cause, self.answers = web, cause, answers
        self.want = dataclasses.replace(want, log=want.log + cause.log)
        self.end = dataclasses.replace(GOOD_ENDS[want.route], log=(), reports=want.reports)
        self.app = f'app{next(_numbers)}'
        self.good = Answer(whole(stage.FEED), delivers=True)
        self.host = None  # one that drives its check
        self.later = 0
        self.parameter = ['param', 'p=1']
        stage.replace_jobs('')
        stage.clean_user_folders()
        stage.HOST_MAY_ASK.unlink(missing_ok=True)
        self.service = stage.Service()

    def execute(self):
        """Returns what was found instead of what must come; empty when it came."""
        self._set_the_scene()
        self._call('address')
        self._let_it_strike()
        found = [self._reach(self.want)]
        self._repair()
        for _ in range(self.cause.starts):
            self._start_again()
        found.append(self._reach(self.end))
        if self.host:
            self.host.kill()
        return '; then '.join(filter(None, found))

    def _set_the_scene(self):
        self.web.answers = {'good': self.good, 'address': self.cause.answer or self.good}
        if self.cause.server_is_away:
            self.web.go_away()
        stage.place_executor(self.cause.executor)
        if self.cause.quota_is_used_up:
            stage.take_all_jobs()
        if self.cause.clock_was_ahead:
            # The application was there before, without the service, so that nothing was sent.
            self.service.control('fail CreateInstance 0x80070422')
            self._call('good')
            stage.set_times_back(self.app, -self.cause.clock_was_ahead)
        self.service.control(self.cause.control)  # last: it counts the calls from here

    def _call(self, path):
        """What the host does to have a transfer from there."""
        url = self.web.url(path)
        if self.want.route == HOST_CHECK:
            self.host = stage.start_program(stage.HOST, self.app, 'drive', url,
                                            f'Z:{stage.HOST_MAY_ASK}', output=self.answers)
        elif self.want.route == REPORT:
            stage.run_host(self.app, *self.parameter, 'start', '', url, 3600)
            self.parameter = []
        else:
            stage.run_host(self.app, 'start', url, '', 3600)

    def _let_it_strike(self):
        if self.cause.until:
            stage.eventually(lambda: self.service.count(self.cause.until))
        if self.cause.service_restarts:
            if not self.cause.until:
                stage.eventually(stage.is_fetching)
            stage.stop_service()
            stage.place_executor(stage.GOOD_EXECUTOR)
            stage.wake_service()
        self._pass(self.cause.lasts, self.cause.control)
        stage.HOST_MAY_ASK.touch()

    def _pass(self, seconds, *control):
        """Time passes for the service."""
        if seconds:
            self.later += seconds
            self.service.control(*control, f'later {self.later}')

    def _repair(self):
        if self.cause.quota_is_used_up:
            stage.replace_jobs('')
        stage.place_executor(stage.GOOD_EXECUTOR)
        self.web.answers['address'] = self.good
        self.web.come_back()
        self._pass(stage.RETRY)

    def _start_again(self):
        asks_on = self.want.host == 'in work'
        self._pass(self.cause.later)
        stage.eventually(lambda: self.service.executors_rest() and not stage.any_job_moves()
                         and not (asks_on and self._host_asks()))
        stage.set_times_back(self.app, self.cause.later)
        stage.set_job_times_back(self.cause.later)
        if not asks_on:
            self._call('good')
        if self.host:
            stage.eventually(lambda: not self._host_asks())
            # The executor of a check that the service makes cleans up after such a host.
            stage.run_host(self.app, 'force')

    def _host_asks(self):
        return self.host.poll() is None

    def _answer(self):
        lines = os.pread(self.answers.fileno(), 10_000, 0).decode().split('\n')[:-1]
        return lines[-1].strip() if lines else ''

    def _reach(self, want):
        """Waits until things are as they must be; returns how they are otherwise."""
        def reached():
            return self._found(want) == want and self.service.executors_rest()
        if stage.eventually(reached):
            return ''
        found = vars(self._found(want))
        return '; '.join(f'{key}: {found[key]} instead of {value}' for key, value
                         in vars(want).items() if found[key] != value) or 'executors still run'

    def _found(self, want):
        arrived = sum('p=1' in report for report in stage.reports(self.web, self.app))
        return dataclasses.replace(
            want, files=stage.files_of(self.app), jobs=stage.jobs_text(),
            log=tuple(line for line in want.log if stage.is_logged(line)),
            host=self._answer() if self.host else '',
            reports=arrived if want is self.end and want.route == REPORT else want.reports)
