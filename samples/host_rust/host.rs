// A program that keeps itself up to date, in Rust without crates. docs/hosts.md has the command
// line, which all samples share.

use std::error::Error;
use std::ffi::CString;
use std::os::raw::{c_char, c_void};
use std::os::windows::ffi::OsStrExt;
use std::time::{Duration, Instant};
use std::{env, mem, path::Path, process, thread};

const DONE: i32 = 0;
const FAILED: i32 = 1;
const NO_UPDATE: i32 = 2;
const USAGE: i32 = 3;

const IN_WORK: i32 = 0;
const FOUND: i32 = 1;
const NOTHING_NEWER: i32 = 2;

const SECONDS_BETWEEN_REPORTS: i32 = 86_400;
const POLL: Duration = Duration::from_millis(200);

const HELP: &str = "usage: kupdate-host --id ID --version A.B.C.D --platform PLATFORM --feed URL
       [--report URL] [--executor PATH] [--wait SECONDS] [--check] [--install]
       [--uninstall]";

type Text = *const c_char;
type Result<T> = std::result::Result<T, Box<dyn Error + Send + Sync>>;

extern "system" {
    fn LoadLibraryW(path: *const u16) -> *mut c_void;
    fn GetProcAddress(module: *mut c_void, name: Text) -> *mut c_void;
}

/// The functions that this program calls. The library stays loaded until the process ends.
#[derive(Clone, Copy)]
struct Library {
    set_executor_path: unsafe extern "C" fn(*const u16) -> i32,
    startup: unsafe extern "C" fn(Text, Text, Text, Text, i32, i32, i32, i32, i32, bool) -> i32,
    uninstall: unsafe extern "C" fn(Text) -> i32,
    is_update_available:
        unsafe extern "C" fn(Text, Text, i32, i32, i32, i32, bool, Text, Text, *mut i32) -> i32,
    install: unsafe extern "C" fn(*mut i32) -> i32,
}

fn wide(path: &Path) -> Vec<u16> {
    path.as_os_str().encode_wide().chain([0]).collect()
}

/// The address of a function, or an error that names it.
fn find(module: *mut c_void, name: &str) -> Result<*mut c_void> {
    let found = unsafe { GetProcAddress(module, CString::new(name)?.as_ptr()) };
    if found.is_null() {
        return Err(format!("dllkupdate.dll has no {name}").into());
    }
    Ok(found)
}

impl Library {
    /// Takes the file beside the program, by its full path: the system would search for a bare
    /// name.
    fn load() -> Result<Library> {
        let path = env::current_exe()?.with_file_name("dllkupdate.dll");
        let module = unsafe { LoadLibraryW(wide(&path).as_ptr()) };
        if module.is_null() {
            let error = std::io::Error::last_os_error();
            return Err(format!("loading {}: {error}", path.display()).into());
        }
        // The types are those of dllkupdate.h.
        unsafe {
            Ok(Library {
                set_executor_path: mem::transmute(find(module, "DLLSetExecutorPath")?),
                startup: mem::transmute(find(module, "DLLOnApplicationStartup")?),
                uninstall: mem::transmute(find(module, "DLLOnApplicationUninstall")?),
                is_update_available: mem::transmute(find(module, "DLLIsUpdateAvailable")?),
                install: mem::transmute(find(module, "DLLDownloadAndInstallSilentUpdate")?),
            })
        }
    }
}

#[derive(Default)]
struct Options {
    id: CString,
    platform: CString,
    feed: CString,
    report: CString,
    executor: Option<String>,
    version: Option<[u16; 4]>,
    wait: Duration,
    check: bool,
    install: bool,
    uninstall: bool,
}

struct Host {
    library: Library,
    options: Options,
    version: [i32; 4],
}

impl Host {
    fn start(&self) -> Result<()> {
        let Options {
            id,
            platform,
            feed,
            report,
            ..
        } = &self.options;
        let [major, minor, subver, build] = self.version;
        let status = unsafe {
            (self.library.startup)(
                id.as_ptr(),
                platform.as_ptr(),
                feed.as_ptr(),
                report.as_ptr(),
                SECONDS_BETWEEN_REPORTS,
                major,
                minor,
                subver,
                build,
                true,
            )
        };
        succeeded(status, "registering")
    }

    /// Returns the status that the library delivers.
    fn step(&self, operation: &str, failure: &str) -> Result<i32> {
        let Options {
            id, platform, feed, ..
        } = &self.options;
        let [major, minor, subver, build] = self.version;
        let operation = CString::new(operation)?;
        let mut status = IN_WORK;
        let result = unsafe {
            (self.library.is_update_available)(
                id.as_ptr(),
                platform.as_ptr(),
                major,
                minor,
                subver,
                build,
                true,
                feed.as_ptr(),
                operation.as_ptr(),
                &mut status,
            )
        };
        succeeded(result, failure).map(|()| status)
    }

    /// Returns whether there is an update. Ends after a while by itself: the job waits as long as
    /// the server is away.
    fn check(&self) -> Result<bool> {
        self.step("start", "starting the check")?;
        println!("check started");
        let begin = Instant::now();
        loop {
            match self.step("check", "reading the feed")? {
                IN_WORK => println!("poll: in work"),
                FOUND => {
                    println!("poll: update found");
                    return Ok(true);
                }
                NOTHING_NEWER => {
                    println!("poll: no update");
                    return Ok(false);
                }
                _ => {
                    println!("poll: job failed");
                    return Err("downloading the feed".into());
                }
            }
            if begin.elapsed() >= self.options.wait {
                self.step("stop", "stopping the check")?;
                return Err("waiting for the feed: it took too long".into());
            }
            thread::sleep(POLL);
        }
    }

    /// The call blocks until the installer has ended, so it runs on a thread of its own.
    fn install(&self) -> Result<()> {
        let install = self.library.install;
        let worker = thread::spawn(move || {
            let mut exit_code = 0;
            (unsafe { install(&mut exit_code) }, exit_code)
        });
        println!("silent installation started");
        let (status, exit_code) = worker.join().map_err(|_| "the silent installation")?;
        succeeded(status, "the silent installation")?;
        println!("installer exit code {exit_code}");
        Ok(())
    }

    fn run(&self) -> Result<i32> {
        let options = &self.options;
        if let Some(executor) = &options.executor {
            unsafe { (self.library.set_executor_path)(wide(Path::new(executor)).as_ptr()) };
        }
        self.start()?;
        let [major, minor, subver, build] = self.version;
        let id = options.id.to_string_lossy();
        println!("registered as {id}, version {major}.{minor}.{subver}.{build}");
        if options.check && !self.check()? {
            return Ok(NO_UPDATE);
        }
        if options.install {
            self.install()?;
        }
        if options.uninstall {
            let status = unsafe { (self.library.uninstall)(options.id.as_ptr()) };
            succeeded(status, "reporting the removal")?;
            println!("removal reported");
        }
        Ok(DONE)
    }
}

fn succeeded(status: i32, failure: &str) -> Result<()> {
    if status == 0 {
        Ok(())
    } else {
        Err(failure.into())
    }
}

fn parse_version(text: &str) -> Option<[u16; 4]> {
    let parts: Option<Vec<u16>> = text.split('.').map(|part| part.parse().ok()).collect();
    parts?.try_into().ok()
}

fn parse(arguments: impl Iterator<Item = String>) -> Option<Options> {
    let mut options = Options {
        wait: Duration::from_secs(60),
        ..Options::default()
    };
    let mut arguments = arguments;
    while let Some(name) = arguments.next() {
        match name.as_str() {
            "--check" => options.check = true,
            "--install" => options.install = true,
            "--uninstall" => options.uninstall = true,
            "--id" => options.id = CString::new(arguments.next()?).ok()?,
            "--platform" => options.platform = CString::new(arguments.next()?).ok()?,
            "--feed" => options.feed = CString::new(arguments.next()?).ok()?,
            "--report" => options.report = CString::new(arguments.next()?).ok()?,
            "--executor" => options.executor = Some(arguments.next()?),
            "--version" => options.version = parse_version(&arguments.next()?),
            "--wait" => options.wait = Duration::from_secs(arguments.next()?.parse().ok()?),
            _ => return None,
        }
    }
    options.check |= options.install;
    let complete = [&options.id, &options.platform, &options.feed]
        .iter()
        .all(|t| !t.to_bytes().is_empty());
    if complete {
        Some(options)
    } else {
        None
    }
}

fn main() {
    let options = parse(env::args().skip(1));
    let version = options.as_ref().and_then(|options| options.version);
    let (options, version) = match (options, version) {
        (Some(options), Some(version)) => (options, version.map(i32::from)),
        _ => {
            println!("{HELP}");
            process::exit(USAGE);
        }
    };
    let library = Library::load().unwrap_or_else(|error| {
        println!("failed: {error}");
        process::exit(FAILED);
    });
    let host = Host {
        library,
        options,
        version,
    };
    process::exit(host.run().unwrap_or_else(|error| {
        let id = host.options.id.to_string_lossy();
        println!("failed: {error}\n  see %APPDATA%\\Krelix\\Updater\\kupdate-exec-{id}.log");
        FAILED
    }));
}
