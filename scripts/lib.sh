# What the commands of this project share. To be sourced by bash; sets strict mode.
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

# What is started here is ended here, in the opposite order, however the script ends.
CLEANUPS=()
at_exit() { CLEANUPS+=("$*"); }
run_cleanups() {
  local i
  for ((i = ${#CLEANUPS[@]} - 1; i >= 0; --i)); do eval "${CLEANUPS[i]}" || true; done
}
trap run_cleanups EXIT
trap 'exit 130' INT TERM
# Subshells do not inherit that; each that starts something calls this first.
own_cleanups() {
  CLEANUPS=()
  trap run_cleanups EXIT
}

# A path of this machine as Windows programs under Wine see it.
windows_path() { printf 'Z:%s' "${1//\//\\}"; }

# --- building ---

# The publisher of the demo and the tests: the executor that is built here trusts no other.
PUBLISHER_KEY=$BUILD/keys/publisher.pem
make_publisher_key() {
  [[ -e $BUILD/keys/publisher.pub.pem ]] && return
  mkdir -p "$BUILD/keys"
  openssl ecparam -name prime256v1 -genkey -noout -out "$PUBLISHER_KEY" 2>"$LOGS/keys.log" &&
    openssl ec -in "$PUBLISHER_KEY" -pubout -out "$BUILD/keys/publisher.pub.pem" 2>>"$LOGS/keys.log" ||
    die "failed: making a key (see $LOGS/keys.log)"
}

# build PRESET TARGET...: configures and builds; the output is shown only when it fails. Whoever builds the same
# preset meanwhile waits.
build() {
  local preset=$1 log=$LOGS/build-$1.log
  shift
  make_publisher_key
  {
    flock 9
    cmake --preset "$preset" -DKUPDATE_WERROR=ON &&
      cmake --build --preset "$preset" --target "$@"
  } >"$log" 2>&1 </dev/null 9>"$BUILD/$preset.lock" || {
    tail -n 60 "$log" >&2
    die "failed: building $preset (whole output: $log)"
  }
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
# it. The prefix holds the folder's name, which may lead to another place.
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
  # Wine writes its registry in place when the file has several links, and user folders are written to.
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

# register_standin FOLDER: makes the stand-in transfer service the prefix's own, with its files in FOLDER. On a
# busy machine Wine may not be ready for it the first time; what it said then stays in the log.
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

# start_web_server NAME FOLDER [KEYS]: serves FOLDER on a free port of 127.0.0.1 with everything of its own
# under build/web/NAME; with KEYS also by https, for localhost. Sets WEB_URL, WEB_HTTPS and WEB_ACCESS_LOG.
start_web_server() {
  local home=$BUILD/web/$1 folder=$2 keys=${3:-} port try
  mkdir -p "$home" "$folder"
  rm -f "$home"/*.log "$home/pid"
  for try in 1 2 3 4 5 6 7 8 9 10; do
    port=$((20000 + RANDOM % 20000))
    "$ROOT/scripts/web-server" "$home" "$folder" "$port" "$keys" >"$home/nginx.conf"
    # By its path: only root's PATH has that folder.
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

# Starts a web server that was configured before, on the port that it had.
# A normal user's PATH lacks the server's folder.
run_web_server() {
  /usr/sbin/nginx -c "$1/nginx.conf" -e "$1/error.log" >"$1/start.log" 2>&1 </dev/null
}

stop_web_server() {
  local pid
  pid=$(cat "$1/pid" 2>/dev/null) || return 0
  kill "$pid" 2>/dev/null || return 0
  while kill -0 "$pid" 2>/dev/null; do sleep 0.05; done
}

# --- the stage of a Windows test ---

# start_stage NAME [USER [KEYS]]: a fresh prefix for a user of that name, with a web server and a registered stand-in
# of its own. Their settings, and the built files, are in the environment of the programs that run there.
start_stage() {
  start_prefix "$1" "${2:-tester}"
  start_web_server "$1" "$BUILD/web/$1/www" "${3:-}"
  register_standin "$BUILD/standin/$1"
  at_exit "wine '$BUILD/win64/standin/kupdate-standin.exe' --stop </dev/null >/dev/null 2>&1"
  KUPDATE_STANDIN_FOLDER=$(windows_path "$BUILD/standin/$1")
  KUPDATE_WWW=$(windows_path "$BUILD/web/$1/www")
  KUPDATE_ACCESS_LOG=$(windows_path "$WEB_ACCESS_LOG")
  KUPDATE_DLL=$(windows_path "$BUILD/win64/src/api/dllkupdate.dll")
  KUPDATE_EXEC=$(windows_path "$BUILD/win64/src/executor/kupdate-exec.exe")
  KUPDATE_TEST_KEY=$(windows_path "$BUILD/keys/tests")
  KUPDATE_TEST_INSTALLER=$(windows_path "$BUILD/win64/testing/installer/test_installer.exe")
  export KUPDATE_STANDIN_FOLDER KUPDATE_WWW KUPDATE_ACCESS_LOG KUPDATE_DLL KUPDATE_EXEC KUPDATE_TEST_KEY
  export KUPDATE_TEST_INSTALLER KUPDATE_HTTP=$WEB_URL KUPDATE_HTTPS=$WEB_HTTPS KUPDATE_TEST_PREFIX=1
}
