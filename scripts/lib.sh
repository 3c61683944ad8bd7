# Functions that the commands of this project share. For bash to source; sets strict mode.
# shellcheck shell=bash
set -euo pipefail

ROOT=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
BUILD=$ROOT/build
LOGS=$BUILD/logs
mkdir -p "$LOGS"

say() { printf '%s\n' "$*"; }
die() {
  printf '%s\n' "$*" >&2
  exit 1
}

# A script ends all that it has started, the last first, also after a failure. at_exit takes the commands for it.
CLEANUPS=()
at_exit() { CLEANUPS+=("$*"); }
run_cleanups() {
  local i
  for ((i = ${#CLEANUPS[@]} - 1; i >= 0; --i)); do eval "${CLEANUPS[i]}" || true; done
}
trap run_cleanups EXIT
trap 'exit 130' INT TERM
# Subshells do not inherit the trap. A subshell that starts something calls this first.
own_cleanups() {
  CLEANUPS=()
  trap run_cleanups EXIT
}

# A path of this machine as Windows programs under Wine see it.
windows_path() { printf 'Z:%s' "${1//\//\\}"; }

# --- building ---

# build PRESET TARGET...: configures and builds; shows the output only after a failure. A second build of the same
# preset waits for the first.
build() {
  local preset=$1 log=$LOGS/build-$1.log
  shift
  {
    flock 9
    cmake --preset "$preset" -DKUPDATE_WERROR=ON &&
      cmake --build --preset "$preset" --target "$@"
  } >"$log" 2>&1 </dev/null 9>"$BUILD/$preset.lock" || {
    tail -n 60 "$log" >&2
    die "failed: building $preset (whole output: $log)"
  }
}

# The publisher of the demo and the tests. The key is made once and stays in the build folder.
PUBLISHER_KEY=$BUILD/keys/publisher.pem
EXECUTOR=$BUILD/trusting/kupdate-exec.exe

# trusting_executor: makes EXECUTOR, the built executor as that publisher ships it: with his public key.
trusting_executor() {
  local public=$BUILD/keys/publisher.pub.pem
  build native kupdate
  mkdir -p "$BUILD/keys" "$BUILD/trusting"
  {
    [[ -e $public ]] || {
      openssl ecparam -name prime256v1 -genkey -noout -out "$PUBLISHER_KEY" &&
        openssl ec -in "$PUBLISHER_KEY" -pubout -out "$public"
    }
    cp "$BUILD/win64/src/executor/kupdate-exec.exe" "$EXECUTOR" &&
      "$BUILD/native/tools/kupdate/kupdate" trust set "$EXECUTOR" --key "$public" \
        --publisher "TEST BUILD, do not ship: its private key lies in a build folder"
  } >"$LOGS/trust.log" 2>&1 </dev/null || die "failed: setting the trust (see $LOGS/trust.log)"
}

# --- Wine ---

use_wine() {
  # Wine 10 aborts when TMPDIR is set.
  unset DISPLAY WAYLAND_DISPLAY TMPDIR
  export WINEDEBUG=-all
  export WINEDLLOVERRIDES="mscoree,mshtml=;winemenubuilder.exe=;winedbg.exe="
  # A prefix links its Documents, Desktop and the like to $HOME.
  export HOME=$BUILD/wine/home
  mkdir -p "$HOME"
}

# keep_socket PREFIX FOLDER: Debian's Wine makes a folder in /tmp for the sockets of its servers and never removes
# it. A file of the prefix names the folder. This function makes it name FOLDER.
keep_socket() {
  mkdir -p -m 700 "$2"
  rm -f "$1/wineserver"
  printf '..%s' "$2" >"$1/wineserver"
  chmod 400 "$1/wineserver"
}

# Ends the server of a prefix and waits until it has saved its registry.
stop_wine() {
  [[ -d $1 ]] || return 0
  WINEPREFIX=$1 wineserver -k >/dev/null 2>&1 || return 0
  WINEPREFIX=$1 wineserver -w
}

# A prefix takes seconds to make and 700 MB; each use gets a copy whose system files are hard links.
make_template() {
  local template=$BUILD/wine/template
  [[ -e $template/complete ]] && return
  say "  making a Wine prefix (once)"
  rm -rf "$template"
  mkdir -p "$template"
  keep_socket "$template" "$BUILD/wine/sockets"
  WINEPREFIX=$template wineboot -i >"$LOGS/wineboot.log" 2>&1 </dev/null ||
    die "failed: wineboot (see $LOGS/wineboot.log)"
  stop_wine "$template"
  touch "$template/complete"
}

# start_prefix NAME [USER]: a fresh private prefix build/wine/NAME with a running server, for a Windows user
# of that name. From then on `wine` works in it.
start_prefix() {
  local prefix=$BUILD/wine/$1 user=${2:-tester} template=$BUILD/wine/template folder
  use_wine
  make_template
  stop_wine "$prefix"
  rm -rf "$prefix"
  cp -al "$template" "$prefix"
  # Not as links: Wine writes its registry in place when the file has several links, and programs write into the
  # users' folders.
  rm -rf "$prefix"/*.reg "$prefix/drive_c/users"
  cp -a "$template"/*.reg "$prefix/"
  keep_socket "$prefix" "$BUILD/wine/sockets"
  cp -a "$template/drive_c/users" "$prefix/drive_c/"
  for folder in Roaming Local/Temp LocalLow; do
    mkdir -p "$prefix/drive_c/users/$user/AppData/$folder"
  done
  export WINEPREFIX=$prefix USER=$user
  at_exit "stop_wine '$prefix'"
  wineserver -p </dev/null >/dev/null 2>&1
  # The first process starts services that keep its output open; a pipe would never end.
  wine cmd /c exit </dev/null >/dev/null 2>&1 || die "failed: Wine does not run in $prefix"
}

# register_standin FOLDER: makes the stand-in the prefix's transfer service, with its files in FOLDER. On a busy
# machine Wine may not be ready at the first try; its output stays in the log.
register_standin() {
  local log try
  log=$LOGS/register-$(basename "$WINEPREFIX").log
  mkdir -p "$1"
  rm -f "$1/journal.jsonl" "$1/control.txt" "$log"
  for try in 1 2; do
    wine "$BUILD/win64/standin/kupdate-standin.exe" --register "$(windows_path "$1")" \
      </dev/null >>"$log" 2>&1 && return
    say "exit code $? of try $try" >>"$log"
  done
  cat "$log" >&2
  die "failed: registering the stand-in (see $log)"
}

# --- web server ---

# start_web_server NAME FOLDER [KEYS]: serves FOLDER on a free port of 127.0.0.1, with KEYS also by https for
# localhost. The server's own files are under build/web/NAME. Sets WEB_URL, WEB_HTTPS and WEB_ACCESS_LOG.
start_web_server() {
  local home=$BUILD/web/$1 folder=$2 keys=${3:-} port try
  mkdir -p "$home" "$folder"
  rm -f "$home"/*.log "$home/pid"
  for try in 1 2 3 4 5 6 7 8 9 10; do
    port=$((20000 + RANDOM % 20000))
    "$ROOT/scripts/web-server" "$home" "$folder" "$port" "$keys" >"$home/nginx.conf"
    # Another program may have the port: then the server does not start, and another port is tried.
    if run_web_server "$home"; then
      at_exit "stop_web_server '$home'"
      WEB_URL=http://127.0.0.1:$port
      WEB_HTTPS=https://localhost:$((port + 1))
      WEB_ACCESS_LOG=$home/access.log
      export WEB_URL WEB_HTTPS WEB_ACCESS_LOG
      return
    fi
  done
  die "failed: the web server does not start (try $try; see $home/start.log)"
}

# Starts a web server that was configured before, on its former port. By its path, since a normal user's PATH
# lacks its folder.
run_web_server() {
  /usr/sbin/nginx -c "$1/nginx.conf" -e "$1/error.log" >"$1/start.log" 2>&1 </dev/null
}

# Waits for the end of the server: then its port is free, and its log complete.
stop_web_server() {
  local pid
  pid=$(cat "$1/pid" 2>/dev/null) || return 0
  kill "$pid" 2>/dev/null || return 0
  while kill -0 "$pid" 2>/dev/null; do sleep 0.05; done
}

# --- the stage of a Windows test ---

# start_stage NAME [USER [KEYS]]: a fresh prefix for a user of that name, with a web server and a registered stand-in
# of its own. Programs find their settings, and the paths of the built files, in the environment.
start_stage() {
  start_prefix "$1" "${2:-tester}"
  start_web_server "$1" "$BUILD/web/$1/www" "${3:-}"
  register_standin "$BUILD/standin/$1"
  at_exit "wine '$BUILD/win64/standin/kupdate-standin.exe' --stop </dev/null >/dev/null 2>&1"
  KUPDATE_STANDIN_FOLDER=$(windows_path "$BUILD/standin/$1")
  KUPDATE_WWW=$(windows_path "$BUILD/web/$1/www")
  KUPDATE_ACCESS_LOG=$(windows_path "$WEB_ACCESS_LOG")
  KUPDATE_DLL=$(windows_path "$BUILD/win64/src/api/dllkupdate.dll")
  KUPDATE_EXEC=$(windows_path "$EXECUTOR")
  KUPDATE_TEST_KEY=$(windows_path "$BUILD/keys/tests")
  KUPDATE_TEST_INSTALLER=$(windows_path "$BUILD/win64/testing/installer/test_installer.exe")
  export KUPDATE_STANDIN_FOLDER KUPDATE_WWW KUPDATE_ACCESS_LOG KUPDATE_DLL KUPDATE_EXEC KUPDATE_TEST_KEY
  export KUPDATE_TEST_INSTALLER KUPDATE_HTTP=$WEB_URL KUPDATE_HTTPS=$WEB_HTTPS KUPDATE_TEST_PREFIX=1
}
