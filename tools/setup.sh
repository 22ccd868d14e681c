# Shared by run, test and .ci/run: installs the tools that are missing, and nothing else.
# Sourced with the current directory at the project's root.

# need CHECK PACKAGE: CHECK is a command name, or a file when it begins with '/'.
missing=
need() {
  case $1 in
    /*) [ -e "$1" ] && return ;;
    *) command -v "$1" >/dev/null 2>&1 && return ;;
  esac
  missing="$missing $2"
}

install_missing() {
  [ -n "$missing" ] || return 0
  echo "installing:$missing" >&2
  if ! command -v apt-get >/dev/null 2>&1; then
    echo "error: these packages are missing and there is no apt-get to install them:$missing" >&2
    exit 1
  fi
  as_root=
  if [ "$(id -u)" != 0 ]; then
    if ! command -v sudo >/dev/null 2>&1; then
      echo "error: run as root (or install sudo) to install:$missing" >&2
      exit 1
    fi
    as_root=sudo
  fi
  $as_root apt-get update -qq >&2 &&
    $as_root env DEBIAN_FRONTEND=noninteractive \
      apt-get install -y -qq --no-install-recommends $missing >&2 || {
    echo "error: could not install:$missing" >&2
    exit 1
  }
  missing=
}

# A library's development file lies in the multi-arch directory where the system has one.
library() {
  for dir in /usr/lib/*-linux-gnu /usr/lib /usr/lib64; do
    [ -e "$dir/$1" ] && { echo "$dir/$1"; return; }
  done
  echo "/usr/lib/$1"
}

need_build_tools() {
  need cmake cmake
  need ninja ninja-build
  need g++ g++
  need gcc gcc
  need "$(library libz.a)" zlib1g-dev
  need /usr/include/zlib.h zlib1g-dev
  need "$(library libminizip.a)" libminizip-dev
}

need_test_tools() {
  need python3 python3
  need unzip unzip
  need /usr/include/gtest/gtest.h libgtest-dev
}

# Clang and its sanitizers' run-time library, which is a package of its own.
need_clang() {
  need clang++ clang
  for runtime in /usr/lib/llvm-*/lib/clang/*/lib/linux/libclang_rt.asan-*.a; do
    need "$runtime" libclang-rt-14-dev
    break
  done
}

# What makes the packages and looks at them.
need_package_tools() {
  need python3 python3
  need unzip unzip
  need dpkg-deb dpkg
  need gzip gzip
  need readelf binutils
  need lintian lintian
  need mandoc mandoc
}

need_windows_tools() {
  need x86_64-w64-mingw32-g++-posix g++-mingw-w64-x86-64-posix
  need x86_64-w64-mingw32-gcc-posix gcc-mingw-w64-x86-64-posix
  need /usr/x86_64-w64-mingw32/include/zlib.h libz-mingw-w64-dev
  command -v wine64 >/dev/null 2>&1 || command -v wine >/dev/null 2>&1 || need /usr/lib/wine/wine64 wine64
}

# build PRESET [TARGET...]: configures once, builds; says a word on standard error only when there
# is something to do.
build() {
  preset=$1
  shift
  tree=build/$preset
  if [ ! -f "$tree/build.ninja" ]; then
    echo "configuring ($preset)" >&2
    cmake --preset "$preset" $configure_options >&2 || exit 1
  fi
  # A dry run that has nothing to do says so; anything else is worth announcing.
  if ! ninja -C "$tree" -n "$@" 2>/dev/null | grep -q 'no work to do'; then
    echo "building ($preset)" >&2
    ninja -C "$tree" --quiet "$@" >&2 || exit 1
  fi
}
configure_options=
