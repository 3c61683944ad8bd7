"""The faults of what the library relies on, and what must come of each."""
import dataclasses
from dataclasses import dataclass

import stage
import web
from stage import DAY

CHECK, HOST_CHECK, REPORT = 'check', "host's check", 'report'

TWENTY_HOURS = 20 * 3600
# Lines of the service's journal.
STALLED = '"event":"transient_error"'
EXECUTOR_ENDED = '"event":"notify_exit"'
NOT_STARTED = 'cannot be started'


@dataclass
class Outcome:
    """What can be seen of an application."""
    route: str  # the service's check, a check that the host drives, or a report with "p=1"
    meaning: str
    files: str              # as stage.files_of gives them
    jobs: str = 'none'      # as stage.jobs_text gives them
    log: tuple = ()         # parts of lines in the logs
    host: str = ''          # the last answer to a host that drives its check
    reports: int = 1        # how many with "p=1" the web server has in the end
    in_test: bool = False   # ./test runs the row: no other test meets this


@dataclass
class Cause:
    """What is wrong from the host's call until `until` is seen and `lasts` seconds have passed."""
    control: str = ''      # the service's control file
    logs: str = ''         # part of a line that is logged
    answer: web.Answer = None  # of the web server
    server_is_away: bool = False
    quota_is_used_up: bool = False
    executor: object = stage.GOOD_EXECUTOR
    clock_was_ahead: int = 0  # by so many seconds at the application's last calls
    service_restarts: bool = False
    until: str = ''
    lasts: int = 0
    starts: int = 1        # how often the host starts afterwards
    later: int = DAY       # seconds before each of these starts


@dataclass
class Fault:
    name: str
    cause: Cause
    outcomes: tuple

    def __init__(self, name, cause, *outcomes):
        self.name, self.cause, self.outcomes = name, cause, outcomes


# --- outcomes ---

GIVES_UP = 'Unhandled exception.'
LOW_PRIVILEGES = 'Low-privileges process'
TAKEN_BACK = 'Rollback block:  0'
OLD_SERVICE = 'Error in job->SetNotifyFlags. Maybe used BITS version < 1.5.'
NOT_READ = 'The check failed:  The feed cannot be read.'
WRONG_ROOT = "The check failed:  bad xml: root node name is not 'rss' but "
OTHER_JOBS = "another program's SUSPENDED x60"


def not_queued(*log, jobs='none'):
    return Outcome(CHECK, 'no check is queued', 'appinfo.xml statistics.xml(install)', jobs,
                   log or (GIVES_UP,))


def check_fails(log='The check failed: the feed was not downloaded.'):
    return Outcome(CHECK, 'the check fails', 'appinfo.xml(0) statistics.xml(install)', log=(log,))


def check_waits(state, *log):
    return Outcome(CHECK, 'the job waits', 'BIT.tmp appinfo.xml statistics.xml(install)',
                   f'check {state}', log)


def found():
    return Outcome(CHECK, 'the update is found',
                   'appinfo.xml(1) statistics.xml(install) updinfo.xml(2.0)', log=('Exit code: 0',))


def kept(*log, jobs='none'):
    return Outcome(REPORT, 'the report is kept', 'appinfo.xml statistics.xml(install p=1)', jobs,
                   log or (TAKEN_BACK,))


def not_delivered():
    return kept('Not delivered, block: 0')


def report_waits(state, *log):
    return Outcome(REPORT, 'the job waits',
                   'BIT.tmp appinfo.xml in_work_0.xml(install p=1) statistics.xml',
                   f'report {state}', log)


def delivered(reports=1):
    return Outcome(REPORT, 'the report counts as sent', 'appinfo.xml statistics.xml(confirmed)',
                   log=('Delivered, block: 0',), reports=reports)


def host_sees(answer, *log, files='appinfo.xml', jobs='none'):
    return Outcome(HOST_CHECK, answer, files, jobs, log, host=answer)


def in_test(outcome):
    return dataclasses.replace(outcome, in_test=True)


def good_end(outcome):
    """How the application must be when the fault is over."""
    if outcome.route == CHECK:
        end = found()
    elif outcome.route == REPORT:
        end = delivered(outcome.reports)
    else:
        end = host_sees('update found',
                        files='ID-version.rss appinfo.xml(1) updinfo.xml(2.0) version.rss')
    return dataclasses.replace(end, log=())


# --- causes ---

def fails(*calls, **more):
    """Calls that the service fails, as in its control file; the first one's code is logged."""
    code = calls[0].split()[1]
    return Cause('\n'.join(f'fail {call}' for call in calls), f'HR= {code}.', **more)


def until_executor_ended(*calls):
    return fails(*calls, until=EXECUTOR_ENDED)


def stays(days, control, **more):
    """What the executor leaves goes only when the host starts twice, so many days apart."""
    return Cause(control, until=EXECUTOR_ENDED, starts=2, later=days * DAY, **more)


def answers(get, head=b'', lasts=0, **more):
    """An answer of the web server. The service tries again as long as it lasts."""
    return Cause(answer=web.Answer(get, head, **more), until=STALLED if lasts else '', lasts=lasts)


def away(lasts):
    return Cause(server_is_away=True, until=STALLED, lasts=lasts)


def slow(**more):
    """Takes two seconds."""
    answer = web.Answer(web.whole(stage.FEED + b' ' * 40_000), pause=0.05, delivers=True)
    return Cause(answer=answer, **more)


SERVICE_FAULTS = [
    Fault('the service is not there', fails('CreateInstance 0x80040154'),
          not_queued(LOW_PRIVILEGES), kept(LOW_PRIVILEGES, TAKEN_BACK),
          host_sees('no check', LOW_PRIVILEGES, GIVES_UP)),
    Fault('the service denies access', fails('CreateInstance 0x80070005'),
          not_queued(LOW_PRIVILEGES)),
    Fault('CreateJob fails', fails('CreateJob 0x80070005'), not_queued(), kept()),
    Fault('another program has all 60 jobs', Cause(quota_is_used_up=True, logs='HR= 0x80200049.'),
          not_queued(jobs=OTHER_JOBS), in_test(kept(jobs=OTHER_JOBS)),
          host_sees('no check', GIVES_UP, jobs=OTHER_JOBS)),
    Fault('the service is too old for notify programs', Cause('no-job2', 'job == NULL!!'),
          not_queued(OLD_SERVICE, jobs='bare SUSPENDED')),
    Fault('AddFile fails', fails('AddFile 0x80070057'), not_queued(), kept()),
    Fault('SetNoProgressTimeout fails', fails('SetNoProgressTimeout 0x80070005'), not_queued()),
    Fault('SetPriority fails', fails('SetPriority 0x80070005'), kept()),
    Fault('SetNotifyFlags fails', Cause('fail SetNotifyFlags 0x80070005', OLD_SERVICE),
          found(), delivered()),
    Fault('SetNotifyCmdLine fails', fails('SetNotifyCmdLine 0x80004001'), not_queued(), kept()),
    Fault('Resume fails', fails('Resume 0x80200004'), not_queued(), kept()),
    Fault('Resume fails, and Cancel of the job too',
          fails('Resume 0x80200004', 'Cancel 0x80070005'), not_queued(jobs='check SUSPENDED')),
    Fault('the service is gone when the executor comes',
          until_executor_ended('CreateInstance 0x80070422 call 2'),
          in_test(check_waits('TRANSFERRED', 'Exit code: 1')),
          report_waits('TRANSFERRED', 'Exit code: 1')),
    Fault('the job belongs to another user when the executor comes',
          until_executor_ended('GetJob 0x80070005 call 1'),
          check_waits('TRANSFERRED', 'Exit code: 1')),
    Fault('GetState fails for the executor', until_executor_ended('GetState 0x80004005 call 1'),
          report_waits('TRANSFERRED', 'Exit code: 1')),
    Fault('Complete fails', fails('Complete 0x80070070'), check_fails(), in_test(delivered())),
    Fault('Complete fails once', fails('Complete 0x80070070 call 1'),
          host_sees('failure', 'Error in StopJob.')),
    Fault('Complete and Cancel fail',
          until_executor_ended('Complete 0x80004005', 'Cancel 0x80004005'),
          check_waits('TRANSFERRED', 'Exit code: 1'),
          in_test(report_waits('TRANSFERRED', 'Exit code: 1'))),
    Fault('the job has vanished when the executor comes',
          # The first start's executor ends the job, the second one's deletes its file.
          stays(2, 'vanish all', logs='The job is gone.'),
          Outcome(CHECK, 'the check fails', 'BIT.tmp appinfo.xml(0) statistics.xml(install)',
                  'check TRANSFERRED')),
    Fault('the job of a report that was not received has vanished',
          stays(16, 'vanish all', answer=web.Answer(web.status('404 Not Found'))),
          in_test(report_waits('ERROR'))),
    Fault('another executor ends the job at the same time',
          stays(16, 'states TRANSFERRED ACKNOWLEDGED\n'
                    'fail Complete 0x80200002\nfail Cancel 0x80200002'),
          in_test(report_waits('TRANSFERRED', 'Exit code: 0'))),
    Fault('the job has vanished',
          Cause('vanish all', 'HR= 0x80200001.', until='"event":"transferred"'),
          host_sees('job failed', 'Job failed.', files='BIT.tmp appinfo.xml',
                    jobs='bare TRANSFERRED')),
    Fault('EnumJobs fails',
          Cause('fail EnumJobs 0x80004005', 'Housekeeping was not finished.'),
          found(), delivered()),
    Fault('GetDisplayName, GetId, GetTimes and GetNotifyCmdLine fail',
          Cause('fail GetDisplayName 0x80004005\nfail GetId 0x80004005\n'
                'fail GetTimes 0x80004005\nfail GetNotifyCmdLine 0x80004005'), found()),
    Fault('the executor is not there', Cause(executor=None, until=NOT_STARTED),
          check_waits('TRANSFERRED'), report_waits('TRANSFERRED')),
    # This program crashes when it is started under the executor's name.
    Fault('the executor crashes', Cause(executor=stage.HOST, until='"exit_code":3221225477'),
          in_test(check_waits('TRANSFERRED')), report_waits('TRANSFERRED')),
    Fault('the service is restarted during the transfer', slow(service_restarts=True),
          found(), delivered(2),
          host_sees('update found', 'Update available.',
                    files='ID-version.rss appinfo.xml updinfo.xml(2.0) version.rss')),
    Fault('the service is restarted before the executor could be started',
          Cause(executor=None, until=NOT_STARTED, service_restarts=True), in_test(found())),
    Fault('the clock was set back a year', Cause(clock_was_ahead=365 * DAY),
          found(), in_test(delivered())),
    Fault('the clock was set forward a year', Cause(clock_was_ahead=-365 * DAY),
          found(), delivered()),
]

UNAVAILABLE = web.status('503 Service Unavailable')
SERVER_ERROR = web.status('500 Internal Server Error')
NO_HEAD = web.status('405 Method Not Allowed')
FORBIDDEN = web.status('403 Forbidden')
CUT_FEED = web.sized(5000, b'<?xml version="1.0"?><rss><channel>')
ERROR_PAGE = web.whole(b'<!DOCTYPE html><html><head><title>Oops</title></head>'
                       b'<body>Out of order</body></html>')
BROKEN_GZIP = web.whole(b'\x1F\x8B\x08' + b'\xA5' * 500, 'Content-Encoding: gzip')

NETWORK_FAULTS = [
    Fault('404', answers(web.status('404 Not Found')), check_fails(), in_test(not_delivered()),
          host_sees('job failed', 'Job failed.')),
    Fault('403', answers(FORBIDDEN), check_fails(), not_delivered()),
    Fault('500 for good: the service gives up after 23 hours',
          answers(SERVER_ERROR, lasts=DAY), check_fails()),
    Fault('500 for good: the service gives up after 14 days',
          answers(SERVER_ERROR, lasts=15 * DAY), not_delivered()),
    Fault('503 for twenty hours, then good', answers(UNAVAILABLE, lasts=TWENTY_HOURS),
          check_waits('TRANSIENT_ERROR'),
          host_sees('in work', 'Job in work.', files='BIT.tmp appinfo.xml',
                    jobs='bare TRANSIENT_ERROR')),
    Fault('503 for ten days, then good', answers(UNAVAILABLE, lasts=10 * DAY),
          in_test(report_waits('TRANSIENT_ERROR'))),
    Fault('no server listens for twenty hours, then one does', away(TWENTY_HOURS),
          check_waits('TRANSIENT_ERROR')),
    Fault('no server listens for ten days, then one does', away(10 * DAY),
          report_waits('TRANSIENT_ERROR')),
    Fault('no server listens for fifteen days', away(15 * DAY), not_delivered()),
    Fault('the connection is closed without an answer, for a day',
          answers(b'', lasts=DAY), check_fails()),
    Fault('no such host, for a day',
          answers(web.redirect('http://no-such-host.invalid/feed'), lasts=DAY), check_fails()),
    Fault('cut in the middle, for a day', answers(CUT_FEED, lasts=DAY), check_fails()),
    Fault('cut in the middle, then whole', answers(CUT_FEED, lasts=TWENTY_HOURS),
          check_waits('TRANSIENT_ERROR')),
    Fault('cut in the middle, for fifteen days',
          answers(web.sized(5000, b'thank'), lasts=15 * DAY), not_delivered()),
    Fault('longer than the server says, for a day',
          answers(web.sized(40, b'<?xml version="1.0"?><rss><channel></channel></rss>'), lasts=DAY),
          check_fails()),
    Fault('another size to HEAD than to GET', answers(web.sized(5, b'<rss>'), web.sized(5000)),
          check_fails(NOT_READ)),
    Fault('endless',
          Cause(answer=web.Answer(web.sized(2_000_000_000, b' ' * 1_000_000), pause=0.5),
                until='"call":"Resume"'),
          check_waits('CONNECTING'), report_waits('CONNECTING')),
    Fault('empty', answers(web.whole(b'')), check_fails(WRONG_ROOT + 'NA'), delivered(0)),
    Fault('slow: two seconds', slow(), found()),
    Fault('redirected', answers(web.redirect('/good')), found(), delivered(0)),
    Fault('redirected to itself, for a day', answers(web.redirect('/address'), lasts=DAY),
          check_fails()),
    Fault('redirected to itself, for fifteen days',
          answers(web.redirect('/address'), lasts=15 * DAY), not_delivered()),
    Fault('a server without HEAD', answers(web.whole(b'<rss/>'), NO_HEAD),
          check_fails(), not_delivered()),
    Fault('a server without ranges', answers(web.raw('200 OK', ['Content-Length: 6'], b'<rss/>')),
          check_fails()),
    Fault('a server without sizes', answers(web.raw('200 OK', ['Accept-Ranges: bytes'], b'ok')),
          not_delivered()),
    Fault('no HTTP at all, for a day', answers(b'SSH-2.0-none\r\n\r\n', lasts=DAY), check_fails()),
    Fault('a feed that is no XML', answers(web.whole(b'\xFF' * 3000)), check_fails(NOT_READ)),
    Fault('broken compressed data', answers(BROKEN_GZIP), in_test(check_fails(NOT_READ))),
    Fault('an error page with status 200', answers(ERROR_PAGE), check_fails(WRONG_ROOT + 'html'),
          delivered(0),
          host_sees('failure', GIVES_UP, files='ID-version.rss appinfo.xml')),
]

ROWS = [(f'{fault.name} ({outcome.route})', fault.cause, outcome)
        for fault in SERVICE_FAULTS + NETWORK_FAULTS for outcome in fault.outcomes]
