#!/usr/bin/env bash
# Installs the packages in a folder with apt and uses them as their users do. For an empty root only: it purges the
# packages afterwards.
#   scripts/lib/try_packages.sh FOLDER
set -euo pipefail
cd "$(dirname "$0")/../.."
export DEBIAN_FRONTEND=noninteractive
folder=$PWD/$1
work=$(mktemp -d)
install() { apt-get install -qq -y --no-install-recommends "$@" >/dev/null; }

# package NAME: the file of the package.
package() { echo "$folder/$1"_*.deb; }

apt-get update -qq
echo "== the host, with nothing but its packages"
install "$(package libfenlux0)" "$(package fenlux-host)"
fenlux-host run --config /etc/fenlux/host.toml --socket "$work/host.sock" --duration 1

echo "== a small host, built with the development package"
install "$(package libfenlux-dev)" "$(package fenlux-doc)" g++ cmake make pkg-config python3
cp tests/package/small_host/main.cpp examples/scripted.toml examples/scenario-all-codes.toml "$work"
cd "$work"
cat >CMakeLists.txt <<'END'
cmake_minimum_required(VERSION 3.25)
project(small_host LANGUAGES CXX)
find_package(fenlux REQUIRED)
add_executable(with-cmake main.cpp)
target_link_libraries(with-cmake PRIVATE fenlux::api ${CMAKE_DL_LIBS})
END
cmake -B build . >/dev/null
cmake --build build >/dev/null
read -ra flags <<<"$(pkg-config --cflags --libs fenlux)"
g++ -std=c++20 main.cpp -o with-pkg-config "${flags[@]}"
fenlux-host run --config scripted.toml --socket "$work/host.sock" --record port.pcapng >/dev/null 2>run.log ||
  { cat run.log >&2; exit 1; }
fenlux-host decode --json --hex port.pcapng |
  python3 "$OLDPWD/tests/package/small_host/notifications.py" >notifications.txt
module=$(pkg-config --variable=module fenlux)
for program in build/with-cmake ./with-pkg-config; do
  echo "-- $program"
  "$program" "$module" notifications.txt  # fails if a verdict is not the expected one
done

apt-get purge -qq -y libfenlux0 libfenlux-dev fenlux-host fenlux-doc >/dev/null
for left in /etc/fenlux /usr/include/fenlux /usr/lib/*/libfenlux*; do
  if [ -e "$left" ]; then
    echo "purging the packages left $left behind" >&2
    exit 1
  fi
done
