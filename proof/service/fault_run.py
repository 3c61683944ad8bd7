# Runs one fault on a fresh application, from its beginning to its good end.
import dataclasses
import itertools

import stage
from fault_table import GOOD_ENDS, HOST_CHECK, REPORT
from stage import WEB
from web import Answer, whole

GOOD = Answer(whole(stage.FEED), delivers=True)
OTHER_JOBS = ''.join(f'job {{00000000-0000-0000-0000-0000000000{number}}}\nowner self\n'
                     'state SUSPENDED\nname other\n' for number in range(10, 70))
# Of DLLIsUpdateAvailable.
ANSWERS = {'0': 'in work', '1': 'update found', '2': 'no update', '3': 'job failed',
           'failed': 'failure'}

_numbers = itertools.count(1)


class Run:
    def __init__(self, cause, want):
        self.cause = cause
        self.want = dataclasses.replace(want, log=want.log + cause.log)
        self.end = dataclasses.replace(GOOD_ENDS[want.route], log=(), reports=want.reports)
        self.app = f'app{next(_numbers)}'
        self.host = None  # one that drives its check
        self.answer = ''  # the last one that it got
        self.later = 0
        self.is_new = True

    # Lets the fault strike and end; returns what was found instead of what must come.
    def faults(self):
        self._set_the_scene()
        self._call('address')
        self._let_it_strike()
        found = self._reach(self.want)
        self._repair()
        for _ in range(self.cause.starts):
            self._start_again()
        found += self._reach(self.end)
        if self.host:
            self.host.process.kill()
        return found

    def _set_the_scene(self):
        stage.begin(OTHER_JOBS if self.cause.quota_is_used_up else '')
        stage.place_executor(self.cause.executor)
        WEB.answers = {'good': GOOD, 'address': self.cause.answer or GOOD}
        if self.cause.server_is_away:
            WEB.go_away()
        if self.cause.clock_was_ahead:
            # The application was there before, without the service, so that nothing was sent.
            stage.control('fail CreateInstance 0x80070422')
            self._call('good')
            stage.set_times_back(self.app, -self.cause.clock_was_ahead)
        stage.control(self.cause.control)  # last: it counts the calls from here

    # What the host does to have a transfer from there.
    def _call(self, path):
        url = WEB.url(path)
        if self.want.route == HOST_CHECK:
            self.host = self.host or stage.Host(self.app, stays=True)
            self.answer = '' if self._ask('start') == 'in work' else 'no check'
            return
        calls = [f'DLLOnApplicationStartup "" {url} 3600' if self.want.route == REPORT else
                 f'DLLOnApplicationStartup {url} "" 3600']
        if self.is_new:
            # A check that finds no address keeps the start from making one beside that with a
            # dialog.
            calls = (['DLLSetOptionalParam p=1', *calls] if self.want.route == REPORT else
                     ['DLLForceUpdateCheck', *calls, 'DLLForceUpdateCheck dialog'])
        self.is_new = False
        stage.run_host(self.app, *calls)

    def _ask(self, step):
        return ANSWERS[self.host.ask(f"DLLIsUpdateAvailable {WEB.url('address')} {step}")]

    # A host that drives its check asks for its end. Returns whether it must ask again.
    def _host_asks(self):
        if self.host and self.answer in ('', 'in work'):
            self.answer = self._ask('check')
        return self.answer == 'in work'

    def _let_it_strike(self):
        if self.cause.until:
            stage.eventually(lambda: self.cause.until in stage.journal())
        if self.cause.service_restarts:
            if not self.cause.until:
                stage.eventually(stage.is_fetching)
            stage.stop_service()
            stage.place_executor(stage.GOOD_EXECUTOR)
            stage.wake_service()
        self._pass(self.cause.lasts, self.cause.control)

    # Time passes for the service.
    def _pass(self, seconds, *control):
        if seconds:
            self.later += seconds
            stage.control(*control, f'later {self.later}')

    def _repair(self):
        if self.cause.quota_is_used_up:
            stage.change_jobs(lambda _: '')
        stage.place_executor(stage.GOOD_EXECUTOR)
        WEB.answers['address'] = GOOD
        WEB.come_back()
        self._pass(stage.RETRY)

    def _start_again(self):
        asks_on = self.want.host == 'in work'
        self._pass(self.cause.later)
        stage.eventually(lambda: stage.executors_rest() and not stage.any_job_moves()
                         and not (asks_on and self._host_asks()))
        stage.set_times_back(self.app, self.cause.later)
        stage.set_job_times_back(self.cause.later)
        if not asks_on:
            self._call('good')
        if self.host:
            stage.eventually(lambda: not self._host_asks())
            # The executor of a check that the service makes cleans up after such a host.
            stage.run_host(self.app, 'DLLForceUpdateCheck')

    # Waits until things are as they must be; returns how they are otherwise.
    def _reach(self, want):
        if stage.eventually(lambda: self._found(want) == want and stage.executors_rest()):
            return []
        found = vars(self._found(want))
        return [f'{key}: {found[key]} instead of {value}' for key, value in vars(want).items()
                if found[key] != value] or ['executors still run']

    def _found(self, want):
        self._host_asks()
        arrived = sum('p=1' in report for report in stage.reports(self.app))
        return dataclasses.replace(
            want, files=stage.files_of(self.app), jobs=stage.jobs_text(), host=self.answer,
            log=tuple(line for line in want.log if stage.is_logged(line)),
            reports=arrived if want is self.end and want.route == REPORT else want.reports)
