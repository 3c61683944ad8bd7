# The faults of what the library relies on, and what must come of each.
import dataclasses
from dataclasses import dataclass

import stage
import web
from stage import DAY

# Whether the service checks, the host drives a check itself, or the service sends a report.
CHECK, HOST_CHECK, REPORT = 'check', "host's check", 'report'


# What can be seen of an application.
@dataclass
class Outcome:
    route: str
    meaning: str
    files: str             # as stage.files_of gives them
    jobs: str = 'none'     # as stage.jobs_text gives them
    log: tuple = ()        # parts of lines in the logs
    host: str = ''         # the last answer to a host that drives its check
    reports: int = 1       # how many with "p=1" the web server has in the end
    in_test: bool = False  # ./test runs the row


# What is wrong from the host's call until `until` is seen and `lasts` seconds have passed.
@dataclass
class Cause:
    control: str = ''  # the service's control file
    log: tuple = ()    # parts of lines that are logged, whatever the outcome
    answer: web.Answer = None
    server_is_away: bool = False
    quota_is_used_up: bool = False
    executor: object = stage.GOOD_EXECUTOR
    clock_was_ahead: int = 0  # by so many seconds at the application's last calls
    service_restarts: bool = False
    until: str = ''  # a part of a line in the service's journal
    lasts: int = 0
    starts: int = 1   # how often the host starts afterwards
    later: int = DAY  # seconds before each of these starts


# --- outcomes ---

GIVES_UP = 'Unhandled exception.'
LOW_PRIVILEGES = 'Low-privileges process'
TAKEN_BACK = 'Rollback block:  0'
OLD_SERVICE = 'Error in job->SetNotifyFlags. Maybe used BITS version < 1.5.'
NOT_READ = 'The check failed:  The feed cannot be read.'
WRONG_ROOT = "The check failed:  bad xml: root node name is not 'rss' but "
OTHER_JOBS = "another program's SUSPENDED x60"


def not_queued(*log, jobs='none'):
    return Outcome(CHECK, 'no check is queued', 'appinfo.xml(dialog) statistics.xml(install)',
                   jobs, log or (GIVES_UP,))


def check_fails(log='The check failed: the feed was not downloaded.'):
    return Outcome(CHECK, 'the check fails', 'appinfo.xml(0) statistics.xml(install)',
                   log=(log, ':  the check failed'))


def check_waits(state='TRANSFERRED'):
    return Outcome(CHECK, 'the job waits', 'BIT.tmp appinfo.xml(dialog) statistics.xml(install)',
                   f'check {state}')


def found():
    return Outcome(CHECK, 'the update is found',
                   'appinfo.xml(1 scheduled) statistics.xml(install) updinfo.xml(2.0)',
                   log=(':  an update is available', 'Exit code: 0'))


def not_found():
    return Outcome(CHECK, 'there is no update', 'appinfo.xml(0 scheduled) statistics.xml(install)',
                   log=(':  there is no update', 'Exit code: 0'))


def kept(*log, jobs='none'):
    return Outcome(REPORT, 'the report is kept', 'appinfo.xml statistics.xml(install p=1)', jobs,
                   log or (TAKEN_BACK,))


def not_delivered():
    return kept('Not delivered, block: 0')


def report_waits(state='TRANSFERRED'):
    return Outcome(REPORT, 'the job waits',
                   'BIT.tmp appinfo.xml in_work_0.xml(install p=1) statistics.xml',
                   f'report {state}')


def sent(reports=1):
    return Outcome(REPORT, 'the report counts as sent', 'appinfo.xml statistics.xml(confirmed)',
                   log=('Delivered, block: 0',), reports=reports)


def host_sees(answer, *log, files='appinfo.xml', jobs='none'):
    return Outcome(HOST_CHECK, f'the host sees: {answer}', files, jobs, log, answer)


def in_test(outcome):
    return dataclasses.replace(outcome, in_test=True)


# How an application is that never met a fault.
GOOD_ENDS = {
    CHECK: found(), REPORT: sent(),
    HOST_CHECK: host_sees('update found',
                          files='ID-version.rss appinfo.xml(1 scheduled) updinfo.xml(2.0) '
                                'version.rss')}


# --- causes ---

# Calls that the service fails, as in its control file; the first one's code is logged.
def fails(*calls, log=None, **more):
    log = log or f'HR= {calls[0].split()[1]}.'
    return Cause('\n'.join(f'fail {call}' for call in calls), (log,), **more)


def executor_fails(*calls):
    cause = fails(*calls, until=EXECUTOR_ENDS)
    return dataclasses.replace(cause, log=cause.log + ('Exit code: 1',))


# What the executor leaves goes only when the host starts twice, so many days apart.
def stays(days, control, *log, answer=None):
    return Cause(control, log, answer, until=EXECUTOR_ENDS, starts=2, later=days * DAY)


# An answer of the web server. The service tries again as long as it lasts.
def answers(get, lasts=0, head=b''):
    return Cause(answer=web.Answer(get, head), until=STALLED if lasts else '', lasts=lasts)


def away(lasts):
    return Cause(server_is_away=True, until=STALLED, lasts=lasts)


def redirect(target):
    return web.empty('302 Found', f'Location: {target}')


# Takes two seconds.
def slow(**more):
    answer = web.Answer(web.whole(stage.FEED + b' ' * 40_000), pause=0.05, delivers=True)
    return Cause(answer=answer, **more)


STALLED = '"event":"transient_error"'
TRIES = 'TRANSIENT_ERROR'
EXECUTOR_ENDS = '"event":"notify_exit"'
NOT_STARTED = 'cannot be started'
HOUR = 3600
NOT_FOUND = web.NOT_FOUND.get
NO_HEAD = web.empty('405 Method Not Allowed')
SERVER_ERROR = web.empty('500 Internal Server Error')
UNAVAILABLE = web.empty('503 Service Unavailable')
LOOP = redirect('/address')
CUT_FEED = web.sized(5000, b'<?xml version="1.0"?><rss><channel>')
LONG_FEED = web.sized(40, b'<?xml version="1.0"?><rss><channel></channel></rss>')
BROKEN_GZIP = web.whole(b'\x1F\x8B\x08' + b'\xA5' * 500, 'Content-Encoding: gzip')
OLD_FEED = stage.FEED.replace(b'2.0.0.0', b'1.0.0.0')
ERROR_PAGE = web.whole(b'<!DOCTYPE html><html><head><title>Oops</title></head></html>')
ENDLESS = web.Answer(web.sized(2_000_000_000, b' ' * 1_000_000), pause=0.5)

FAULTS = [
    # The service, the executor and the clock.
    ('the service is not there', fails('CreateInstance 0x80040154'), not_queued(LOW_PRIVILEGES),
     kept(LOW_PRIVILEGES, TAKEN_BACK), in_test(host_sees('no check', LOW_PRIVILEGES, GIVES_UP))),
    ('the service denies access', fails('CreateInstance 0x80070005'), not_queued(LOW_PRIVILEGES)),
    ('CreateJob fails', fails('CreateJob 0x80070005'), not_queued(), kept()),
    ('another program has all 60 jobs', Cause(quota_is_used_up=True, log=('HR= 0x80200049.',)),
     not_queued(jobs=OTHER_JOBS), in_test(kept(jobs=OTHER_JOBS)),
     host_sees('no check', GIVES_UP, jobs=OTHER_JOBS)),
    # The job that is left must be older than a day to be ended.
    ('the service is too old for notify programs',
     Cause('no-job2', ('job == NULL!!',), later=DAY + 60),
     in_test(not_queued(OLD_SERVICE, GIVES_UP, jobs='bare SUSPENDED'))),
    ('AddFile fails', fails('AddFile 0x80070057'), in_test(not_queued()), kept()),
    ('SetNoProgressTimeout fails', fails('SetNoProgressTimeout 0x80070005'), not_queued()),
    ('SetPriority fails', fails('SetPriority 0x80070005'), kept()),
    ('SetNotifyFlags fails', fails('SetNotifyFlags 0x80070005', log=OLD_SERVICE),
     in_test(found()), sent()),
    ('SetNotifyCmdLine fails', fails('SetNotifyCmdLine 0x80004001'), not_queued(), kept()),
    ('Resume fails', fails('Resume 0x80200004'), not_queued(), kept(),
     in_test(host_sees('no check', GIVES_UP))),
    ('Resume fails, and Cancel of the job too', fails('Resume 0x80200004', 'Cancel 0x80070005'),
     not_queued(jobs='check SUSPENDED')),
    ('the service is gone when the executor comes',
     executor_fails('CreateInstance 0x80070422 call 2'), in_test(check_waits()), report_waits()),
    ('the job belongs to another user when the executor comes',
     executor_fails('GetJob 0x80070005 call 1'), check_waits()),
    ('GetState fails for the executor', executor_fails('GetState 0x80004005 call 1'),
     report_waits()),
    ('Complete fails', fails('Complete 0x80070070'), in_test(check_fails()), in_test(sent())),
    ('Complete fails once', fails('Complete 0x80070070 call 1'),
     in_test(host_sees('failure', 'Error in StopJob.'))),
    ('Complete and Cancel fail', executor_fails('Complete 0x80004005', 'Cancel 0x80004005'),
     check_waits(), in_test(report_waits())),
    # The first start's executor ends the job, the second one's deletes its file.
    ('the job has vanished when the executor comes', stays(2, 'vanish all', 'The job is gone.'),
     in_test(check_waits())),
    ('the job of a report that was not received has vanished',
     stays(16, 'vanish all', answer=web.NOT_FOUND), in_test(report_waits('ERROR'))),
    ('another executor ends the job at the same time',
     stays(16, 'states TRANSFERRED ACKNOWLEDGED\nfail Complete 0x80200002\nfail Cancel 0x80200002',
           'Exit code: 0'), in_test(report_waits())),
    ('the job has vanished',
     Cause('vanish all', ('HR= 0x80200001.',), until='"event":"transferred"'),
     in_test(host_sees('job failed', 'Job failed.', files='BIT.tmp appinfo.xml',
                       jobs='bare TRANSFERRED'))),
    ('EnumJobs fails', fails('EnumJobs 0x80004005', log='Housekeeping was not finished.'), found(),
     sent()),
    ('GetDisplayName, GetId, GetTimes and GetNotifyCmdLine fail',
     fails('GetDisplayName 0x80004005', 'GetId 0x80004005', 'GetTimes 0x80004005',
           'GetNotifyCmdLine 0x80004005', log='Exit code: 0'), found()),
    ('the executor is not there', Cause(executor=None, until=NOT_STARTED), check_waits(),
     report_waits()),
    # The host crashes when it is started under the executor's name.
    ('the executor crashes', Cause(executor=stage.HOST, until='"exit_code":3221225477'),
     in_test(check_waits()), report_waits()),
    ('the service is restarted during the transfer', slow(service_restarts=True), found(), sent(2),
     host_sees('update found', 'Update available.',
               files='ID-version.rss appinfo.xml updinfo.xml(2.0) version.rss')),
    ('the service is restarted before the executor could be started',
     Cause(executor=None, until=NOT_STARTED, service_restarts=True), in_test(found())),
    ('the clock was set back a year', Cause(clock_was_ahead=365 * DAY), found(), in_test(sent())),
    ('the clock was set forward a year', Cause(clock_was_ahead=-365 * DAY), found(), sent()),

    # The web server and the way to it.
    ('404', answers(NOT_FOUND), check_fails(), in_test(not_delivered()),
     in_test(host_sees('job failed', 'Job failed.'))),
    ('403', answers(web.empty('403 Forbidden')), check_fails(), not_delivered()),
    ('500 for good: the service gives up after 23 hours', answers(SERVER_ERROR, DAY),
     check_fails()),
    ('500 for good: the service gives up after 14 days', answers(SERVER_ERROR, 15 * DAY),
     not_delivered()),
    ('503 for twenty hours, then good', answers(UNAVAILABLE, 20 * HOUR), check_waits(TRIES),
     in_test(host_sees('in work', 'Job in work.', files='BIT.tmp appinfo.xml',
                       jobs='bare TRANSIENT_ERROR'))),
    ('503 for ten days, then good', answers(UNAVAILABLE, 10 * DAY), in_test(report_waits(TRIES))),
    ('no server listens for twenty hours, then one does', away(20 * HOUR), check_waits(TRIES)),
    ('no server listens for ten days, then one does', away(10 * DAY), report_waits(TRIES)),
    ('no server listens for fifteen days', away(15 * DAY), not_delivered()),
    ('the connection is closed without an answer, for a day', answers(b'', DAY), check_fails()),
    ('no such host, for a day', answers(redirect('http://no-such-host.invalid/'), DAY),
     check_fails()),
    ('cut in the middle, for a day', answers(CUT_FEED, DAY), check_fails()),
    ('cut in the middle, then whole', answers(CUT_FEED, 20 * HOUR), check_waits(TRIES)),
    ('cut in the middle, for fifteen days', answers(CUT_FEED, 15 * DAY), not_delivered()),
    ('longer than the server says, for a day', answers(LONG_FEED, DAY), check_fails()),
    ('another size to HEAD than to GET', answers(web.whole(b'<rss>'), head=web.sized(5000)),
     check_fails(NOT_READ)),
    ('endless', Cause(answer=ENDLESS, until='"call":"Resume"'), check_waits('CONNECTING'),
     report_waits('CONNECTING')),
    ('empty', answers(web.whole(b'')), check_fails(WRONG_ROOT + 'NA'), sent(0)),
    ('slow: two seconds', slow(), found()),
    ('a feed without a newer version', Cause(answer=web.Answer(web.whole(OLD_FEED)), later=2 * DAY),
     in_test(not_found()),
     in_test(host_sees('no update', 'No update founded.', 'Version:  1.0.0.0.Release',
                       files='ID-version.rss appinfo.xml'))),
    ('redirected', answers(redirect('/good')), found(), sent(0)),
    ('redirected to itself, for a day', answers(LOOP, DAY), check_fails()),
    ('redirected to itself, for fifteen days', answers(LOOP, 15 * DAY), not_delivered()),
    ('a server without HEAD', answers(web.whole(b'<rss/>'), head=NO_HEAD), check_fails(),
     not_delivered()),
    ('a server without ranges', answers(web.status('200 OK', 'Content-Length: 6', body=b'<rss/>')),
     check_fails()),
    ('a server without sizes', answers(web.status('200 OK', 'Accept-Ranges: bytes', body=b'ok')),
     not_delivered()),
    ('no HTTP at all, for a day', answers(b'SSH-2.0-none\r\n\r\n', DAY), check_fails()),
    ('a feed that is no XML', answers(web.whole(b'\xFF' * 3000)), check_fails(NOT_READ)),
    ('broken compressed data', answers(BROKEN_GZIP), in_test(check_fails(NOT_READ))),
    ('an error page with status 200', answers(ERROR_PAGE), check_fails(WRONG_ROOT + 'html'),
     sent(0), in_test(host_sees('failure', GIVES_UP, files='ID-version.rss appinfo.xml'))),
]

# Label, cause and outcome of each row of the proof.
ROWS = [(f'{name} ({outcome.route})', cause, outcome)
        for name, cause, *outcomes in FAULTS for outcome in outcomes]
