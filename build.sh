#!/usr/bin/env bash
# Builds and tests the project; installs what it needs from Debian's packages.
#
#   ./build.sh [build]                      configure and build into build/
#   ./build.sh test [--sanitize=LIST]       build, then run the whole suite through CTest
#   ./build.sh demo                         run the demo
#   ./build.sh bench                        build in Release and run every benchmark (bin/*_bench)
#
# --sanitize=address,undefined or --sanitize=thread builds into its own folder
# (build-asan-ubsan/, build-tsan/) in Debug mode.
# --with-cppmicroservices=PREFIX builds against the CppMicroServices installed at PREFIX instead
# of platform/microservices, into build-cppmicroservices/; its test runs the compatibility suite.
set -euo pipefail
caller_dir="$PWD"
cd "$(dirname "$0")"

PACKAGES=(cmake g++ ninja-build pkg-config
          libgtest-dev libgmock-dev libbenchmark-dev
          libboost-dev libboost-context-dev
          libnng-dev nlohmann-json3-dev python3-avro libcli11-dev libedit-dev)

die() { echo "build.sh: $*" >&2; exit 2; }

ensure_packages() {
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

command="${1:-build}"
[ $# -gt 0 ] && shift
sanitize=""
build_type="Release"
cppmicroservices=""
for arg in "$@"; do
  case "$arg" in
    --sanitize=*) sanitize="${arg#--sanitize=}" ;;
    --debug) build_type="Debug" ;;
    --with-cppmicroservices=*)
      cppmicroservices="${arg#--with-cppmicroservices=}"
      [ -n "$cppmicroservices" ] || die "--with-cppmicroservices needs the installation's prefix"
      # A relative prefix is the caller's, not the repository's.
      case "$cppmicroservices" in /*) ;; *) cppmicroservices="$caller_dir/$cppmicroservices" ;; esac
      [ -d "$cppmicroservices" ] || die "no CppMicroServices installation at '$cppmicroservices'"
      ;;
    *) die "unknown option '$arg'" ;;
  esac
done

case "$sanitize" in
  "") build_dir="build" ;;
  address,undefined|undefined,address|address|undefined)
      build_dir="build-asan-ubsan"; build_type="Debug" ;;
  thread) build_dir="build-tsan"; build_type="Debug" ;;
  *) die "unsupported sanitizer set '$sanitize' (use address,undefined or thread)" ;;
esac
if [ -n "$cppmicroservices" ]; then
  # The installation's libraries are not instrumented, so the sanitizers would report on them.
  [ -z "$sanitize" ] || die "--with-cppmicroservices and --sanitize do not combine"
  build_dir="build-cppmicroservices"
fi

build() {
  ensure_packages
  cmake -S . -B "$build_dir" -G Ninja -DCMAKE_BUILD_TYPE="$build_type" -DLSP_SANITIZE="$sanitize" \
        -DLSP_CPPMICROSERVICES_DIR="$cppmicroservices"
  cmake --build "$build_dir" -j2
}

case "$command" in
  build) build ;;
  test)
    build
    export ASAN_OPTIONS="${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=1}"
    export UBSAN_OPTIONS="${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}"
    export TSAN_OPTIONS="${TSAN_OPTIONS:-halt_on_error=1:second_deadlock_stack=1}"
    ctest --test-dir "$build_dir" --output-on-failure -j2
    ;;
  demo)
    ensure_packages
    cmake -S . -B "$build_dir" -G Ninja -DCMAKE_BUILD_TYPE="$build_type" -DLSP_SANITIZE="$sanitize" \
        -DLSP_CPPMICROSERVICES_DIR="$cppmicroservices"
    cmake --build "$build_dir" -j2 --target spf-host agent-exchange legacy-agent
    exec scripts/demo.sh "$build_dir"
    ;;
  bench)
    [ -z "$sanitize" ] || die "benchmarks run on the Release build only"
    build
    shopt -s nullglob
    benches=("$build_dir"/bin/*_bench)
    [ ${#benches[@]} -gt 0 ] || die "no benchmark was built"
    results=()
    for bench in "${benches[@]}"; do
      echo "== $(basename "$bench")"
      out="$build_dir/$(basename "$bench").json"
      "$bench" --benchmark_out="$out" --benchmark_out_format=json
      results+=("$out")
    done
    echo "== ratios"
    python3 bench/ratios.py "${results[@]}"
    ;;
  *) die "unknown command '$command' (build, test, demo or bench)" ;;
esac
