# What the proofs of kills and crowds share. To be sourced behind lib.sh.
# shellcheck shell=bash

# storm NAME SEED "PROOF AMOUNT"...: one after the other, in a prefix with a service and a web server of its own.
storm() (
  own_cleanups
  local name=$1 seed=$2 code=0 proof
  shift 2
  build win64 storm >&2
  start_prefix "$name" >&2
  start_web_server "$name" "$BUILD/web/$name/www"
  register_standin "$BUILD/standin/$name"
  KUPDATE_STANDIN_FOLDER=$(windows_path "$BUILD/standin/$name")
  KUPDATE_WWW=$(windows_path "$BUILD/web/$name/www")
  KUPDATE_ACCESS_LOG=$(windows_path "$WEB_ACCESS_LOG")
  KUPDATE_DLL=$(windows_path "$BUILD/win64/src/api/dllkupdate.dll")
  KUPDATE_EXEC=$(windows_path "$BUILD/win64/src/executor/kupdate-exec.exe")
  export KUPDATE_STANDIN_FOLDER KUPDATE_WWW KUPDATE_ACCESS_LOG KUPDATE_DLL KUPDATE_EXEC
  export KUPDATE_HTTP=$WEB_URL KUPDATE_TEST_PREFIX=1
  say "  seed $seed" >&2
  for proof in "$@"; do
    # shellcheck disable=SC2086 # two words
    wine "$BUILD/win64/proof/storm.exe" $proof "$seed" </dev/null || code=1
  done
  wine "$BUILD/win64/standin/kupdate-standin.exe" --stop </dev/null >/dev/null 2>&1 || true
  exit "$code"
)

random_seed() { say $((RANDOM * 32768 + RANDOM)); }
