# shellcheck shell=bash disable=SC2034,SC2154 # used by, and set by, the scripts that source this
# The steps that ./demo, ./check, .ci/run and the scripts in tools/ and bench/ share. A script must set
# `script` to its name in messages and `preset` to a preset of CMakePresets.json, and source this file
# in the repository's root. `directory` is then the build directory of the preset.

set -u -o pipefail

use_preset() {
    preset=$1
    directory=${EMSUTIL_BUILD_DIR:-build}/$preset
}

use_preset "$preset"

BUILD_PACKAGES=(g++ cmake ninja-build pkg-config libace-dev libcli11-dev libedit-dev nlohmann-json3-dev)
TEST_PACKAGES=(libgtest-dev dpkg-dev file gdb)
CI_PACKAGES=(git clang clang-tidy clang-format libclang-rt-14-dev doxygen graphviz mandoc lintian
    flake8)
COMPILER_PACKAGES=(g++-11 g++-12 clang-14 clang-16 clang-19)
BENCH_PACKAGES=(libbenchmark-dev valgrind python3 gnuplot-nox)
PEER_PACKAGES=(libboost-dev libpoco-dev libspdlog-dev libtbb-dev)

fail() {
    echo "$script: $1" >&2
    exit 1
}

# step TEXT COMMAND...: prints TEXT and runs the command. Its output goes into a log, named after the
# first word of TEXT, and is shown only if the command fails.
step() {
    local text=$1 log=$directory/${1%% *}.log started=$SECONDS
    shift
    mkdir -p "$directory" ||
        fail "the directory $directory cannot be created; EMSUTIL_BUILD_DIR may name another one for it"
    printf '%s: %s' "$script" "$text"
    # A terminal shows the line at once, and behind it the time that the step took.
    [ -t 1 ] || echo
    if ! "$@" >"$log" 2>&1; then
        [ ! -t 1 ] || echo
        tail -n 30 "$log" >&2
        fail "$text failed; the whole log is $log"
    fi
    [ ! -t 1 ] || echo " ($((SECONDS - started)) s)"
}

# need PACKAGE...: installs the Debian packages that are missing.
need() {
    local installed package missing=() as_root=()
    if ! command -v apt-get >/dev/null || ! command -v dpkg-query >/dev/null; then
        need_commands "$@"
        return
    fi
    # shellcheck disable=SC2016 # dpkg-query replaces these
    installed=$(dpkg-query -W -f '${Package} ${db:Status-Status}\n' "$@" 2>/dev/null)
    for package; do
        grep -qxF "$package installed" <<<"$installed" || missing+=("$package")
    done
    if [ ${#missing[@]} -eq 0 ]; then
        return
    fi
    if [ "$(id -u)" -ne 0 ]; then
        command -v sudo >/dev/null ||
            fail "only root or a user with sudo can install what is missing: ${missing[*]}"
        as_root=(sudo)
    fi
    step "installing ${missing[*]}" install_packages
}

install_packages() {
    local apt=("${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get)
    # If one of several package sources cannot be reached, the installation may still succeed.
    "${apt[@]}" update
    "${apt[@]}" install --yes --no-install-recommends "${missing[@]}"
}

# Without Debian's packages this finds only missing commands. CMake names a missing library.
need_commands() {
    local package command missing=()
    for package; do
        case $package in
            lib* | dpkg-dev) continue ;;
            ninja-build) command=ninja ;;
            clang) command=clang++ ;;
            clang-1[0-9]) command=clang++-${package#clang-} ;;
            gnuplot-nox) command=gnuplot ;;
            graphviz) command=dot ;;
            *) command=$package ;;
        esac
        command -v "$command" >/dev/null || missing+=("$command")
    done
    [ ${#missing[@]} -eq 0 ] ||
        fail "there is no apt-get to install what is missing; please install ${missing[*]}"
}

configure() {
    cmake --preset "$preset" -B "$directory" "$@" && return
    echo "Remove $directory if another source directory or another generator has used it."
    return 1
}

build() {
    cmake --build "$directory"
}

# run_tests TEXT [OPTIONS]: prints TEXT and runs every test, with ctest's OPTIONS. It shows the closing
# lines of ctest and the output of a failed test; the log has all of it.
run_tests() {
    local text=$1 log=$directory/testing.log
    shift
    echo "$script: $text"
    ctest --test-dir "$directory" "$@" --output-on-failure --no-tests=error \
        --parallel "$(nproc)" 2>&1 | tee "$log" |
        sed -u -E '/^Internal ctest changing|^Test project |^ +Start +[0-9]+: | Passed +[0-9.]+ sec/d; /^$/d' ||
        fail "$text failed; the whole log is $log"
}
