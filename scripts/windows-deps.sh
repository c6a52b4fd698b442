#!/usr/bin/env bash
# Builds the third-party libraries of the Windows build and prints their folder as the last line on stdout.
#   prefix=$(scripts/windows-deps.sh)
#   cmake -DCMAKE_TOOLCHAIN_FILE=cmake/toolchain-mingw64.cmake -DFENLUX_WINDOWS_PREFIX="$prefix" ...
#
# Boost and POCO are built from the release's Debian source packages, GoogleTest from the sources that its Debian
# package installs. Header-only libraries are copied from their installed packages (see cmake/packages-windows.txt).
# The machine's apt configuration is read but never changed. Progress goes to stderr.
#
# The result is kept outside the source tree, in ${FENLUX_CACHE:-${XDG_CACHE_HOME:-$HOME/.cache}/fenlux}/windows-<key>.
# The key covers everything that goes into it. The folder is renamed to that name last, so it is always complete.
#
# FENLUX_JOBS: number of parallel compile jobs (default: number of processors)
# FENLUX_SOURCE_PACKAGES: a folder with source packages of Boost or POCO (.dsc and the files it names). They
#   replace those of the release, for example without a network, or if the archive lacks a file.
set -euo pipefail
{ # Bash reads this block as a whole, so changing the file does not affect a running build.
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
source "$here/lib/common.sh"
source "$here/lib/debian.sh"
answer_help "$@"
if [ $# -gt 0 ]; then refuse "$1"; fi

export LC_ALL=C
umask 022
forwarders=$here/../cmake/mingw-include
triple=x86_64-w64-mingw32
jobs=${FENLUX_JOBS:-$(nproc)}
cache=$(fenlux_cache)

exec 8>&2  # for messages while stderr goes to the log
say() { printf 'windows-deps: %s\n' "$*" >&8; }
die() { say "$*"; exit 1; }

# ---------------------------------------------------------------- inputs

installed() {
  dpkg-query -W -f '${Version}' "$1" 2>/dev/null ||
    die "package $1 is not installed, see cmake/packages-windows.txt"
}

required=(g++-mingw-w64-x86-64-posix gcc-mingw-w64-x86-64-posix binutils-mingw-w64-x86-64 mingw-w64-x86-64-dev
          googletest libfmt-dev libspdlog-dev libtomlplusplus-dev libcli11-dev nlohmann-json3-dev)
for package in "${required[@]}"; do
  installed "$package" >/dev/null
done
for tool in cmake ninja dpkg-source flock "$triple-g++-posix" "$triple-windmc"; do
  command -v "$tool" >/dev/null || die "$tool is missing, see cmake/packages-windows.txt"
done

# The source version of the binary package that apt would install now: source_version PACKAGE [APT OPTION...]
source_version() {
  local package=$1
  shift
  apt-cache "$@" show --no-all-versions "$package" 2>/dev/null | awk '
    /^Version: /          { version = $2 }
    /^Source: .*\(.*\)$/  { source = $3; gsub(/[()]/, "", source) }
    END                   { print source != "" ? source : version }'
}

# The only file of FENLUX_SOURCE_PACKAGES that matches PATTERN; nothing if none does: given_package PATTERN
given_package() {
  local -a files
  [ -n "${FENLUX_SOURCE_PACKAGES:-}" ] || return 0
  [ -d "$FENLUX_SOURCE_PACKAGES" ] || die "FENLUX_SOURCE_PACKAGES: $FENLUX_SOURCE_PACKAGES is not a folder"
  mapfile -t files < <(find -L "$FENLUX_SOURCE_PACKAGES" -maxdepth 1 -name "$1" -type f)
  [ ${#files[@]} -le 1 ] || die "FENLUX_SOURCE_PACKAGES has more than one $1: ${files[*]}"
  [ ${#files[@]} -eq 0 ] || realpath "${files[0]}"
}
boost_dsc=$(given_package 'boost1.*.dsc')
poco_dsc=$(given_package 'poco_*.dsc')
if [ -n "${FENLUX_SOURCE_PACKAGES:-}" ] && [ -z "$boost_dsc$poco_dsc" ]; then
  die "FENLUX_SOURCE_PACKAGES: $FENLUX_SOURCE_PACKAGES has neither boost1.*.dsc nor poco_*.dsc"
fi

# dsc_field FILE NAME
dsc_field() { awk -v name="$2:" '$1 == name { print $2; exit }' "$1"; }

# Sets boost (the name of the source package), boost_version and poco_version: find_versions [APT OPTION...]
# Of the release's Boost packages it takes the oldest with a CMake build of its own, which Boost has since 1.81.
find_versions() {
  if [ -n "$poco_dsc" ]; then
    poco_version=$(dsc_field "$poco_dsc" Version)
  else
    poco_version=$(source_version libpoco-dev "$@")
  fi
  if [ -n "$boost_dsc" ]; then
    boost=$(dsc_field "$boost_dsc" Source)
    boost_version=$(dsc_field "$boost_dsc" Version)
    [ -n "$poco_version" ]
    return
  fi
  boost=$(apt-cache "$@" pkgnames libboost1 | sed -n 's/^lib\(boost1\.[0-9]*\)-dev$/\1/p' | sort -V |
    awk -F. '$2 >= 81 && !found { print; found = 1 }') || true
  [ -n "$boost" ] || return 1
  boost_version=$(source_version "lib$boost-dev" "$@")
  [ -n "$boost_version" ] && [ -n "$poco_version" ]
}

versions() {
  printf '%s %s\npoco %s\n' "$boost" "$boost_version" "$poco_version"
  for package in "${required[@]}"; do
    printf '%s %s\n' "$package" "$(installed "$package")"
  done
}

# Prints the finished folder and exits if there is one for the current versions.
finish_if_cached() {
  local key header
  key=$({
    versions
    "$triple-g++-posix" -dumpfullversion
    cat "$here/windows-deps.sh" ${boost_dsc:+"$boost_dsc"} ${poco_dsc:+"$poco_dsc"}
    for header in "$forwarders"/*.h; do
      printf '%s\n' "${header##*/}"
      cat "$header"
    done
  } | sha256sum | cut -c1-16)
  prefix=$cache/windows-$key
  if [ -d "$prefix" ]; then
    printf '%s\n' "$prefix"
    exit 0
  fi
}

if find_versions; then finish_if_cached; fi

mkdir -p "$cache"
cache=$(cd "$cache" && pwd)

# One build at a time. The folder has a fixed name so that the compiler cache recognizes its files.
exec 9>"$cache/windows-deps.lock"
flock 9
if find_versions; then finish_if_cached; fi

work=$cache/windows-build
rm -rf "$work"
mkdir "$work"
log=$cache/windows-deps.log
: >"$log"
# shellcheck disable=SC2317  # called by the trap
finish() {
  local status=$?
  rm -rf "$work"
  if [ "$status" -ne 0 ]; then
    say "failed; the end of $log:"
    tail -n 30 "$log" >&8
  fi
}
trap finish EXIT
trap 'exit 129' HUP
trap 'exit 130' INT
trap 'exit 143' TERM

# ---------------------------------------------------------------- sources

# Source packages come from the archives that the machine's apt uses for binary packages. Both kinds of lists are read,
# because the machine's own lists may have been deleted.
mkdir -p "$work/apt/parts" "$work/apt/state/lists/partial" "$work/apt/cache/archives/partial" "$work/src"
debian_sources | sed 'p; s/^deb /deb-src /' >"$work/apt/sources.list"
apt_options=(
  -o Dir::Etc::sourcelist="$work/apt/sources.list"
  -o Dir::Etc::sourceparts="$work/apt/parts"
  -o Dir::State="$work/apt/state"
  -o Dir::Cache="$work/apt/cache"
  -o Acquire::Languages=none
  -o APT::Sandbox::User=root
)
if [ -z "$boost_dsc" ] || [ -z "$poco_dsc" ]; then
  [ -s "$work/apt/sources.list" ] || die "apt has no archive of this Debian release configured"
  say "reading the lists of source packages"
  apt-get "${apt_options[@]}" update >>"$log" 2>&1
fi

if [ -z "$boost" ] || [ -z "$boost_version" ] || [ -z "$poco_version" ]; then
  find_versions "${apt_options[@]}" || die "the configured archives have no Boost and POCO to build"
fi

# offered PACKAGE VERSION: prints that version, or the newest if the archive no longer offers it.
offered() {
  local version newest=""
  for version in $(apt-cache "${apt_options[@]}" showsrc --only-source "$1" 2>>"$log" | awk '/^Version: /{print $2}'); do
    if [ "$version" = "$2" ]; then
      printf '%s\n' "$version"
      return
    fi
    if [ -z "$newest" ] || dpkg --compare-versions "$version" gt "$newest"; then newest=$version; fi
  done
  [ -n "$newest" ] || die "the configured archives have no source package $1"
  say "$1 $2 is no longer offered, using $newest"
  printf '%s\n' "$newest"
}
[ -n "$boost_dsc" ] || boost_version=$(offered "$boost" "$boost_version")
[ -n "$poco_dsc" ] || poco_version=$(offered poco "$poco_version")
finish_if_cached

# unpack NAME VERSION FOLDER [DSC]: unpacks the source package. Fetches it if DSC is empty.
unpack() {
  local file=$4
  say "unpacking $1 $2${file:+ from $file}"
  {
    if [ -z "$file" ]; then
      apt-get "${apt_options[@]}" source --download-only "$1=$2"
      file=$(echo "$1"_*.dsc)
    fi
    dpkg-source --no-copy -x "$file" "$3"
  } >>"$log" 2>&1
}
cd "$work/src"
unpack "$boost" "$boost_version" boost "$boost_dsc"
unpack poco "$poco_version" poco "$poco_dsc"
cd - >/dev/null
cp -r /usr/src/googletest "$work/src/googletest"

# ---------------------------------------------------------------- builds

stage=$work/stage
mkdir -p "$stage/include" "$stage/lib/cmake"

# The forwarding headers are installed as well: POCO's own headers use them.
cp "$forwarders"/*.h "$stage/include/"

launcher=()
if command -v ccache >/dev/null; then
  launcher=(-DCMAKE_C_COMPILER_LAUNCHER=ccache -DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
fi

# cross NAME [OPTION...]: configures, builds and installs $work/src/NAME.
# The paths of the build are mapped away, so that the archives do not contain them and two builds give the same bytes.
cross() {
  local name=$1
  shift
  say "building $name"
  {
    cmake -G Ninja -S "$work/src/$name" -B "$work/build/$name" \
      -DCMAKE_SYSTEM_NAME=Windows \
      -DCMAKE_SYSTEM_PROCESSOR=x86_64 \
      -DCMAKE_C_COMPILER="$triple-gcc-posix" \
      -DCMAKE_CXX_COMPILER="$triple-g++-posix" \
      -DCMAKE_RC_COMPILER="$triple-windres" \
      -DCMAKE_FIND_ROOT_PATH="/usr/$triple" \
      -DCMAKE_FIND_ROOT_PATH_MODE_PROGRAM=NEVER \
      -DCMAKE_FIND_ROOT_PATH_MODE_LIBRARY=ONLY \
      -DCMAKE_FIND_ROOT_PATH_MODE_INCLUDE=ONLY \
      -DCMAKE_FIND_ROOT_PATH_MODE_PACKAGE=ONLY \
      -DCMAKE_BUILD_TYPE=Release \
      -DCMAKE_C_FLAGS="-ffile-prefix-map=$work=deps" \
      -DCMAKE_CXX_FLAGS="-ffile-prefix-map=$work=deps -isystem $stage/include" \
      -DCMAKE_C_FLAGS_RELEASE="-O2 -DNDEBUG" \
      -DCMAKE_CXX_FLAGS_RELEASE="-O2 -DNDEBUG" \
      -DCMAKE_INSTALL_PREFIX="$stage" \
      -DCMAKE_INSTALL_LIBDIR=lib \
      -DBUILD_SHARED_LIBS=OFF \
      "${launcher[@]}" "$@"
    cmake --build "$work/build/$name" -j "$jobs"
    cmake --install "$work/build/$name"
  } >>"$log" 2>&1
}

# Without the "synchronization" import library Boost.Atomic looks up its functions at run time. With it, everything
# linked here would depend on the name of an API set.
cross boost -DBOOST_INCLUDE_LIBRARIES="thread;filesystem;system" -DBOOST_INSTALL_LAYOUT=system \
  -DBOOST_ATOMIC_HAS_SYNCHRONIZATION_LIB=OFF

poco_off=()
for part in ACTIVERECORD ACTIVERECORD_COMPILER APACHECONNECTOR CRYPTO DATA DATA_MYSQL DATA_ODBC DATA_POSTGRESQL \
            DATA_SQLITE ENCODINGS JSON JWT MONGODB NETSSL PAGECOMPILER PAGECOMPILER_FILE2PAGE PDF PROMETHEUS REDIS \
            SEVENZIP TESTS UTIL XML ZIP; do
  poco_off+=("-DENABLE_$part=OFF")
done
cross poco "${poco_off[@]}" -DCMAKE_MC_COMPILER="$(command -v "$triple-windmc")"

# A static PocoNet starts Winsock from a static object in Net.cpp, which is linked only if something needs a symbol of
# that file.
cat >>"$stage/cmake/PocoNetConfig.cmake" <<'EOF'
if(NOT _poco_net_initializer_linked)
    set(_poco_net_initializer_linked TRUE)
    set_property(TARGET Poco::Net APPEND PROPERTY
        INTERFACE_LINK_OPTIONS "-Wl,-u,_ZN4Poco3Net17initializeNetworkEv")
endif()
EOF

cross googletest -DBUILD_GMOCK=ON -DINSTALL_GTEST=ON

# ---------------------------------------------------------------- headers

say "copying headers"
# All of Boost's headers, not only those of the three libraries.
for include in "$work"/src/boost/libs/*/include "$work"/src/boost/libs/*/*/include; do
  if [ -d "$include/boost" ]; then
    cp -r "$include/boost" "$stage/include/"
  fi
done
cp -rL /usr/include/fmt /usr/include/spdlog /usr/include/toml++ /usr/include/CLI \
  /usr/include/nlohmann "$stage/include/"

# ---------------------------------------------------------------- package configs

# Strips epoch, Debian revision and repack suffix from a version.
upstream() {
  local version=${1#*:}
  version=${version%-*}
  printf '%s\n' "${version%%+*}"
}

# version_file FOLDER NAME VERSION
version_file() {
  cat >"$1/$2ConfigVersion.cmake" <<EOF
set(PACKAGE_VERSION "$3")
if(PACKAGE_VERSION VERSION_LESS PACKAGE_FIND_VERSION)
    set(PACKAGE_VERSION_COMPATIBLE FALSE)
else()
    set(PACKAGE_VERSION_COMPATIBLE TRUE)
    if(PACKAGE_FIND_VERSION STREQUAL PACKAGE_VERSION)
        set(PACKAGE_VERSION_EXACT TRUE)
    endif()
endif()
EOF
}

# header_only NAME VERSION DEFINITIONS REQUIRES TARGET...
header_only() {
  local name=$1 version=$2 definitions=$3 requires=$4 target
  local folder=$stage/lib/cmake/$name
  shift 4
  mkdir -p "$folder"
  version_file "$folder" "$name" "$version"
  {
    echo 'include(CMakeFindDependencyMacro)'
    [ -z "$requires" ] || echo "find_dependency(${requires%%::*} CONFIG)"
    # shellcheck disable=SC2016  # the $ is CMake's
    echo 'get_filename_component(_prefix "${CMAKE_CURRENT_LIST_DIR}/../../.." ABSOLUTE)'
    for target in "$@"; do
      cat <<EOF
if(NOT TARGET $target)
    add_library($target INTERFACE IMPORTED)
    set_target_properties($target PROPERTIES
        INTERFACE_INCLUDE_DIRECTORIES "\${_prefix}/include"
        INTERFACE_COMPILE_DEFINITIONS "$definitions"
        INTERFACE_LINK_LIBRARIES "$requires")
endif()
EOF
    done
    echo 'unset(_prefix)'
  } >"$folder/${name}Config.cmake"
}

header_only fmt "$(upstream "$(installed libfmt-dev)")" \
  "FMT_HEADER_ONLY=1" "" fmt::fmt-header-only fmt::fmt
header_only spdlog "$(upstream "$(installed libspdlog-dev)")" \
  "SPDLOG_FMT_EXTERNAL" "fmt::fmt-header-only" spdlog::spdlog_header_only spdlog::spdlog
header_only tomlplusplus "$(upstream "$(installed libtomlplusplus-dev)")" \
  "TOML_HEADER_ONLY=1" "" tomlplusplus::tomlplusplus
header_only CLI11 "$(upstream "$(installed libcli11-dev)")" \
  "" "" CLI11::CLI11
header_only nlohmann_json "$(upstream "$(installed nlohmann-json3-dev)")" \
  "" "" nlohmann_json::nlohmann_json

# Boost's CMake build installs a package per library but none named Boost.
boost_upstream=$(upstream "$boost_version")
boost_config=$stage/lib/cmake/Boost-$boost_upstream
mkdir -p "$boost_config"
version_file "$boost_config" Boost "$boost_upstream"
cat >"$boost_config/BoostConfig.cmake" <<EOF
set(Boost_VERSION_STRING "$boost_upstream")
EOF
cat >>"$boost_config/BoostConfig.cmake" <<'EOF'
include(CMakeFindDependencyMacro)
get_filename_component(_boost_prefix "${CMAKE_CURRENT_LIST_DIR}/../../.." ABSOLUTE)
string(REPLACE "." ";" _boost_numbers "${Boost_VERSION_STRING}")
list(GET _boost_numbers 0 Boost_VERSION_MAJOR)
list(GET _boost_numbers 1 Boost_VERSION_MINOR)
list(GET _boost_numbers 2 Boost_VERSION_PATCH)
set(Boost_VERSION "${Boost_VERSION_STRING}")
set(Boost_INCLUDE_DIRS "${_boost_prefix}/include")
set(Boost_LIBRARY_DIRS "${_boost_prefix}/lib")
set(Boost_LIBRARIES)
foreach(_boost_target headers boost)
    if(NOT TARGET Boost::${_boost_target})
        add_library(Boost::${_boost_target} INTERFACE IMPORTED)
        set_target_properties(Boost::${_boost_target} PROPERTIES
            INTERFACE_INCLUDE_DIRECTORIES "${_boost_prefix}/include")
    endif()
endforeach()
foreach(_boost_component ${Boost_FIND_COMPONENTS})
    if(NOT _boost_component MATCHES "^(headers|boost)$")
        find_package(boost_${_boost_component} ${Boost_VERSION_STRING} EXACT QUIET CONFIG
            PATHS "${_boost_prefix}" NO_DEFAULT_PATH)
        set(Boost_${_boost_component}_FOUND ${boost_${_boost_component}_FOUND})
    else()
        set(Boost_${_boost_component}_FOUND TRUE)
    endif()
    if(Boost_${_boost_component}_FOUND)
        list(APPEND Boost_LIBRARIES Boost::${_boost_component})
    elseif(Boost_FIND_REQUIRED_${_boost_component})
        set(Boost_FOUND FALSE)
        set(Boost_NOT_FOUND_MESSAGE "Boost was built without ${_boost_component}")
    endif()
endforeach()
unset(_boost_component)
unset(_boost_numbers)
unset(_boost_prefix)
unset(_boost_target)
EOF
# Boost.System is header-only now; an empty archive is for projects that still link it.
(cd "$stage/lib" && "$triple-ar" qcD libboost_system.a)

# ---------------------------------------------------------------- finish

versions >"$stage/versions.txt"

# pkg-config files contain the path of the build folder, and nothing here uses them.
rm -rf "$stage/lib/pkgconfig"

for library in boost_thread boost_filesystem boost_chrono boost_atomic boost_system \
               PocoFoundation PocoNet gtest gtest_main gmock gmock_main; do
  [ -s "$stage/lib/lib$library.a" ] || die "lib$library.a was not built"
done
if grep -rlF -- "$work" "$stage" >&2; then
  die "the files above contain the path of the build folder"
fi

mv -T "$stage" "$prefix"
say "done"
printf '%s\n' "$prefix"
exit 0
}
