"""Weeks without a network, with several applications that are used every day."""
import collections
import json
import re

import stage
from stage import DAY
from web import Answer, whole

MOST_JOBS = 20
MOST_DAYS_ONLINE = 12
# Less than a day, since a simulated day has not one second more than another.
SECONDS_BETWEEN_REPORTS = 43200
ALL_REPORTED = 'appinfo.xml(1) statistics.xml(confirmed) updinfo.xml(2.0)'


def spend_weeks_offline(web, days, applications):
    """Starts the applications on so many days without a web server, and then goes on with one.

    A day passes by setting every stored time back by one day and the service's clock forward by
    one; the system's clock stays as it is.
    """
    return _Weeks(web, days, applications).spend()


class _Weeks:
    def __init__(self, web, days, applications):
        self.web, self.days = web, days
        self.apps = [f'offline{number}' for number in range(applications)]
        self.first_days = {}  # of each job
        self.day = self.later = 0
        self.held = True
        self.values = {app: [] for app in self.apps}  # what the hosts reported
        stage.replace_jobs('')
        stage.clean_user_folders()
        stage.place_executor(stage.GOOD_EXECUTOR)
        self.service = stage.Service()

    def spend(self):
        self.web.go_away()
        for self.day in range(self.days):
            self._pass_a_day(self._all_stalled)
            self._start_hosts(values=True)
            self._await('that every job stalls', self._all_stalled)
            stage.say(f'  day {self.day} offline: {stage.jobs_text()}')
        waiting = sum(stage.purpose(job) == 'report' for job in stage.live_jobs())
        self.web.answers = {'feed': Answer(whole(stage.FEED)),
                            'report': Answer(whole(b'ok'), delivers=True)}
        self.web.come_back()
        self._pass(stage.RETRY)
        self._await('that the jobs of the weeks offline end', self._is_quiet)
        for online in range(1, MOST_DAYS_ONLINE + 1):
            self.day += 1
            self._pass_a_day(self._is_quiet)
            self._start_hosts(values=False)
            self._await('that all jobs end', self._is_quiet)
            stage.say(f'  day {online} online')
            if not self._count_left():
                break
        return self._judge(online, waiting)

    def _pass_a_day(self, condition):
        if self.day > 0:
            for app in self.apps:
                stage.set_times_back(app, DAY)
            self._pass(DAY)
        self._await('what was due', condition)

    def _pass(self, seconds):
        self.later += seconds
        self.service.control(f'later {self.later}')

    def _start_hosts(self, values):
        """Starts each application one to three times, each time with another value to report."""
        start = ['start', self.web.url('feed'), self.web.url('report'), SECONDS_BETWEEN_REPORTS]
        for number, app in enumerate(self.apps):
            steps = start
            if values:
                today = [f'v={number}-{self.day}-{i}' for i in range(1 + number % 3)]
                self.values[app] += today
                steps = [step for value in today for step in (*start, 'usage', value, 'force')]
            stage.run_host(app, *steps)

    def _await(self, what, condition):
        if not stage.eventually(condition):
            stage.say(f'  not held on day {self.day}: {what}; jobs: {stage.jobs_text()}')
            self.held = False

    def _all_stalled(self):
        """Every job waits for the next try; the service has given up those whose time is over."""
        for job in stage.live_jobs():
            age = self.day - self.first_days.setdefault(job['job'], self.day)
            if job['state'] != 'TRANSIENT_ERROR' or age * DAY >= int(job['no-progress-seconds']):
                return False
        return self.service.executors_rest()

    def _is_quiet(self):
        return not stage.live_jobs() and self.service.executors_rest()

    def _count_left(self):
        """How many applications have more than they must have in the end."""
        return sum(stage.files_of(app) != ALL_REPORTED for app in self.apps)

    def _most_jobs_at_once(self):
        jobs, most = set(), 0
        for entry in map(json.loads, self.service.journal().splitlines()):
            if entry.get('result') == '0x00000000' and entry['call'] == 'CreateJob':
                jobs.add(entry['job'])
            elif entry.get('result') == '0x00000000' and entry['call'] in ('Complete', 'Cancel'):
                jobs.discard(entry['job'])
            most = max(most, len(jobs))
        return most

    def _judge(self, online, waiting):
        sent = missing = doubled = 0
        states = collections.Counter()
        for app in self.apps:
            reports = stage.reports(self.web, app)
            states.update(report.split('&')[0] for report in reports)
            times = collections.Counter(re.findall('v=[^&]*', '&'.join(reports)))
            sent += len(self.values[app])
            missing += sum(times[value] == 0 for value in self.values[app])
            doubled += sum(times[value] > 1 for value in self.values[app])
        installs, dayuses = states['stat=install'], states['stat=dayuse']
        most, left, count = self._most_jobs_at_once(), self._count_left(), len(self.apps)
        most_reports = waiting + count * online
        self.held &= (installs == count and count * online <= dayuses <= most_reports - installs and
                      most <= MOST_JOBS and not left and not missing and not doubled)
        stage.row(f'weeks without a network: at most {MOST_JOBS} jobs; in the end no job and no '
                  'block in work; each install once, one dayuse at most for each other report that '
                  'waited and one a day since, each value once',
                  f'{self.days} days offline, {count} applications started 1 to 3 times a day, '
                  'each time with a value and a forced check',
                  f'at most {most} jobs, {waiting} reports waited; after {online} days online '
                  f'jobs: {stage.jobs_text()}, {left} applications with something left; '
                  f'install x{installs}, dayuse x{dayuses}; '
                  f'{sent} values, {missing} missing, {doubled} doubled',
                  'yes' if self.held else '**no**')
        return self.held
