#!/usr/bin/env bash
# Sets up, builds and runs Quillaphonics on Debian 12.
#   ./build.sh run [ARGS]   install what is missing, build Release, start the program
#   ./build.sh test         install what is missing, build the sanitizer build, run every test,
#                           then the ThreadSanitizer threading tests and each fuzz target briefly
#   ./build.sh bench        build Release and run the benchmarks
set -euo pipefail
cd "$(dirname "$0")"
ROOT=$(pwd)
JOBS=${JOBS:-2}

# Everything the project needs to build, test and benchmark, as Debian package names.
PACKAGES=(
  build-essential cmake ninja-build pkg-config clang libclang-rt-14-dev libfuzzer-14-dev
  libgtest-dev libgmock-dev libbenchmark-dev
  libsdl2-dev libsdl2-ttf-dev libsdl2-image-dev libfontconfig-dev fonts-dejavu-core libpng-dev
  libpugixml-dev libmad0-dev libmp3lame-dev libgsm1-dev libvorbisidec-dev libogg-dev libmpcdec-dev
  libgstreamer1.0-dev libgstreamer-plugins-base1.0-dev gstreamer1.0-plugins-base
  gstreamer1.0-plugins-good gstreamer1.0-plugins-ugly gstreamer1.0-libav
  sox libsox-fmt-all lame vorbis-tools musepack-tools ffmpeg espeak-ng hyperfine stress-ng librsvg2-bin zip madplay
  python3-mutagen gifsicle
  libsystemd-dev dbus playerctl
  libxext-dev x11-xserver-utils
  xvfb xdotool imagemagick x11-utils
)

install_missing() {
  local missing=()
  for p in "${PACKAGES[@]}"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
  done
  [ ${#missing[@]} -eq 0 ] && return 0
  echo "build.sh: installing ${missing[*]}"
  local sudo=""
  [ "$(id -u)" -eq 0 ] || sudo="sudo"
  $sudo apt-get update
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y --no-install-recommends "${missing[@]}"
}

# configure DIR [cmake options…]: configures once, then only rebuilds.
configure() {
  local dir=$1; shift
  if [ ! -f "$dir/build.ninja" ]; then
    cmake -S "$ROOT" -B "$dir" -G Ninja "$@"
  fi
}

build_release() {
  configure build/release -DCMAKE_BUILD_TYPE=Release
  cmake --build build/release -j "$JOBS"
}

run_fuzzers() {
  configure build/fuzz -DCMAKE_BUILD_TYPE=RelWithDebInfo -DQUILL_FUZZ=ON \
    -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++
  cmake --build build/fuzz -j "$JOBS"
  local seconds=${FUZZ_SECONDS:-15}
  for f in build/fuzz/tests/fuzz/fuzz_*; do
    [ -x "$f" ] || continue
    local name corpus
    name=$(basename "$f")
    corpus=build/fuzz/corpus/$name
    mkdir -p "$corpus"
    [ -d "tests/fuzz/seeds/$name" ] && cp -n tests/fuzz/seeds/"$name"/* "$corpus"/ 2>/dev/null || true
    echo "== fuzzing $name for ${seconds}s"
    "$f" -max_total_time="$seconds" -rss_limit_mb=2048 "$corpus" 2>"build/fuzz/$name.log" \
      || { tail -n 40 "build/fuzz/$name.log"; return 1; }
  done
}

cmd=${1:-run}
[ $# -gt 0 ] && shift
case "$cmd" in
  run)
    install_missing
    build_release
    exec build/release/program/quillaphonics "$@"
    ;;
  test)
    install_missing
    configure build/asan -DCMAKE_BUILD_TYPE=Debug -DQUILL_SANITIZE=ON
    cmake --build build/asan -j "$JOBS"
    (cd build/asan && ctest --output-on-failure -j "$JOBS")
    configure build/tsan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DQUILL_TSAN=ON
    cmake --build build/tsan -j "$JOBS" --target threading_tests
    (cd build/tsan && ctest --output-on-failure -L threading)
    run_fuzzers
    ;;
  bench)
    install_missing
    build_release
    for b in build/release/bench/bench_*; do [ -x "$b" ] && "$b"; done
    ;;
  *)
    echo "usage: ./build.sh run [ARGS] | test | bench" >&2
    exit 2
    ;;
esac
