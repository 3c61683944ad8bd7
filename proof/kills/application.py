# One application: its hosts, what they have recorded, and where it must be found.
import contextlib
import json
import os
import pathlib
import signal
from collections import Counter
from types import SimpleNamespace
from xml.etree import ElementTree

import stage
from report import windows_path
from stage import EXECUTOR, path_of
from web import Answer, whole

EXPORTS = [line.split()[1] for line in (stage.ROOT / 'scripts/exports.txt').open()]
RECORDING = ('DLLSetApplicationState', 'DLLSetOptionalParam', 'DLLUsageReport',
             'DLLSetUniqueParam', 'AddAction')
# Whether something is found or installed is up to the service and the executor.
MAY_FAIL = ('DLLIsUpdateAvailable', 'DLLDownloadAndInstallSilentUpdate')
# States arrive in words that are counted; all other items are there once.
STATES = ('install', 'uninstall')

FEED, REPORT = stage.WEB.url('feed'), stage.WEB.url('report')
stage.WEB.answers = {'feed': Answer(whole(stage.FEED)),
                     'report': Answer(whole(b'ok'), delivers=True)}


# What a host makes for a call.
def lines_of(call, rand, executor, feed, longest_wait):
    check = f'DLLIsUpdateAvailable {FEED} all {rand.choice((0, 50, 50, 50))}'
    return {
        'DLLIsUpgradeAvailable': [f'{call} {rand.randrange(longest_wait)}'],
        'DLLOnApplicationStartup': [f'{call} {feed or json.dumps(feed)} {REPORT} 3600'],
        'DLLSetExecutorPath': [executor],
        'DLLSetOptionalParam': [f'{call} p#=1'],
        'DLLUsageReport': [f'{call} p#=1'],
        'DLLDownloadAndInstallSilentUpdate': [path_of(EXECUTOR), check, call, executor],
        'DLLIsUpdateAvailable': [check],
        'DLLSetLocale': [f'{call} L#'],
        'DLLSetUniqueParam': [f'{call} u#=1'],
        'AddAction': [f'{call} a#'],
    }.get(call, [call])


# The processes of the executor under test, whatever has started them.
def running_executors():
    program = windows_path(EXECUTOR).encode()
    found = []
    for process in pathlib.Path('/proc').glob('[0-9]*'):
        with contextlib.suppress(OSError):  # it has ended
            # The service does not quote the path: its blank parts two arguments.
            if program in (process / 'cmdline').read_bytes().replace(b'\0', b' '):
                found.append(int(process.name))
    return found


def kill_running_executors():
    killed = running_executors()
    for process in killed:
        with contextlib.suppress(ProcessLookupError):
            os.kill(process, signal.SIGKILL)
    stage.eventually(lambda: not running_executors())
    return len(killed)


def failures(diary):
    return [entry.call + ' failed' for entry in diary
            if entry.sign == 'x' and entry.call not in MAY_FAIL]


# Sends all that waits, through executors that the service starts. Returns whether all was sent.
def deliver(apps):
    for _ in range(200):
        for app in apps:
            app.call('DLLOnApplicationStartup', 'DLLForceUpdateCheck', real_executor=True, feed='')
        while left := len(stage.jobs()):
            if not stage.eventually(lambda: len(stage.jobs()) < left):
                return False
        if not stage.eventually(lambda: not running_executors()):
            return False
        # The service limits a user's jobs.
        apps = [app for app in apps if app.stores().waiting or stage.blocks_of(app.name)]
        if not apps:
            return True
    return False


class Application:
    # An application that is removed may lose its states, and the last one loses all.
    def __init__(self, name, rand, *, keeps_values=True, keeps_states=True):
        self.name, self.rand = name, rand
        self.keeps_values, self.keeps_states = keeps_values, keeps_states
        self.tried = Counter(['install'])  # by the call that registers the application
        self.acknowledged = Counter(['install'])
        self.locales = {''}  # one of them was set last

    # Without the real executor its jobs wait for us.
    def start_host(self, calls, *, real_executor=False, feed=FEED, seconds=0):
        if not EXECUTOR.exists():
            stage.place_executor(stage.GOOD_EXECUTOR, EXECUTOR)
        executor = path_of(EXECUTOR if real_executor else '/none/kupdate-exec.exe')
        lines = [line for call in calls for line in lines_of(
            call, self.rand, executor, feed, longest_wait=5000 if real_executor else 20)]
        return stage.Host(self.name, executor, *lines, seconds=seconds)

    # Makes calls in a host of their own; returns its diary and what failed.
    def call(self, *calls, **settings):
        host = self.start_host(calls, **settings)
        diary = host.finish()
        code = host.process.returncode
        return diary, failures(diary) + ([f'the host ended with {code}'] if code else [])

    # Enters what hosts wrote that ran at the same time.
    def enter(self, *diaries):
        earlier = set(self.locales)
        for diary in diaries:
            latest = set()  # from the last one on whose call returned
            for entry in diary:
                if entry.call == 'DLLSetLocale':
                    if entry.sign == '!':
                        self.locales -= earlier
                        latest.clear()
                    latest.add(entry.item)
                elif entry.call in RECORDING and entry.sign != 'x':
                    (self.tried if entry.sign == '?' else self.acknowledged)[entry.item] += 1
            self.locales |= latest

    # The files as they are, when no process writes. One that was found not to parse is a fault too.
    def stores(self):
        folder = stage.DATA / self.name
        stores = SimpleNamespace(faults=[file.name for file in folder.glob('*.bak')],
                                 waiting=Counter(), in_work=Counter(), locale='')
        for file in folder.glob('*.xml'):
            try:
                root, items = stage.parse(file)
            except ElementTree.ParseError as error:
                stores.faults.append(f'{file.name}: {error}')
                continue
            is_record = file.name in ('appinfo.xml', 'updinfo.xml')
            if root.tag != ('appinfo' if is_record else 'statistics'):
                stores.faults.append(f'{file.name}: its root is {root.tag}')
            if file.name == 'appinfo.xml':
                stores.locale = root.findtext('Locale', '')
            elif not is_record:
                place = stores.waiting if file.name == 'statistics.xml' else stores.in_work
                place.update(items)
        return stores

    # The items of all reports, each "stat=dayuse&p1=1&action=a1,a2".
    def arrived(self):
        return Counter(item.removeprefix('stat=').removeprefix('action=')
                       for report in stage.reports(self.name)
                       for item in report.replace(',', '&').split('&'))

    # All that was acknowledged is in the files or has arrived; the locale was set last.
    def check_nothing_is_lost(self, stores, lost):
        if self.keeps_states and stores.locale not in self.locales:
            lost.broken_by(self.name, f'locale "{stores.locale}" is none of {self.locales}')
        if self.keeps_values:
            places = stores.waiting + stores.in_work + self.arrived()
            if missing := self.acknowledged.keys() - places.keys() - set(STATES):
                lost.broken_by(self.name, f'{missing} missing')

    # When all is sent, compares what has arrived. An item may come once more for each block that
    # was left in work: it was cut, sent or being taken back when its process died. Returns how many
    # items came more often than they were tried.
    def check_arrivals(self, in_work, lost, twice):
        arrived = self.arrived()
        for item, times in self.tried.items():
            fault = f'{item} came {arrived[item]} times of {times}'
            if arrived[item] < self.acknowledged[item] and self.keeps_values:
                lost.broken_by(self.name, fault)
            if arrived[item] > times + in_work[item] and (self.keeps_states or item not in STATES):
                twice.broken_by(self.name, fault)
        return sum(arrived[item] > self.tried[item] for item in self.tried.keys() - set(STATES))
