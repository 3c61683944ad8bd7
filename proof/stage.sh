# What the proofs by hosts, executors and the transfer service share. To be sourced behind lib.sh.
# shellcheck shell=bash

# on_stage NAME: a prefix with a service of its own, and what the Python programs of proof/ need to run there.
on_stage() {
  build win64 proof_host kupdate-exec >&2
  trusting_executor
  rm -rf "$BUILD/standin/$1"
  start_stage "$1" >&2
  export PYTHONPATH=$ROOT/proof PYTHONDONTWRITEBYTECODE=1
}

# seed [SEED]: that one or a new one, which is said, so that a run can be repeated.
seed() {
  local seed=${1:-$((RANDOM * 32768 + RANDOM))}
  say "  seed $seed" >&2
  say "$seed"
}
