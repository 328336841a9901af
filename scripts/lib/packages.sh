# shellcheck shell=bash
# The Debian packages that the scripts need, and their installation.

# group, package, what it is for
kvl_packages() {
  cat <<'TABLE'
build cmake                       configures the build
build ninja-build                 runs the build
build g++                         compiles the library, with OpenMP
build libgtest-dev                GoogleTest, which the tests are written with
tool  pkg-config                  finds FFmpeg's libraries, and kvl in the tests of its package
tool  libcli11-dev                command-line options of the kvl command
tool  libavformat-dev             reads and writes pictures and clips
tool  libavcodec-dev              decodes and encodes them
tool  libavutil-dev               FFmpeg's shared parts
tool  libswscale-dev              converts their pixels
jpeg  libjpeg62-turbo-dev         the JPEG coder of the tests, the kvl command and the benchmarks
media ffmpeg                      makes the clips and pictures of the tests and the demo
media libjxl-testdata             a real photograph
cross g++-mingw-w64-x86-64-posix  compiles for Windows
cross googletest                  GoogleTest's source, built for Windows
cross wine64                      runs the Windows tests
qemu  qemu-user                   stands in for old processors
bench libbenchmark-dev            Google Benchmark
bench libopencv-dev               a peer to compare with
bench libyuv-dev                  a peer to compare with
bench libzimg-dev                 a peer to compare with
fuzz  clang                       compiles the fuzz targets and the thread sanitizer's build
fuzz  libclang-rt-dev             libFuzzer and the sanitizers
fuzz  libomp-dev                  OpenMP for clang
soak  valgrind                    finds leaks, and bytes that were never set
bench jq                          reads the benchmarks' results
TABLE
}

# require_packages <install: yes or no> <group>...: installs what the groups lack; with `no`, names
# it and fails.
require_packages() {
  local install=$1 group package reason
  local missing=()
  shift
  if ! command -v dpkg-query apt-get > /dev/null; then
    echo "Not a Debian system: taking for granted that everything is installed." >&2
    return 0
  fi
  while read -r group package reason; do
    [[ " $* " == *" $group "* ]] || continue
    if [[ "$(dpkg-query -W -f '${db:Status-Status}' "$package" 2> /dev/null)" == installed ]]; then
      continue
    fi
    ((${#missing[@]})) || echo "Packages that are missing:"
    printf '  %-27s %s\n' "$package" "$reason"
    missing+=("$package")
  done < <(kvl_packages)
  ((${#missing[@]})) || return 0

  if [[ $install == no ]]; then
    echo "Install them, or run this again without --no-install." >&2
    return 1
  fi
  local as_root=()
  if ((EUID != 0)); then
    if ! command -v sudo > /dev/null; then
      echo "Neither root nor sudo: ask for  apt-get install ${missing[*]}" >&2
      return 1
    fi
    echo "Installing them takes root's rights, through sudo."
    as_root=(sudo)
  fi
  echo "Installing them (apt-get)"
  local log
  log=$("${as_root[@]}" apt-get -qq update 2>&1 &&
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
      apt-get -qq install --no-install-recommends -y "${missing[@]}" 2>&1) || {
    echo "$log" >&2
    return 1
  }
}
