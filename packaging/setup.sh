# What ./run and ./test need, and how they get it. Sourced, with $root set to the project's folder.

# The Debian packages of each job, in this one place.
packages_build=(g++ cmake ninja-build libssl-dev libcli11-dev nlohmann-json3-dev)
packages_test=("${packages_build[@]}" libgtest-dev openssl ca-certificates bc valgrind
    abigail-tools pkgconf python3)
packages_lint=("${packages_test[@]}" clang-format clang-tidy)
packages_fuzz=("${packages_build[@]}" clang libclang-rt-14-dev)
packages_bench=("${packages_build[@]}" libbenchmark-dev valgrind pkgconf libgnutls28-dev nettle-dev)
packages_aarch64=("${packages_test[@]}" googletest g++-aarch64-linux-gnu qemu-user
    libssl-dev:arm64 libstdc++6:arm64)
packages_packages=("${packages_aarch64[@]}" dpkg-dev file lintian)

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

# Runs a command as root; $1 says what to do by hand if that is not possible.
as_root() {
    local hint=$1
    shift
    if [ "$(id -u)" -eq 0 ]; then
        quietly "$@"
    elif command -v sudo >/dev/null; then
        quietly sudo "$@"
    else
        say "$hint"
        return 1
    fi
}

is_installed() {
    local name=${1%:*} arch
    arch=$(dpkg --print-architecture)
    [ "$name" = "$1" ] || arch=${1#*:}
    dpkg-query -W -f='${Architecture} ${db:Status-Status}\n' "$1" 2>/dev/null |
        grep -qxE "($arch|all) installed"
}

# Installs those of the named packages that are missing.
need() {
    command -v dpkg-query >/dev/null || return 0 # not Debian: the build tells what it lacks
    local missing=() package
    for package; do
        is_installed "$package" && continue
        missing+=("$package")
        # The versions of both architectures have to be the same, so one may have to be upgraded.
        [ "${package%:*}" = "$package" ] || missing+=("${package%:*}")
    done
    [ ${#missing[@]} -gt 0 ] || return 0
    local hint="these packages are missing; install them as root: apt-get install ${missing[*]}"
    say "installing ${missing[*]}"
    as_root "$hint" apt-get update
    as_root "$hint" env DEBIAN_FRONTEND=noninteractive \
        apt-get install -y --no-install-recommends "${missing[@]}"
}

# Lets packages of another architecture be installed.
need_architecture() {
    command -v dpkg >/dev/null || return 0
    dpkg --print-foreign-architectures | grep -qx "$1" && return
    as_root "as root: dpkg --add-architecture $1" dpkg --add-architecture "$1"
}

# Configures a preset, where that is still to be done or there are settings to make, and builds it.
build() {
    local preset=$1
    shift
    if [ $# -gt 0 ] || [ ! -e "$root/build/$preset/build.ninja" ]; then
        say "configuring build/$preset"
        (cd "$root" && quietly cmake --preset "$preset" "$@")
    fi
    (cd "$root" && quietly cmake --build --preset "$preset")
}

# Runs a command while no other ./run or ./test is at work in this folder, as happens when two of
# them stand in one pipe.
alone() {
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
