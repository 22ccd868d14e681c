#!/bin/sh
# Builds the program as it is shipped, in build/profile: optimised by what the inputs of the
# benchmark make it do. A first build counts that, the second one uses it; the whole-program cases
# are run with the result.
#   tools/profile.sh            builds it
#   tools/profile.sh package    also has CPack make the packages
cd "$(dirname -- "$0")/.." || exit 1
. tools/setup.sh
need_build_tools
need_test_tools
install_missing

tree=build/profile
rm -rf "$tree" # what was counted in another version
cmake --preset profile -DCPP_PROFILE=generate >&2 &&
  cmake --build --preset profile --target cpp >&2 &&
  python3 bench/run.py --train --program "$tree/bin/cpp" >&2 &&
  cmake --preset profile >&2 &&
  cmake --build --preset profile >&2 &&
  python3 tests/run_cases.py "$tree/bin/cpp" || exit 1
[ "$1" != package ] || cmake --build --preset profile --target package
