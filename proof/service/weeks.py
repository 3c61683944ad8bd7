# Weeks without a network, with several applications that are used every day.
import json
import re
from collections import Counter

import stage
from report import Promise
from stage import DAY, WEB
from web import Answer, whole

MOST_JOBS = 20
MOST_DAYS_ONLINE = 12
# Less than a day, since a simulated day has not one second more than another.
SECONDS_BETWEEN_REPORTS = 43200
ALL_REPORTED = 'appinfo.xml(1 scheduled) statistics.xml(confirmed) updinfo.xml(2.0)'


# Starts the applications on so many days without a web server, and then goes on with one.
# A day passes by setting every stored time back by one day and the service's clock forward by one;
# the system's clock stays as it is.
class Weeks:
    def __init__(self, days, applications):
        self.days = days
        self.apps = [f'offline{number}' for number in range(applications)]
        self.values = {app: [] for app in self.apps}  # what the hosts reported
        self.first_days = {}  # of each job
        self.day = self.later = 0
        self.promise = Promise('weeks without a network: few jobs, every value arrives once')

    def spend(self):
        stage.begin()
        stage.place_executor(stage.GOOD_EXECUTOR)
        WEB.go_away()
        for self.day in range(self.days):
            self._pass_a_day(self._all_stalled)
            self._start_hosts(reports=True)
            self._await('every job stalls', self._all_stalled)
        waiting = sum(stage.purpose(job) == 'report' for job in stage.jobs())
        WEB.answers = {'feed': Answer(whole(stage.FEED)),
                       'report': Answer(whole(b'ok'), delivers=True)}
        WEB.come_back()
        self._pass(stage.RETRY)
        self._await('the jobs of the weeks offline end', self._is_quiet)
        online = 0
        while online < MOST_DAYS_ONLINE and (online == 0 or self._count_left()):
            online += 1
            self.day += 1
            self._pass_a_day(self._is_quiet)
            self._start_hosts(reports=False)
            self._await('all jobs end', self._is_quiet)
        return self._judge(online, waiting)

    def _pass_a_day(self, condition):
        if self.day > 0:
            for app in self.apps:
                stage.set_times_back(app, DAY)
            self._pass(DAY)
        self._await('what was due is done', condition)

    def _pass(self, seconds):
        self.later += seconds
        stage.control(f'later {self.later}')

    # Starts each application one to three times, each time with another value to report.
    def _start_hosts(self, reports):
        start = (f"DLLOnApplicationStartup {WEB.url('feed')} {WEB.url('report')} "
                 f'{SECONDS_BETWEEN_REPORTS}')
        for number, app in enumerate(self.apps):
            lines = [start]
            if reports:
                today = [f'v={number}-{self.day}-{i}' for i in range(1 + number % 3)]
                self.values[app] += today
                lines = [line for value in today
                         for line in (start, f'DLLUsageReport {value}', 'DLLForceUpdateCheck')]
            stage.run_host(app, *lines)

    def _await(self, what, condition):
        if not stage.eventually(condition):
            self.promise.broken_by(f'day {self.day}', f'not so: {what}; jobs: {stage.jobs_text()}')

    # Every job waits for the next try; the service has given up those whose time is over.
    def _all_stalled(self):
        for job in stage.jobs():
            age = self.day - self.first_days.setdefault(job['job'], self.day)
            if job['state'] != 'TRANSIENT_ERROR' or age * DAY >= int(job['no-progress-seconds']):
                return False
        return stage.executors_rest()

    def _is_quiet(self):
        return not stage.jobs() and stage.executors_rest()

    # How many applications have more than they must have in the end.
    def _count_left(self):
        return sum(stage.files_of(app) != ALL_REPORTED for app in self.apps)

    # In the end no job and no block in work is left, and each installation has arrived once. One
    # daily use at most has come for each other report that waited, and one a day since.
    def _judge(self, online, waiting):
        sent = {app: Counter(re.findall('stat=[^&]*|v=[^&]*', '&'.join(stage.reports(app))))
                for app in self.apps}
        values = [sent[app][value] for app in self.apps for value in self.values[app]]
        installs, dayuses = (sum(times[state] for times in sent.values())
                             for state in ('stat=install', 'stat=dayuse'))
        most, left, count = most_jobs_at_once(), self._count_left(), len(self.apps)
        faults = {
            f'{most} jobs at once': most > MOST_JOBS,
            f'{left} applications with something left': left,
            f'{installs} installations': installs != count,
            f'{dayuses} daily uses, {waiting} reports waited':
                not count * online <= dayuses <= waiting + count * online - installs,
            f'{values.count(0)} values missing': 0 in values,
            f'values doubled: {Counter(values)}': max(values) > 1}
        self.promise.broken_by('weeks', *(fault for fault, is_there in faults.items() if is_there))
        return self.promise.print(
            f'{self.days} days, {count} applications',
            f', {most} jobs at most, {dayuses} daily uses, {len(values)} values')


def most_jobs_at_once():
    jobs, most = set(), 0
    for entry in map(json.loads, stage.journal().splitlines()):
        if entry.get('result') == '0x00000000' and entry['call'] == 'CreateJob':
            jobs.add(entry['job'])
        elif entry.get('result') == '0x00000000' and entry['call'] in ('Complete', 'Cancel'):
            jobs.discard(entry['job'])
        most = max(most, len(jobs))
    return most
