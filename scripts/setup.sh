# shellcheck shell=bash
# Installs and builds what ./run, ./test and bench/run need. Sourced; sets root to the project's
# folder.
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

# Prints the Debian packages that a job needs. debian/control names those of the build and of the
# tests: it leaves out the compiler, which every Debian build has, and debhelper is needed only to
# make packages.
packages_for() {
    case $1 in
    build | tests)
        echo g++
        sed -n '/^Build-Depends:/,/^[^ ]/s/^ //p' "$root/debian/control" |
            if [ "$1" = tests ]; then cat; else grep -v '<!nocheck>'; fi |
            sed '/^debhelper/d; s/[:, ].*//'
        ;;
    lint) printf '%s\n' clang clang-format clang-tidy mandoc shellcheck ;;
    fuzz) printf '%s\n' clang libclang-rt-dev ;;
    bench) printf '%s\n' libbenchmark-dev valgrind pkgconf libgnutls28-dev gnuplot-nox ;;
    aarch64)
        printf '%s\n' googletest g++-aarch64-linux-gnu qemu-user libssl-dev:arm64 libstdc++6:arm64
        ;;
    packages) printf '%s\n' build-essential debhelper lintian ;;
    installed) printf '%s\n' logrotate ;;
    release) printf '%s\n' mmdebstrap ;;
    esac
}

say() {
    echo "$(basename "$0"): $*" >&2
}

# Runs a command with its output in a log, and shows the log if the command fails.
quietly() {
    local log=$root/build/setup.log
    "$@" >"$log" 2>&1 </dev/null && return
    cat "$log" >&2
    say "failed: $*"
    return 1
}

# Runs a line of commands as root and says $1 first, or says what to run as root.
as_root() {
    local saying=$1 commands=$2
    local sudo=(sudo)
    if [ "$(id -u)" -eq 0 ]; then
        sudo=()
    elif ! { command -v sudo >/dev/null && sudo -v; }; then
        say "run as root: $commands"
        return 1
    fi
    say "$saying"
    quietly "${sudo[@]}" sh -ec "$commands"
}

is_installed() {
    local name=${1%:*} arch
    arch=$(dpkg --print-architecture)
    [ "$name" = "$1" ] || arch=${1#*:}
    dpkg-query -W -f='${Architecture} ${db:Status-Status}\n' "$1" 2>/dev/null |
        grep -qxE "($arch|all) installed"
}

# Installs the missing packages of the named jobs.
need() {
    command -v dpkg-query >/dev/null || return 0 # not Debian: the build names what is missing
    local missing=() job package packages
    mapfile -t packages < <(for job; do packages_for "$job"; done)
    for package in "${packages[@]}"; do
        is_installed "$package" && continue
        missing+=("$package")
        # Both architectures need the same version, so the installed one may have to be upgraded.
        [ "${package%:*}" = "$package" ] || missing+=("${package%:*}")
    done
    [ ${#missing[@]} -gt 0 ] || return 0
    local commands="apt-get update && DEBIAN_FRONTEND=noninteractive \
apt-get install -y --no-install-recommends ${missing[*]}"
    [[ "${missing[*]}" != *:arm64* ]] || commands="dpkg --add-architecture arm64 && $commands"
    as_root "installing ${missing[*]}" "$commands"
}

# Builds a preset, configuring it first if it is new or settings are given.
build() {
    local preset=$1
    shift
    cd "$root" || return
    if [ $# -gt 0 ] || [ ! -e "build/$preset/build.ninja" ]; then
        say "configuring build/$preset"
        quietly cmake --preset "$preset" "$@"
    fi
    is_built "$preset" && return
    say "building build/$preset"
    quietly cmake --build --preset "$preset"
}

is_built() {
    [[ $(cmake --build --preset "$1" -- -n) = *"no work to do"* ]]
}

# Copies the sources as they are, without build folders.
copy_sources() {
    mkdir "$1"
    tar -C "$root" --exclude=./.git --exclude='./build*' -c . | tar -C "$1" -x
}

# Runs a command while no other ./run or ./test is building in this folder: one may be piped into
# another.
with_lock() {
    mkdir -p "$root/build" 2>/dev/null || true
    if [ ! -w "$root/build" ]; then
        say "cannot write to $root/build"
        return 1
    fi
    (
        flock 9
        "$@" 9>&-
    ) 9>"$root/build/.lock"
}
