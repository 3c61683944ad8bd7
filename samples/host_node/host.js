// A program that keeps itself up to date, in Node.js with the package koffi. docs/hosts.md has the command line,
// which all samples share.
'use strict';

const fs = require('fs');
const path = require('path');
const { promisify } = require('util');
const koffi = require('koffi');

const DONE = 0, FAILED = 1, NO_UPDATE = 2, USAGE = 3;

const IN_WORK = 0, FOUND = 1, NOTHING_NEWER = 2;

const SECONDS_BETWEEN_REPORTS = 86400;
const POLL_MILLISECONDS = 200;

const HELP = `usage: kupdate-host --id ID --version A.B.C.D --platform PLATFORM --feed URL
       [--report URL] [--executor PATH] [--wait SECONDS] [--check] [--install]
       [--uninstall]`;

// Directly to the descriptor: each line is out at once, whatever standard output is.
const print = (line) => fs.writeSync(1, line + '\n');
const sleep = promisify(setTimeout);

class NoUpdate extends Error {}

// The functions that this program calls, from the file beside it. The path is a full one, since the system would
// search for a bare name. Texts are UTF-8 for `str` and UTF-16 for `str16`.
function loadLibrary() {
  const dll = koffi.load(path.join(__dirname, 'dllkupdate.dll'));
  return {
    setExecutorPath: dll.func('int32_t DLLSetExecutorPath(str16 path)'),
    startup: dll.func(
        'int32_t DLLOnApplicationStartup(str id, str platform, str feed, str report, int32_t period, ' +
        'int32_t major, int32_t minor, int32_t subver, int32_t build, bool release)'),
    uninstall: dll.func('int32_t DLLOnApplicationUninstall(str id)'),
    isUpdateAvailable: dll.func(
        'int32_t DLLIsUpdateAvailable(str id, str platform, int32_t major, int32_t minor, int32_t subver, ' +
        'int32_t build, bool release, str feed, str operation, _Out_ int32_t* status)'),
    install: dll.func('int32_t DLLDownloadAndInstallSilentUpdate(_Out_ int32_t* exitCode)'),
  };
}

function expect(status, failure) {
  if (status !== 0) throw new Error(failure);
}

function start(library, options) {
  const { id, platform, feed, report, version } = options;
  expect(library.startup(id, platform, feed, report, SECONDS_BETWEEN_REPORTS, ...version, true), 'registering');
  print(`registered as ${id}, version ${version.join('.')}`);
}

function step(library, options, operation, failure) {
  const status = [IN_WORK];
  const { id, platform, feed, version } = options;
  expect(library.isUpdateAvailable(id, platform, ...version, true, feed, operation, status), failure);
  return status[0];
}

// Ends after a while by itself: the job waits as long as the server is away.
async function check(library, options) {
  step(library, options, 'start', 'starting the check');
  print('check started');
  const end = Date.now() + options.wait * 1000;
  for (;;) {
    switch (step(library, options, 'check', 'reading the feed')) {
      case IN_WORK:
        print('poll: in work');
        break;
      case FOUND:
        print('poll: update found');
        return;
      case NOTHING_NEWER:
        print('poll: no update');
        throw new NoUpdate();
      default:
        print('poll: job failed');
        throw new Error('downloading the feed');
    }
    if (Date.now() >= end) {
      step(library, options, 'stop', 'stopping the check');
      throw new Error('waiting for the feed: it took too long');
    }
    await sleep(POLL_MILLISECONDS);
  }
}

// The call blocks until the installer has ended. koffi runs it on a thread of its own, and events go on meanwhile.
async function install(library) {
  const exitCode = [0];
  const done = promisify(library.install.async)(exitCode);
  print('silent installation started');
  expect(await done, 'the silent installation');
  print(`installer exit code ${exitCode[0]}`);
}

async function run(library, options) {
  if (options.executor) library.setExecutorPath(options.executor);
  start(library, options);
  if (options.check) await check(library, options);
  if (options.install) await install(library);
  if (options.uninstall) {
    expect(library.uninstall(options.id), 'reporting the removal');
    print('removal reported');
  }
}

function parseVersion(text) {
  const version = text.split('.').map((part) => /^\d+$/.test(part) ? Number(part) : NaN);
  return version.length === 4 && version.every((number) => number <= 0xFFFF) ? version : null;
}

// Returns null for wrong usage.
function parse(words) {
  const options = { id: '', platform: '', feed: '', report: '', executor: '', version: '', wait: '60' };
  const flags = ['check', 'install', 'uninstall'];
  for (let i = 0; i < words.length; ++i) {
    const name = words[i].replace(/^--/, '');
    if (!words[i].startsWith('--')) return null;
    if (flags.includes(name)) {
      options[name] = true;
    } else if (Object.hasOwn(options, name) && i + 1 < words.length) {
      options[name] = words[++i];
    } else {
      return null;
    }
  }
  options.check = options.check || options.install;
  options.version = parseVersion(options.version);
  options.wait = Number(options.wait);
  const complete = options.id && options.platform && options.feed && options.version;
  return complete && options.wait >= 0 ? options : null;
}

async function main() {
  const options = parse(process.argv.slice(2));
  if (!options) {
    print(HELP);
    return USAGE;
  }
  let library;
  try {
    library = loadLibrary();
  } catch (error) {
    print(`failed: ${error.message}`);
    return FAILED;
  }
  try {
    await run(library, options);
    return DONE;
  } catch (error) {
    if (error instanceof NoUpdate) return NO_UPDATE;
    print(`failed: ${error.message}\n  see %APPDATA%\\Krelix\\Updater\\kupdate-exec-${options.id}.log`);
    return FAILED;
  }
}

main().then((code) => process.exit(code));
