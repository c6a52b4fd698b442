#!/bin/bash
# Builds the third-party libraries of the Windows library for x86_64-w64-mingw32
# and prints the folder they were installed to as the last line on stdout.
# Everything else goes to stderr.
#
#   prefix=$(scripts/windows-deps.sh)
#   cmake -DCMAKE_TOOLCHAIN_FILE=cmake/toolchain-mingw64.cmake \
#         -DFENLUX_WINDOWS_PREFIX="$prefix" ...
#
# Boost and POCO come from Debian's source packages, GoogleTest, fmt, spdlog,
# toml++ and CLI11 from the installed packages (cmake/packages-windows.txt).
# The machine's own apt configuration is read and never changed.
#
# The result is kept outside the source tree, in
#   ${FENLUX_CACHE:-${XDG_CACHE_HOME:-$HOME/.cache}/fenlux}/windows-<key>
# where the key stands for all that goes into it. A folder of that name is
# always complete, because it gets its name by a rename at the very end.
#
# FENLUX_JOBS   compile jobs at once (default: number of processors)

set -euo pipefail
{ # read as a whole, so that a change of this file does not reach a running build
export LC_ALL=C
umask 022

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
forwarders=$here/../cmake/mingw-include
triple=x86_64-w64-mingw32
jobs=${FENLUX_JOBS:-$(nproc)}
cache=${FENLUX_CACHE:-${XDG_CACHE_HOME:-$HOME/.cache}/fenlux}

say() { printf 'windows-deps: %s\n' "$*" >&2; }
die() { say "$*"; exit 1; }

# ---------------------------------------------------------------- inputs

# The source version behind the binary package that apt would install now.
# Machines whose package lists were deleted fall back to the second argument.
candidate() {
    local version
    version=$(apt-cache show --no-all-versions "$1" 2>/dev/null | awk '
        /^Version: /             { version = $2 }
        /^Source: .*\(.*\)$/     { source = $3; gsub(/[()]/, "", source) }
        END                      { print source != "" ? source : version }') || true
    printf '%s\n' "${version:-$2}"
}

installed() {
    dpkg-query -W -f '${Version}' "$1" 2>/dev/null ||
        die "package $1 is not installed, see cmake/packages-windows.txt"
}

required=(g++-mingw-w64-x86-64-posix gcc-mingw-w64-x86-64-posix
          binutils-mingw-w64-x86-64 mingw-w64-x86-64-dev
          googletest libfmt-dev libspdlog-dev libtomlplusplus-dev libcli11-dev)
for package in "${required[@]}"; do
    installed "$package" >/dev/null
done
for tool in cmake ninja dpkg-source flock "$triple-g++-posix" "$triple-windmc"; do
    command -v "$tool" >/dev/null || die "$tool is missing, see cmake/packages-windows.txt"
done

# The key covers versions, this script and the forwarding headers.
key_of() {
    {
        printf 'boost1.81 %s\npoco %s\n' "$1" "$2"
        for package in "${required[@]}"; do
            printf '%s %s\n' "$package" "$(installed "$package")"
        done
        "$triple-g++-posix" -dumpfullversion
        cat "$here/windows-deps.sh"
        for header in "$forwarders"/*.h; do
            printf '%s\n' "${header##*/}"
            cat "$header"
        done
    } | sha256sum | cut -c1-16
}

boost_version=$(candidate libboost1.81-dev 1.81.0-5+deb12u1)
poco_version=$(candidate libpoco-dev 1.11.0-3+deb12u1)
key=$(key_of "$boost_version" "$poco_version")
prefix=$cache/windows-$key
if [ -d "$prefix" ]; then
    printf '%s\n' "$prefix"
    exit 0
fi

mkdir -p "$cache"
cache=$(cd "$cache" && pwd)

# One build at a time; whoever waited finds the work done.
exec 9>"$cache/windows-deps.lock"
flock 9
prefix=$cache/windows-$key
if [ -d "$prefix" ]; then
    printf '%s\n' "$prefix"
    exit 0
fi

work=$(mktemp -d "$cache/.windows-build.XXXXXX")
log=$cache/windows-deps.log
: >"$log"
finish() {
    local status=$?
    rm -rf "$work"
    if [ $status -ne 0 ]; then
        say "failed; the end of $log:"
        tail -n 30 "$log" >&2
    fi
}
trap finish EXIT
trap 'exit 129' HUP
trap 'exit 130' INT
trap 'exit 143' TERM

# ---------------------------------------------------------------- sources

# Rewrites the machine's binary package sources as source package sources,
# keeping only the main component of the running Debian release: other vendors'
# archives are of no use here and are not contacted.
mkdir -p "$work/apt/parts" "$work/apt/state/lists/partial" \
         "$work/apt/cache/archives/partial" "$work/src"
codename=$(. /etc/os-release && printf '%s' "$VERSION_CODENAME")
eval "$(apt-config shell apt_list Dir::Etc::sourcelist/f apt_parts Dir::Etc::sourceparts/d)"

for list in "$apt_list" "${apt_parts%/}"/*.list; do
    [ -f "$list" ] || continue
    awk -v codename="$codename" '
        BEGIN { wanted = "^(" codename "|stable|oldstable)(-updates|-security|/updates)?$" }
        /^[ \t]*deb[ \t]/ {
            sub(/^[ \t]*deb[ \t]+/, "")
            sub(/[ \t]#.*/, "")
            options = ""
            if (match($0, /^\[[^]]*\][ \t]*/)) {
                options = substr($0, 1, RLENGTH)
                $0 = substr($0, RLENGTH + 1)
            }
            main = 0
            for (i = 3; i <= NF; ++i)
                if ($i == "main")
                    main = 1
            if ($1 !~ /^cdrom:/ && $1 ~ /debian/ && $2 ~ wanted && main)
                print "deb-src " options $1, $2, "main"
        }' "$list"
done | sort -u >"$work/apt/sources.list"

number=0
for list in "${apt_parts%/}"/*.sources; do
    [ -f "$list" ] || continue
    number=$((number + 1))
    awk -v codename="$codename" '
        BEGIN { wanted = "^(" codename "|stable|oldstable)(-updates|-security|/updates)?$" }
        function flush_stanza(   words, count, i, kept) {
            count = split(suites, words, /[ \t]+/)
            kept = ""
            for (i = 1; i <= count; ++i)
                if (words[i] ~ wanted)
                    kept = kept " " words[i]
            if ((" " types " ") ~ /[ \t]deb[ \t]/ && (" " components " ") ~ /[ \t]main[ \t]/ &&
                enabled && others ~ /[Uu][Rr][Ii][Ss]:[^:]*:[^\n]*debian/ && kept != "")
                printf "Types: deb-src\nSuites:%s\nComponents: main\n%s\n", kept, others
            types = suites = components = others = field = ""
            enabled = 1
        }
        BEGIN { flush_stanza() }
        /^#/ { next }
        /^[ \t]*$/ { flush_stanza(); next }
        {
            value = $0
            if ($0 ~ /^[^ \t]/) {
                field = tolower($0)
                sub(/[ \t]*:.*/, "", field)
                sub(/^[^:]*:[ \t]*/, "", value)
            }
            if (field == "types") types = types " " value
            else if (field == "suites") suites = suites " " value
            else if (field == "components") components = components " " value
            else if (field == "enabled") enabled = tolower(value) !~ /^(no|false|without|off|disable|0)/
            else if (field != "architectures") others = others $0 "\n"
        }
        END { flush_stanza() }' "$list" >"$work/apt/parts/$number.sources"
done

apt_options=(
    -o Dir::Etc::sourcelist="$work/apt/sources.list"
    -o Dir::Etc::sourceparts="$work/apt/parts"
    -o Dir::State="$work/apt/state"
    -o Dir::Cache="$work/apt/cache"
    -o Acquire::Languages=none
    -o APT::Sandbox::User=root
)
say "reading the lists of source packages"
apt-get "${apt_options[@]}" update >>"$log" 2>&1

# Takes the wanted version, or the newest there is once the archive dropped it.
offered() {
    local versions version newest=
    versions=$(apt-cache "${apt_options[@]}" showsrc --only-source "$1" 2>>"$log" |
        awk '/^Version: /{print $2}')
    for version in $versions; do
        if [ "$version" = "$2" ]; then
            printf '%s\n' "$version"
            return
        fi
        if [ -z "$newest" ] || dpkg --compare-versions "$version" gt "$newest"; then
            newest=$version
        fi
    done
    [ -n "$newest" ] || die "no source package $1 in the configured sources"
    say "$1 $2 is not offered any more, taking $newest"
    printf '%s\n' "$newest"
}
boost_version=$(offered boost1.81 "$boost_version")
poco_version=$(offered poco "$poco_version")
key=$(key_of "$boost_version" "$poco_version")
prefix=$cache/windows-$key
if [ -d "$prefix" ]; then
    printf '%s\n' "$prefix"
    exit 0
fi

say "fetching boost1.81 $boost_version and poco $poco_version"
(
    cd "$work/src"
    apt-get "${apt_options[@]}" source --download-only \
        "boost1.81=$boost_version" "poco=$poco_version" >>"$log" 2>&1
    dpkg-source --no-copy -x boost1.81_*.dsc boost >>"$log" 2>&1
    dpkg-source --no-copy -x poco_*.dsc poco >>"$log" 2>&1
)
cp -r /usr/src/googletest "$work/src/googletest"

# ---------------------------------------------------------------- builds

stage=$work/stage
mkdir -p "$stage/include" "$stage/lib/cmake"

# The forwarding headers are installed as well: POCO's own headers use them.
cp "$forwarders"/*.h "$stage/include/"

# cross NAME [OPTION...]: configures, builds and installs $work/src/NAME.
# The paths of the build are mapped away, so that nothing of them is left in
# the archives and two builds give the same bytes.
cross() {
    local name=$1
    shift
    say "building $name"
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
        "$@" >>"$log" 2>&1
    cmake --build "$work/build/$name" -j "$jobs" >>"$log" 2>&1
    cmake --install "$work/build/$name" >>"$log" 2>&1
}

# Without the "synchronization" import library Boost.Atomic looks its functions up
# at run time; with it, everything linked here would depend on an API set's name.
cross boost -DBOOST_INCLUDE_LIBRARIES="thread;filesystem;system" -DBOOST_INSTALL_LAYOUT=system \
    -DBOOST_ATOMIC_HAS_SYNCHRONIZATION_LIB=OFF

poco_off=()
for part in ACTIVERECORD ACTIVERECORD_COMPILER APACHECONNECTOR CRYPTO DATA DATA_MYSQL \
            DATA_ODBC DATA_POSTGRESQL DATA_SQLITE ENCODINGS JWT MONGODB NETSSL \
            PAGECOMPILER PAGECOMPILER_FILE2PAGE REDIS TESTS UTIL XML ZIP; do
    poco_off+=("-DENABLE_$part=OFF")
done
cross poco "${poco_off[@]}" -DCMAKE_MC_COMPILER="$(command -v "$triple-windmc")"

# A static PocoNet starts Winsock from a static object in Net.cpp, which only gets
# linked when something asks for a symbol of that file.
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
# All of Boost's headers, not only those its three libraries need themselves.
for include in "$work"/src/boost/libs/*/include "$work"/src/boost/libs/*/*/include; do
    if [ -d "$include/boost" ]; then
        cp -r "$include/boost" "$stage/include/"
    fi
done
cp -rL /usr/include/fmt /usr/include/spdlog /usr/include/toml++ /usr/include/CLI "$stage/include/"

# ---------------------------------------------------------------- package configs

upstream() { # strips epoch, Debian revision and repack suffix from a version
    local version=${1#*:}
    version=${version%-*}
    printf '%s\n' "${version%%+*}"
}

version_file() { # FOLDER NAME VERSION
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
# Boost.System has no code of its own left; an empty archive of that name serves
# whoever still asks for one.
(cd "$stage/lib" && "$triple-ar" qcD libboost_system.a)

# ---------------------------------------------------------------- finish

{
    printf 'boost1.81 %s\npoco %s\n' "$boost_version" "$poco_version"
    for package in "${required[@]}"; do
        printf '%s %s\n' "$package" "$(installed "$package")"
    done
} >"$stage/versions.txt"

# pkg-config files name the temporary folder, and nothing here uses them.
rm -rf "$stage/lib/pkgconfig"

for library in boost_thread boost_filesystem boost_chrono boost_atomic boost_system \
               PocoFoundation PocoNet PocoJSON gtest gtest_main gmock gmock_main; do
    [ -s "$stage/lib/lib$library.a" ] || die "lib$library.a was not built"
done
if grep -rlF -- "$work" "$stage" >&2; then
    die "the files above hold the path of the temporary build folder"
fi

mv -T "$stage" "$prefix"
say "done"
printf '%s\n' "$prefix"
exit 0
}
