# What the proofs of kills and crowds share. To be sourced behind lib.sh.
# shellcheck shell=bash

# storm NAME AMOUNT... SEED: runs NAME.py in a prefix with a service and a web server of its own.
storm() {
  local name=$1 code=0
  shift
  build win64 kills_host loading >&2
  start_prefix "$name" >&2
  export BUILD STANDIN=$BUILD/standin/$name WWW=$BUILD/web/$name/www
  KUPDATE_DLL=$(windows_path "$BUILD/win64/src/api/dllkupdate.dll")
  export KUPDATE_DLL PYTHONDONTWRITEBYTECODE=1
  start_web_server "$name" "$WWW"
  rm -rf "$STANDIN"
  register_standin "$STANDIN"
  say "  seed ${!#}" >&2
  python3 "$ROOT/proof/kills/$name.py" "$@" || code=$?
  wine "$BUILD/win64/standin/kupdate-standin.exe" --stop </dev/null >/dev/null 2>&1 || true
  return "$code"
}

random_seed() { say $((RANDOM * 32768 + RANDOM)); }
