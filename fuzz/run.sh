#!/usr/bin/env bash
# fuzz/run.sh BUILD SECONDS [TARGET...]
# Fuzzes each target for so long, two at a time, from the stored corpus. New inputs are kept in
# BUILD/work, so that the next call goes on from there; inputs that broke something are kept in
# BUILD/findings and make the call fail.
#
# fuzz/run.sh BUILD merge [TARGET...]
# Writes the smallest set of inputs that reaches what all of them reach into fuzz/corpus.
set -uo pipefail
here=$(cd "$(dirname "$0")" && pwd)
build=$(cd "$1" && pwd)
seconds=$2
shift 2
targets=("$@")
[ ${#targets[@]} -gt 0 ] || targets=(api engines job_file tables)

export TMPDIR="$build/scratch"
export UBSAN_OPTIONS=print_stacktrace=1
rm -rf "$TMPDIR"
mkdir -p "$TMPDIR" "$build/findings"

options() {
  echo "-timeout=25 -rss_limit_mb=2048 -entropic=0 -len_control=0 -print_final_stats=1"
  case $1 in
    api) echo "-max_len=400" ;;
    engines) echo "-max_len=800" ;;
    job_file) echo "-max_len=2000 -dict=$here/dictionaries/job_file.dict" ;;
    tables) echo "-max_len=9000 -dict=$here/dictionaries/tables.dict" ;;
  esac
}

fuzz() {
  mkdir -p "$build/work/$1"
  # shellcheck disable=SC2046
  "$build/fuzz/fuzz_$1" $(options "$1") -max_total_time="$seconds" \
    -artifact_prefix="$build/findings/$1-" "$build/work/$1" "$here/corpus/$1" \
    >"$build/fuzz_$1.log" 2>&1
  local status=$?
  if [ $status -eq 0 ]; then
    echo "$1: $(grep -E 'DONE' "$build/fuzz_$1.log")"
  else
    echo "$1: broken, see $build/fuzz_$1.log"
    tail -40 "$build/fuzz_$1.log"
  fi
  return $status
}

merge() {
  local merged="$build/merged/$1"
  rm -rf "$merged"
  mkdir -p "$merged" "$build/work/$1"
  # shellcheck disable=SC2046
  "$build/fuzz/fuzz_$1" $(options "$1") -set_cover_merge=1 "$merged" \
    "$here/corpus/$1" "$build/work/$1" >"$build/merge_$1.log" 2>&1 || return 1
  rm -rf "${here:?}/corpus/$1"
  cp -r "$merged" "$here/corpus/$1"
  echo "$1: $(find "$merged" -type f | wc -l) inputs, $(du -sb "$merged" | cut -f1) bytes"
}

failures=0
if [ "$seconds" = merge ]; then
  for target in "${targets[@]}"; do
    merge "$target" || failures=1
  done
else
  running=()
  for target in "${targets[@]}"; do
    fuzz "$target" &
    running+=($!)
    if [ ${#running[@]} -eq 2 ]; then
      for process in "${running[@]}"; do wait "$process" || failures=1; done
      running=()
    fi
  done
  for process in "${running[@]}"; do wait "$process" || failures=1; done
fi
rm -rf "$TMPDIR"
exit $failures
