/* The update client that a desktop program loads.
 *
 * dllkupdate registers a program with a per-user updater, reports its usage, asks whether a newer
 * version of it is published, and starts that version's silent installation. The library opens no
 * connection and starts no thread: downloads and reports are jobs of the system's Background
 * Intelligent Transfer Service, whose end starts the program kupdate-exec.exe. Everything is per
 * user; nothing needs elevation.
 *
 * Order of calls
 *   1. DLLSetExecutorPath, if kupdate-exec.exe is not at its default place.
 *   2. DLLOnApplicationStartup, at each start of the program and before any other call that takes
 *      an application id: it registers the program and runs all that is due.
 *   3. All other functions, as the program needs them.
 *
 * Application ids
 *   Safe are one to 64 characters of [A-Za-z0-9._-], the first and the last a letter or digit, but no
 *   name of a device ("con", "nul", "com1", also before a dot). Keep to one spelling: the id is part
 *   of file names (where case does not matter) and of names of kernel objects (where it does).
 *   Other ids work too, within these limits:
 *   - It names a folder. None of \ / : * ? " < > | and no control character may stand in it, and
 *     Windows drops dots and blanks at its end.
 *   - It stands in command lines without quotes. For an id with a quote, with " --" in it or with
 *     "--" in front, no report, no check by the executor and no installation is started; the log
 *     says so.
 *   - It stands in the report's address as it is: one of & # % + changes the query.
 *   - Outside of ASCII, the name of its folder depends on the system's code page.
 *
 * Strings
 *   Zero-terminated UTF-8, or wide (UTF-16) where a parameter says wchar_t. The library copies what
 *   it keeps. Parameters and addresses are sent as they are: they must already be encoded for a
 *   query.
 *
 * Getters copy out: the caller passes a buffer and a pointer to its size, the ending zero included.
 *   When the value fits it is copied and the size left unchanged. When the buffer is null or too
 *   small, the size becomes the needed one, the value is not copied, and the result is KUPDATE_S_OK
 *   all the same: compare the size. The first character of a buffer that has room for one is set to
 *   zero before the value is looked up, so a buffer that is too small holds the empty text
 *   afterwards. A null size pointer: nothing happens.
 *
 * Results
 *   KUPDATE_S_OK or KUPDATE_E_FAIL, nothing else. KUPDATE_S_OK of a function that records something
 *   means that the call was carried out; the log says why a value was not recorded,
 *   "Krelix\Updater\kupdate-exec-<id>.log" in the roaming per-user folder, named after the first id
 *   that the process used. No exception leaves the library, and null pointers end no process.
 *
 * Threads and blocking
 *   Functions run on the caller's thread. Calls for one application are serialised over all
 *   processes of the user, so one of them may wait for another process's call to end; most take a
 *   few milliseconds. DLLIsUpgradeAvailable waits as long as the caller says, and other calls for
 *   that application wait meanwhile. DLLDownloadAndInstallSilentUpdate blocks until the installer
 *   is done and belongs on a worker thread. DLLIsUpdateAvailable and
 *   DLLDownloadAndInstallSilentUpdate share the state of one check: one call at a time. No function
 *   may be called from DllMain.
 *
 * Ordinals
 *   Fixed: the number in front of each function's description below.
 *
 * Calling convention
 *   cdecl, also where the compiler has another default. KUPDATE_CALL stands in each declaration and
 *   belongs into the types of pointers to these functions. 64-bit Windows has one convention only.
 *
 * Languages
 *   C from C89 on and C++ from C++98 on. include/dllkupdate.hpp has an interface for C++17.
 */
#ifndef DLLKUPDATE_H_
#define DLLKUPDATE_H_

#include <stdint.h>
#include <wchar.h>

/** Truth values have one byte, 0 or 1. No other value may be passed. */
#if defined(__cplusplus)
typedef bool kupdate_bool;
#elif defined(__STDC_VERSION__) && __STDC_VERSION__ >= 199901L
#include <stdbool.h>
typedef bool kupdate_bool;
#else
typedef unsigned char kupdate_bool;
#endif

/** The version of this header; the library has its own in its version resource. */
#define KUPDATE_VERSION_MAJOR 1
#define KUPDATE_VERSION_MINOR 0
#define KUPDATE_VERSION_PATCH 0
#define KUPDATE_VERSION_TEXT              \
  KUPDATE_TEXT_OF_(KUPDATE_VERSION_MAJOR) \
  "." KUPDATE_TEXT_OF_(KUPDATE_VERSION_MINOR) "." KUPDATE_TEXT_OF_(KUPDATE_VERSION_PATCH)
#define KUPDATE_TEXT_OF_(number) KUPDATE_AS_TEXT_(number)
#define KUPDATE_AS_TEXT_(number) #number

/** Define KUPDATE_NO_IMPORT before including this header when the program loads the library itself
 *  and links no import library. */
#if defined(_WIN32) && !defined(KUPDATE_NO_IMPORT)
#define KUPDATE_API __declspec(dllimport)
#else
#define KUPDATE_API
#endif

#if defined(_WIN32)
#define KUPDATE_CALL __cdecl
#elif defined(__GNUC__) && defined(__i386__)
#define KUPDATE_CALL __attribute__((__cdecl__))
#else
#define KUPDATE_CALL
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Sizes on which both sides of the boundary rely. */
#if defined(__cplusplus) && __cplusplus >= 201103L
static_assert(sizeof(kupdate_bool) == 1, "bool has one byte");
static_assert(sizeof(int32_t) == 4, "int32_t has four bytes");
#if defined(_WIN32)
static_assert(sizeof(wchar_t) == 2, "wide texts are UTF-16");
#endif
#elif defined(__STDC_VERSION__) && __STDC_VERSION__ >= 201112L
_Static_assert(sizeof(kupdate_bool) == 1, "bool has one byte");
_Static_assert(sizeof(int32_t) == 4, "int32_t has four bytes");
#if defined(_WIN32)
_Static_assert(sizeof(wchar_t) == 2, "wide texts are UTF-16");
#endif
#endif

typedef int32_t kupdate_status;
#define KUPDATE_S_OK 0
#define KUPDATE_E_FAIL (-2147467259) /* 0x80004005 */

/** The values that DLLIsUpdateAvailable delivers through its status pointer. */
enum kupdate_check_status {
  KUPDATE_IN_WORK = 0,   /**< the feed is still being downloaded; ask again in a while */
  KUPDATE_FOUND = 1,     /**< a newer version is published */
  KUPDATE_NO_UPDATE = 2, /**< the check is done and found no update */
  KUPDATE_JOB_FAILED = 3 /**< the download failed; "start" begins again */
};

/** @1 Makes the update check and the statistics report of the application due, and runs them. Each
 *  call queues a transfer job: not for use in a loop.
 *  app_id       not null
 *  need_dialog  whether the user asked for the check; kept for the executor */
KUPDATE_API kupdate_status KUPDATE_CALL DLLForceUpdateCheck(const char* app_id,
                                                            kupdate_bool need_dialog);

/** @2 Copies the last state that was reported: "install", "uninstall" or "dayuse".
 *  app_id  not null
 *  buffer, size  copy-out, size in bytes */
KUPDATE_API kupdate_status KUPDATE_CALL DLLGetApplicationState(const char* app_id, char* buffer,
                                                               int32_t* size);

/** @3 Copies the optional parameter that was reported last; without one, the empty text.
 *  app_id  not null
 *  buffer, size  copy-out, size in bytes */
KUPDATE_API kupdate_status KUPDATE_CALL DLLGetOptionalParam(const char* app_id, char* buffer,
                                                            int32_t* size);

/** @4 Runs a check by the executor and waits for its answer.
 *  app_id   not null
 *  wait_ms  how long to wait, in milliseconds; negative: without limit. Other calls for this
 *           application wait meanwhile, so keep it short or use DLLIsUpdateAvailable.
 *  result   receives whether a newer version was found; false when the time ran out; may be null */
KUPDATE_API kupdate_status KUPDATE_CALL DLLIsUpgradeAvailable(const char* app_id, int32_t wait_ms,
                                                              kupdate_bool* result);

/** @5 Registers the application as installed and running, then sends the report and starts the
 *  update check that are due. To be called at each start of the program.
 *  app_id       not null
 *  platform     compared exactly with the platforms of the feed's items, such as "win64"
 *  version_url  address of the feed; empty: no update checks
 *  report_url   address of the statistics; empty: no reports
 *  ping_period  seconds between reports; less than an hour counts as an hour
 *  ver_...      the running version; the low 16 bits are used
 *  release      true for a release build, false for a beta
 *  Null texts count as empty. */
KUPDATE_API kupdate_status KUPDATE_CALL DLLOnApplicationStartup(
    const char* app_id, const char* platform, const char* version_url, const char* report_url,
    int32_t ping_period, int32_t ver_major, int32_t ver_minor, int32_t ver_subver,
    int32_t ver_build, kupdate_bool release);

/** @6 Marks the application as removed: its last report is sent and no check is started any more.
 *  DLLOnApplicationStartup takes it back.
 *  app_id  not null */
KUPDATE_API kupdate_status KUPDATE_CALL DLLOnApplicationUninstall(const char* app_id);

/** @7 Reports a state of the application.
 *  app_id  not null
 *  state   "install", "uninstall" or "dayuse"; anything else is not recorded */
KUPDATE_API kupdate_status KUPDATE_CALL DLLSetApplicationState(const char* app_id,
                                                               const char* state);

/** @8 Names the executor for the rest of the process.
 *  path  full path; null: the default one, "Krelix\Updater\kupdate-exec.exe" in the roaming
 *        per-user folder. The path is also written into the record of each application that is
 *        worked on later.
 *  Returns KUPDATE_S_OK always. */
KUPDATE_API kupdate_status KUPDATE_CALL DLLSetExecutorPath(const wchar_t* path);

/** @9 Adds an optional parameter to the next report.
 *  app_id  not null
 *  value   a query item such as "toolbar=1", already encoded; null: nothing happens */
KUPDATE_API kupdate_status KUPDATE_CALL DLLSetOptionalParam(const char* app_id, const char* value);

/** @10 Reports a use of the application, then sends the report and starts the check that are due.
 *  app_id  not null
 *  value   an optional parameter, as for DLLSetOptionalParam; must not be null */
KUPDATE_API kupdate_status KUPDATE_CALL DLLUsageReport(const char* app_id, const char* value);

/** @11 Lets the executor download and install the update that the last DLLIsUpdateAvailable found.
 *  Waits for that without a time limit, but ends early when the executor dies. For a worker thread.
 *  exit_code  receives the installer's exit code; unchanged on failure; may be null
 *  Returns KUPDATE_E_FAIL when no update was found before, the executor could not be started, or it
 *  ended without an answer. */
KUPDATE_API kupdate_status KUPDATE_CALL DLLDownloadAndInstallSilentUpdate(int32_t* exit_code);

/** @12 Copies the application's locale; empty when none was set.
 *  app_id  not null
 *  buffer, size  copy-out, size in bytes */
KUPDATE_API kupdate_status KUPDATE_CALL DLLGetLocale(const char* app_id, char* buffer,
                                                     int32_t* size);

/** @13 The id that all of the user's applications share, with braces; "{none}" without an id.
 *  The library owns the text; it is valid until the next call of this function. Never null. */
KUPDATE_API const char* KUPDATE_CALL DLLGetUniqUserId(void);

/** @14 Copies a unique parameter of the next report; empty when it was not set.
 *  app_id  not null
 *  name    null: nothing happens
 *  buffer, size  copy-out, size in wide characters */
KUPDATE_API kupdate_status KUPDATE_CALL DLLGetUniqueParam(const char* app_id, const char* name,
                                                          wchar_t* buffer, int32_t* size);

/** @15 One step of a check that the program drives itself.
 *  app_id, platform, version_url  not null; recorded as by DLLOnApplicationStartup
 *  ver_...    the running version; the low 16 bits are used
 *  release    true for a release build, false for a beta
 *  operation  "start" queues the download of the feed; "check" asks how far it is and, once it has
 *             arrived, decides; "stop" gives it up. Not null.
 *  status     receives a kupdate_check_status on KUPDATE_S_OK and is left alone otherwise; may be
 *             null
 *  Returns KUPDATE_E_FAIL when the step could not be done: the transfer service refused, "check" or
 *  "stop" without a "start", a feed that cannot be read. After a failure "start" works again. A
 *  process has one check at a time: before one for another application, "stop" the one
 *  that runs. */
KUPDATE_API kupdate_status KUPDATE_CALL
DLLIsUpdateAvailable(const char* app_id, const char* platform, int32_t ver_major, int32_t ver_minor,
                     int32_t ver_subver, int32_t ver_build, kupdate_bool release,
                     const char* version_url, const char* operation, int32_t* status);

/** @16 Sets the application's locale, by which dialogs of an update are chosen.
 *  app_id  not null
 *  locale  null: nothing happens */
KUPDATE_API kupdate_status KUPDATE_CALL DLLSetLocale(const char* app_id, const char* locale);

/** @17 Sets a unique parameter of the next report: one value per name, a later one replaces it.
 *  app_id       not null
 *  name, value  the name is a query key, already encoded; null: nothing happens */
KUPDATE_API kupdate_status KUPDATE_CALL DLLSetUniqueParam(const char* app_id, const char* name,
                                                          const wchar_t* value);

#ifdef __cplusplus
}
#endif

#endif /* DLLKUPDATE_H_ */
