#!/usr/bin/env bash
# Builds and tests the project. --quick: the inner loop; --long: what takes longer than a change should wait.
set -euo pipefail
cd "$(dirname "$0")"

usage() {
  cat <<TXT
usage: ./test.sh [--quick | --all-targets | --long]
  (none)   static checks, then the tests with g++, under AddressSanitizer and UndefinedBehaviorSanitizer, under
           ThreadSanitizer where there are threads, and with clang
  --quick  the unit tests of the release build
  --all-targets
           all of that, then the tests for 32-bit x86 and 32-bit ARM, under emulation where the kernel does not run them
  --long   the unit tests under valgrind, and a thousand kills of agents and clients at random
Each stage has a time budget and fails when it is used up.
TXT
}

mode=all
case "${1:-}" in
  "") ;;
  --quick) mode=quick ;;
  --all-targets) mode=all-targets ;;
  --long) mode=long ;;
  -h | --help) usage; exit 0 ;;
  *) usage >&2; exit 2 ;;
esac

log=build/test-log
passed=0
failed=0

# stage NAME SECONDS COMMAND...: runs it within its budget, counts what passed, ends the run when it fails.
stage() {
  local name=$1 budget=$2 start=$SECONDS status=0
  shift 2
  echo "== $name (budget ${budget} s)"
  timeout --kill-after=10 "$budget" "$@" 2>&1 | tee "$log/$name.txt" || status=$?
  local line
  line=$(grep -E '% tests passed, [0-9]+ tests? failed out of [0-9]+' "$log/$name.txt" | tail -n 1 || true)
  if [ -n "$line" ]; then
    local bad all
    bad=$(sed -E 's/.*passed, ([0-9]+) tests? failed.*/\1/' <<<"$line")
    all=$(sed -E 's/.*out of ([0-9]+).*/\1/' <<<"$line")
    passed=$((passed + all - bad))
    failed=$((failed + bad))
  elif [ "$status" -ne 0 ]; then
    failed=$((failed + 1))
  else
    passed=$((passed + 1)) # a stage of another kind counts as one
  fi
  echo "== $name: $((SECONDS - start)) s"
  if [ "$status" -ne 0 ]; then
    [ "$status" -eq 124 ] && echo "$name used up its ${budget} s"
    summary
    exit 1
  fi
}

summary() { printf '\n%d passed, %d failed\n' "$passed" "$failed"; }

build() { # PRESET [TARGET]: its last line, or all that the compiler said when it failed
  local said=build/test-log/build-$1.txt
  cmake --preset "$1" >/dev/null || return
  cmake --build "build/$1" --target "${2:-all}" >"$said" || { grep -v '^\[' "$said"; return 1; }
  tail -n 1 "$said"
}

run_tests() { # PRESET CTEST-ARGUMENTS...; TARGET, when not all is to be built
  local preset=$1
  shift
  build "$preset" "${TARGET:-all}" && ctest --test-dir "build/$preset" --output-on-failure "$@"
}

static_checks() {
  python3 scripts/check_layers.py
  git ls-files -co --exclude-standard '*.h' '*.cpp' | xargs clang-format --dry-run --Werror
  printf '#include "line_id.h"\nint main(void) { return 0; }\n' | gcc -std=c11 -Wall -Wextra -Wpedantic -Werror -Iinclude -fsyntax-only -x c -
  echo "static checks: done"
}

tidy() {
  cmake --preset clang >/dev/null
  git ls-files -co --exclude-standard 'core/*.cpp' 'platform/*.cpp' 'packet/*.cpp' 'lineid/*.cpp' 'config/*.cpp' \
    'antispoof/*.cpp' 'agents/*.cpp' 'client/*.cpp' 'host/*.cpp' 'ctl/*.cpp' |
    xargs -P 2 -n 6 clang-tidy -p build/clang --quiet 2>&1 | { grep -vE '^[0-9]+ warnings? (generated|treated)' || true; }
  [ "${PIPESTATUS[1]}" -eq 0 ] && echo "clang-tidy: done"
}

# Every unit test program under memcheck; tests of waits and of killed processes are about time, and
# one replaces operator new, which memcheck does as well: these run natively only.
memory_check() {
  local program status=0
  for program in build/release/tests/test_*; do
    valgrind -q --error-exitcode=9 --leak-check=full --errors-for-leak-kinds=definite "$program" \
      --gtest_brief=1 --gtest_filter='-*killed*:*idle_loop*:faults.*' || { echo "$program: $?"; status=1; }
  done
  return $status
}

export -f memory_check build run_tests static_checks tidy
in_bash() { stage "$1" "$2" bash -euo pipefail -c "$3"; }

purpose=test
[ "$mode" = all-targets ] && purpose=targets
scripts/packages.sh $purpose
mkdir -p "$log"
export ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 TSAN_OPTIONS=halt_on_error=1
export CCACHE_BASEDIR=$PWD CCACHE_NOHASHDIR=1

case $mode in
  quick)
    in_bash release 600 'run_tests release -L quick'
    ;;
  long)
    in_bash release 600 'build release'
    in_bash valgrind 3000 memory_check
    in_bash kills 1800 'LINE_ID_TICK_US=500 LINE_ID_TEST_KILLS=1000 build/release/tests/process_test --gtest_filter=kills.agents_and_clients_at_random'
    ;;
  all | all-targets)
    in_bash static 120 static_checks
    in_bash release 600 'run_tests release -LE lab'
    in_bash lab 420 'run_tests release -L lab --verbose'
    in_bash asan 720 'run_tests asan -LE lab'
    in_bash tsan 480 'TARGET=threaded run_tests tsan -L threads'
    in_bash tidy 1200 tidy
    in_bash clang 480 'run_tests clang -L quick'
    ;;&
  all-targets)
    in_bash x86-32 900 'run_tests x86-32'
    in_bash arm-32 900 'run_tests arm-32'
    ;;
esac
summary
