#!/usr/bin/env bash
# Installs the built library into a scratch prefix, then builds and runs a
# consumer through find_package and through pkg-config.
set -euo pipefail
build_dir=$1; source_dir=$2; work=$3
rm -rf "$work" && mkdir -p "$work"
cmake --install "$build_dir" --prefix "$work/prefix" > "$work/install.log"
cmake -S "$source_dir/consumer" -B "$work/cmake" -DCMAKE_PREFIX_PATH="$work/prefix" > "$work/configure.log"
cmake --build "$work/cmake" > "$work/build.log"
"$work/cmake/consumer"
export PKG_CONFIG_PATH="$work/prefix/lib/pkgconfig"
g++ -std=c++20 "$source_dir/consumer/main.cpp" $(pkg-config --cflags --libs trekcom) -o "$work/consumer-pc"
"$work/consumer-pc"
echo "installed library found by find_package and pkg-config"
