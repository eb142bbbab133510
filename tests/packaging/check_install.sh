#!/usr/bin/env bash
# Installs a built tree into a scratch prefix, checks that everything a user
# and a packager expect is there, then builds the example host programs out
# of tree against the installed package, once through find_package and once
# through pkg-config, and runs them against the installed simulated receiver.
#   check_install.sh BUILD_DIR SOURCE_DIR WORK_DIR
set -euo pipefail
build_dir=$1; source_dir=$2; work=$3
rm -rf "$work" && mkdir -p "$work"
prefix=$work/prefix
cmake --install "$build_dir" --prefix "$prefix" > "$work/install.log"
for f in bin/trekcom bin/trekcom-sim include/trekcom/trekcom.h lib/libtrekcom.a lib/pkgconfig/trekcom.pc \
         lib/cmake/trekcom/trekcomConfig.cmake lib/udev/rules.d/51-trekcom-garmin.rules; do
  [ -e "$prefix/$f" ] || { echo "not installed: $f" >&2; exit 1; }
done

# A packager's staged install for /usr: the rule goes where udev reads it, under the stage.
DESTDIR="$work/stage" cmake --install "$build_dir" --prefix /usr > "$work/stage.log"
[ -e "$work/stage/usr/lib/udev/rules.d/51-trekcom-garmin.rules" ] || { echo "udev rule not staged" >&2; exit 1; }

cmake -S "$source_dir/examples" -B "$work/cmake" -DCMAKE_PREFIX_PATH="$prefix" > "$work/configure.log"
cmake --build "$work/cmake" > "$work/build.log"
export PKG_CONFIG_PATH="$prefix/lib/pkgconfig"
# shellcheck disable=SC2046  # pkg-config's answer is a list of words
c++ -std=c++20 "$source_dir/examples/download_waypoints.cpp" $(pkg-config --cflags --libs trekcom) \
    -o "$work/download_waypoints-pc"

# Both builds talk to the installed simulated receiver.
"$prefix/bin/trekcom-sim" --link "$work/gps" > "$work/sim.log" &
sim=$!
trap 'kill $sim 2>/dev/null || true' EXIT
for _ in $(seq 100); do grep -q ready "$work/sim.log" && break; sleep 0.05; done
for program in "$work/cmake/download_waypoints" "$work/download_waypoints-pc"; do
  "$program" "$work/gps" > "$work/out.txt"
  grep -q "^HOME " "$work/out.txt" || { echo "$program listed no waypoints" >&2; cat "$work/out.txt" >&2; exit 1; }
done
echo "installed package: both tools, headers, CMake package, pkg-config file and udev rule;" \
     "the examples build against it with find_package and pkg-config"
