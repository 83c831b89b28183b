# shellcheck shell=bash
# What ./run, ./test and bench/run need, and how they get it. Sourced; sets root to the project's
# folder.
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

# The Debian packages that a job needs, in this one place but for debian/control, which names those
# of the build and of the tests. Every Debian build has a compiler, so it is not named there, and
# only the making of packages needs debhelper.
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

# Runs a command with its output in a log, which is shown if the command fails.
quietly() {
    local log=$root/build/setup.log
    "$@" >"$log" 2>&1 </dev/null && return
    cat "$log" >&2
    say "failed: $*"
    return 1
}

# Runs the commands of a line as root, after saying $1; where that cannot be, says what to do.
as_root() {
    local saying=$1 commands=$2
    local sudo=(sudo)
    if [ "$(id -u)" -eq 0 ]; then
        sudo=()
    elif ! { command -v sudo >/dev/null && sudo -v; }; then
        say "as root, do: $commands"
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

# Installs what is missing of the packages for the named jobs.
need() {
    command -v dpkg-query >/dev/null || return 0 # not Debian: the build says what it lacks
    local missing=() job package packages
    mapfile -t packages < <(for job; do packages_for "$job"; done)
    for package in "${packages[@]}"; do
        is_installed "$package" && continue
        missing+=("$package")
        # The versions of both architectures have to be the same, so one may have to be upgraded.
        [ "${package%:*}" = "$package" ] || missing+=("${package%:*}")
    done
    [ ${#missing[@]} -gt 0 ] || return 0
    local commands="apt-get update && DEBIAN_FRONTEND=noninteractive \
apt-get install -y --no-install-recommends ${missing[*]}"
    [[ "${missing[*]}" != *:arm64* ]] || commands="dpkg --add-architecture arm64 && $commands"
    as_root "installing ${missing[*]}" "$commands"
}

# Configures a preset, where that is still to be done or there are settings to make, and builds it.
build() {
    local preset=$1
    shift
    cd "$root" || return
    if [ $# -gt 0 ] || [ ! -e "build/$preset/build.ninja" ]; then
        say "configuring build/$preset"
        quietly cmake --preset "$preset" "$@"
    fi
    [[ $(cmake --build --preset "$preset" -- -n) = *"no work to do"* ]] || say "building build/$preset"
    quietly cmake --build --preset "$preset"
}

# Copies the sources as they are, less what was built of them.
copy_sources() {
    mkdir "$1"
    tar -C "$root" --exclude=./.git --exclude='./build*' -c . | tar -C "$1" -x
}

# Runs a command while no other ./run or ./test is at work in this folder, as when one is piped into
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
