"""What hosts, the transfer service and its jobs leave behind: as texts, counted, set back."""
import collections
import contextlib
import os
import pathlib
import re
import shutil
import subprocess
import sys
import time

DAY = 86400  # seconds
RETRY = 700  # the service's delay, and some more
FEED = (b'<?xml version="1.0" encoding="utf-8"?><rss version="2.0"><channel><item>'
        b'<version:version>2.0.0.0</version:version><version:status>release</version:status>'
        b'<guid>http://d/f</guid></item></channel></rss>')

BINARIES = pathlib.Path(os.environ['BINARIES'])
HOST = BINARIES / 'proof/service_host.exe'
GOOD_EXECUTOR = BINARIES / 'src/executor/kupdate-exec.exe'
STANDIN = BINARIES / 'standin/kupdate-standin.exe'

_SERVICE = pathlib.Path(os.environ['SERVICE'])
_JOBS = _SERVICE / 'jobs.txt'
HOST_MAY_ASK = _SERVICE / 'host-may-ask'  # a file that hosts wait for
_USERS = pathlib.Path(os.environ['WINEPREFIX'], 'drive_c/users')
_APP_DATA = _USERS / os.environ['USER'] / 'AppData'
_DATA, _LOCAL, _ROAMING = (_APP_DATA / kind / 'Krelix/Updater'
                           for kind in ('LocalLow', 'Local', 'Roaming'))
_EXECUTOR = _ROAMING / 'kupdate-exec.exe'


def say(text):
    print(text, file=sys.stderr, flush=True)


def row(*cells):
    print('|', ' | '.join(cells), '|', flush=True)


def eventually(condition, seconds=20):
    """Asks every 20 ms until the condition holds; returns whether it did."""
    end = time.monotonic() + seconds
    while not condition():
        if time.monotonic() > end:
            return False
        time.sleep(0.02)
    return True


def _read(path):
    """A file that another process may replace or delete meanwhile."""
    with contextlib.suppress(FileNotFoundError):
        return path.read_text('utf-8', 'replace')
    return ''


def _files(*folders):
    return [file for folder in folders if folder.is_dir() for file in folder.iterdir()
            if file.is_file()]


def _temp_files():
    return _files(*_USERS.glob('*/Temp'), *_USERS.glob('*/AppData/Local/Temp'))


# --- programs ---

def start_program(program, *arguments, output=subprocess.DEVNULL):
    """Output never goes to a pipe: Wine's own services would keep it open."""
    return subprocess.Popen(['wine', program, *map(str, arguments)], stdin=subprocess.DEVNULL,
                            stdout=output, stderr=subprocess.DEVNULL)


def run_host(app, *steps):
    start_program(HOST, app, *steps).wait(300)


def place_executor(program):
    """Puts a copy where the library looks for the executor; None leaves the place empty."""
    _EXECUTOR.unlink(missing_ok=True)
    if program:
        _EXECUTOR.parent.mkdir(parents=True, exist_ok=True)
        shutil.copy(program, _EXECUTOR)


# --- files ---

def clean_user_folders():
    shutil.rmtree(_DATA, ignore_errors=True)
    shutil.rmtree(_LOCAL, ignore_errors=True)
    for file in _temp_files() + list(_ROAMING.glob('*.log')):
        file.unlink(missing_ok=True)


def _values(file):
    text = _read(file)
    if file.name == 'appinfo.xml':
        return ''.join(re.findall('<UpgradeAvailable>(.*?)<', text))
    if file.name == 'updinfo.xml':
        return '.'.join(re.findall('<VerM(?:aj|in)or>(.*?)<', text))
    confirmed = ['confirmed'] if 'confirmed="true"' in text else []
    return ' '.join(re.findall(r'<(?:state|param) ord="\d+">(.*?)<', text) + confirmed)


def files_of(app):
    """The files, with the values that show how things stand:

    "appinfo.xml(1) in_work_0.xml(install p=1) statistics.xml(confirmed)". Logs are left out, and
    what each application has in the local folder; an id in a name reads "ID".
    """
    words = []
    for file in _files(_DATA / app, _LOCAL / app) + _temp_files():
        if file.name in ('local.xml', 'answer.xml') or file.suffix == '.lock':
            continue
        name = 'BIT.tmp' if file.name.startswith('BIT') else file.name.replace(app, 'ID')
        values = _values(file) if file.suffix == '.xml' else ''
        words.append(f'{name}({values})' if values else name)
    return ' '.join(sorted(words))


def is_logged(text):
    return any(text in _read(log) for log in _ROAMING.glob('*.log'))


def set_times_back(app, seconds):
    """Lets time pass for an application's record and its blocks in work."""
    record = _DATA / app / 'appinfo.xml'
    if record.exists():
        record.write_text(re.sub(r'(?<=Time>)\d+(?=<)', lambda time: str(int(time[0]) - seconds),
                                 record.read_text('utf-8')), 'utf-8')
    for block in (_DATA / app).glob('in_work_*'):
        changed = block.stat().st_mtime - seconds
        os.utime(block, (changed, changed))


# --- the service ---

class Service:
    """The stand-in's control file, and its journal from here on."""

    def __init__(self):
        self._start = 0
        self._start = len(self.journal())
        self.control('')

    @staticmethod
    def control(*lines):
        """Counting of calls starts again."""
        (_SERVICE / 'control.txt').write_text('\n'.join(lines), 'utf-8')

    def journal(self):
        with contextlib.suppress(FileNotFoundError), open(_SERVICE / 'journal.jsonl', 'rb') as file:
            file.seek(self._start)
            return file.read()
        return b''

    def count(self, text):
        return self.journal().count(text.encode())

    def executors_rest(self):
        return (self.count('"event":"notify"') ==
                self.count('"event":"notify_exit"') + self.count('cannot be started'))


def stop_service():
    start_program(STANDIN, '--stop').wait()


def wake_service():
    start_program(STANDIN, '-Embedding')


def live_jobs():
    """The service's jobs, each a dict of what its file has."""
    jobs = []
    for line in _read(_JOBS).splitlines():
        key, _, value = line.partition(' ')
        if key == 'job':
            jobs.append({})
        jobs[-1][key] = value
    return jobs


def purpose(job):
    """Whose job it is; "bare" ones belong to hosts that drive a check."""
    if job['name'] != 'Kupdate-task':
        return "another program's"
    parameters = job.get('notify-parameters', '')
    return ('check' if '--update-check' in parameters else
            'report' if '--stat-callback' in parameters else 'bare')


def jobs_text():
    """The jobs as "check TRANSIENT_ERROR, report QUEUED x2".

    One whose bytes come in shows as CONNECTING: the service's file does not follow that.
    """
    counts = collections.Counter(f"{purpose(job)} {job['state']}" for job in live_jobs())
    return ', '.join(job + (f' x{count}' if count > 1 else '')
                     for job, count in sorted(counts.items())) or 'none'


def any_job_moves():
    """Whether the service is yet to try a transfer, or to start the executor, by itself."""
    return any(job.get('notice-due') == '1' or
               job['state'] in ('QUEUED', 'CONNECTING', 'TRANSIENT_ERROR') for job in live_jobs())


def is_fetching():
    return any(file.name.startswith('BIT') and _read(file) for file in _temp_files())


def replace_jobs(text):
    """The service begins with these jobs when the next client starts it."""
    stop_service()
    _JOBS.write_text(text, 'utf-8')


def take_all_jobs():
    """Another program has as many jobs as the service allows."""
    replace_jobs(''.join(f'job {{00000000-0000-0000-0000-0000000000{number}}}\nowner self\n'
                         'state SUSPENDED\nname other\n' for number in range(10, 70)))


def set_job_times_back(seconds):
    if live_jobs():
        stop_service()
        replace_jobs(re.sub(r'(?m)^(created|modified) (\d+)',
                            lambda time: f'{time[1]} {int(time[2]) - seconds * 10_000_000}',
                            _read(_JOBS)))
        wake_service()


# --- reports ---

def reports(web, app):
    """An application's reports that the web server has, each from "stat=" on, in their order."""
    return [re.sub('.*&(stat=.*)&fd=.*', r'\1', address) for address in web.delivered
            if f'krsoft={app}&' in address]
