// A program that keeps itself up to date, in Go without cgo. docs/hosts.md has the command line,
// which all samples share.
package main

import (
	"errors"
	"fmt"
	"os"
	"path/filepath"
	"strconv"
	"strings"
	"syscall"
	"time"
	"unsafe"
)

const (
	exitDone     = 0
	exitFailed   = 1
	exitNoUpdate = 2
	exitUsage    = 3
)

const (
	statusInWork   = 0
	statusFound    = 1
	statusNoUpdate = 2
)

const (
	reportPeriod = 24 * time.Hour
	pollPeriod   = 200 * time.Millisecond
)

const usage = `usage: kupdate-host --id ID --version A.B.C.D --platform PLATFORM --feed URL
       [--report URL] [--executor PATH] [--wait SECONDS] [--check] [--install]
       [--uninstall]`

var errNoUpdate = errors.New("no update")

type options struct {
	id, platform, feed, report, executor string
	version                              [4]uint16
	wait                                 time.Duration
	check, install, uninstall            bool
}

// library has the functions that this program calls. It stays loaded until the process ends.
type library struct {
	setExecutorPath, onApplicationStartup, onApplicationUninstall *syscall.Proc
	isUpdateAvailable, downloadAndInstallSilentUpdate             *syscall.Proc
}

// loadLibrary takes the file beside the program, by its full path: the system would search for a
// bare name.
func loadLibrary() (*library, error) {
	program, err := os.Executable()
	if err != nil {
		return nil, err
	}
	dll, err := syscall.LoadDLL(filepath.Join(filepath.Dir(program), "dllkupdate.dll"))
	if err != nil {
		return nil, err
	}
	lib := &library{}
	for name, proc := range map[string]**syscall.Proc{
		"DLLSetExecutorPath":                &lib.setExecutorPath,
		"DLLOnApplicationStartup":           &lib.onApplicationStartup,
		"DLLOnApplicationUninstall":         &lib.onApplicationUninstall,
		"DLLIsUpdateAvailable":              &lib.isUpdateAvailable,
		"DLLDownloadAndInstallSilentUpdate": &lib.downloadAndInstallSilentUpdate,
	} {
		if *proc, err = dll.FindProc(name); err != nil {
			return nil, err
		}
	}
	return lib, nil
}

// text gives a zero-terminated UTF-8 text. A command line holds no zero, so there is no error. The
// conversion to uintptr must stand in the call itself: only there the garbage collector knows of
// the text.
func text(s string) unsafe.Pointer {
	p, _ := syscall.BytePtrFromString(s)
	return unsafe.Pointer(p)
}

// succeeded judges a kupdate_status. It has 32 bits; the upper half of the register means nothing.
func succeeded(result, _ uintptr, _ error) bool { return int32(result) == 0 }

func (lib *library) start(o *options) error {
	v := o.version
	if !succeeded(lib.onApplicationStartup.Call(uintptr(text(o.id)), uintptr(text(o.platform)),
		uintptr(text(o.feed)), uintptr(text(o.report)), uintptr(reportPeriod/time.Second),
		uintptr(v[0]), uintptr(v[1]), uintptr(v[2]), uintptr(v[3]), 1)) {
		return errors.New("registering")
	}
	return nil
}

func (lib *library) step(o *options, operation string, status *int32) bool {
	v := o.version
	return succeeded(lib.isUpdateAvailable.Call(uintptr(text(o.id)), uintptr(text(o.platform)),
		uintptr(v[0]), uintptr(v[1]), uintptr(v[2]), uintptr(v[3]), 1,
		uintptr(text(o.feed)), uintptr(text(operation)), uintptr(unsafe.Pointer(status))))
}

// checkForUpdate ends after a while by itself: the job waits as long as the server is away.
func (lib *library) checkForUpdate(o *options) error {
	var status int32
	if !lib.step(o, "start", &status) {
		return errors.New("starting the check")
	}
	fmt.Println("check started")
	for end := time.Now().Add(o.wait); ; time.Sleep(pollPeriod) {
		if !lib.step(o, "check", &status) {
			return errors.New("reading the feed")
		}
		switch status {
		case statusInWork:
			fmt.Println("poll: in work")
		case statusFound:
			fmt.Println("poll: update found")
			return nil
		case statusNoUpdate:
			fmt.Println("poll: no update")
			return errNoUpdate
		default:
			fmt.Println("poll: job failed")
			return errors.New("downloading the feed")
		}
		if time.Now().After(end) {
			lib.step(o, "stop", nil)
			return errors.New("waiting for the feed: it took too long")
		}
	}
}

// installUpdate runs the call on a goroutine, whose thread is blocked until the installer has
// ended.
func (lib *library) installUpdate() error {
	type outcome struct {
		answered bool
		exitCode int32
	}
	done := make(chan outcome)
	go func() {
		var result outcome
		result.answered = succeeded(lib.downloadAndInstallSilentUpdate.Call(
			uintptr(unsafe.Pointer(&result.exitCode))))
		done <- result
	}()
	fmt.Println("silent installation started")
	result := <-done
	if !result.answered {
		return errors.New("the silent installation")
	}
	fmt.Println("installer exit code", result.exitCode)
	return nil
}

func run(lib *library, o *options) error {
	if o.executor != "" {
		path, err := syscall.UTF16PtrFromString(o.executor)
		if err != nil {
			return err
		}
		lib.setExecutorPath.Call(uintptr(unsafe.Pointer(path)))
	}
	if err := lib.start(o); err != nil {
		return err
	}
	v := o.version
	fmt.Printf("registered as %s, version %d.%d.%d.%d\n", o.id, v[0], v[1], v[2], v[3])
	if o.check {
		if err := lib.checkForUpdate(o); err != nil {
			return err
		}
	}
	if o.install {
		if err := lib.installUpdate(); err != nil {
			return err
		}
	}
	if o.uninstall {
		if !succeeded(lib.onApplicationUninstall.Call(uintptr(text(o.id)))) {
			return errors.New("reporting the removal")
		}
		fmt.Println("removal reported")
	}
	return nil
}

func parseVersion(text string) (version [4]uint16, ok bool) {
	parts := strings.Split(text, ".")
	if len(parts) != len(version) {
		return version, false
	}
	for i, part := range parts {
		number, err := strconv.ParseUint(part, 10, 16)
		if err != nil {
			return version, false
		}
		version[i] = uint16(number)
	}
	return version, true
}

func parse(arguments []string) (*options, bool) {
	o := &options{wait: time.Minute}
	flags := map[string]*bool{"--check": &o.check, "--install": &o.install, "--uninstall": &o.uninstall}
	texts := map[string]*string{"--id": &o.id, "--platform": &o.platform, "--feed": &o.feed,
		"--report": &o.report, "--executor": &o.executor}
	hasVersion := false
	for i := 0; i < len(arguments); i++ {
		name := arguments[i]
		if flag := flags[name]; flag != nil {
			*flag = true
			continue
		}
		if i++; i == len(arguments) {
			return nil, false
		}
		value := arguments[i]
		switch {
		case texts[name] != nil:
			*texts[name] = value
		case name == "--version":
			o.version, hasVersion = parseVersion(value)
		case name == "--wait":
			seconds, err := strconv.Atoi(value)
			if err != nil {
				return nil, false
			}
			o.wait = time.Duration(seconds) * time.Second
		default:
			return nil, false
		}
	}
	o.check = o.check || o.install
	return o, hasVersion && o.id != "" && o.platform != "" && o.feed != ""
}

func main() {
	o, ok := parse(os.Args[1:])
	if !ok {
		fmt.Println(usage)
		os.Exit(exitUsage)
	}
	lib, err := loadLibrary()
	if err != nil {
		fmt.Println("failed:", err)
		os.Exit(exitFailed)
	}
	switch err := run(lib, o); err {
	case nil:
		os.Exit(exitDone)
	case errNoUpdate:
		os.Exit(exitNoUpdate)
	default:
		fmt.Printf("failed: %v\n  see %%APPDATA%%\\Krelix\\Updater\\kupdate-exec-%s.log\n", err, o.id)
		os.Exit(exitFailed)
	}
}
