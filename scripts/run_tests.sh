#!/usr/bin/env bash
# Sets up, builds and runs every test: the normal build, the sanitizer build (ASan and
# UBSan), and each fuzz harness for a minute on the sample inputs kept in fuzz/corpus/
set -euo pipefail
here="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
cd "$here"

bash scripts/setup.sh build
bash scripts/setup.sh build-asan -DKAVOR_SANITIZE=ON -DKAVOR_BENCH=OFF -DCMAKE_BUILD_TYPE=Debug
CC=clang CXX=clang++ bash scripts/setup.sh build-fuzz -DKAVOR_FUZZ=ON -DKAVOR_TESTS=OFF \
  -DKAVOR_BENCH=OFF -DCMAKE_BUILD_TYPE=RelWithDebInfo

export ASAN_OPTIONS=detect_leaks=0:abort_on_error=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1

status=0
echo "== sanitizer build tests"
ctest --test-dir build-asan --output-on-failure -j2 || status=1

echo "== fuzz harnesses (a short run each, starting from fuzz/corpus/)"
for fuzzer in build-fuzz/*_fuzz; do
  [ -x "$fuzzer" ] || continue
  name="$(basename "$fuzzer")"
  corpus="fuzz/corpus/${name%_fuzz}"
  work="$(mktemp -d)"
  [ -d "$corpus" ] && cp -r "$corpus"/. "$work"/
  if ! "$fuzzer" -runs=20000 -max_total_time=60 -max_len=65536 "$work" > "build-fuzz/$name.log" 2>&1; then
    echo "fuzz: $name failed; see build-fuzz/$name.log"; tail -n 30 "build-fuzz/$name.log"; status=1
  else
    echo "fuzz: $name ok"
  fi
  rm -rf "$work"
done

echo "== tests"
ctest --test-dir build --output-on-failure -j2 || status=1
exit $status
