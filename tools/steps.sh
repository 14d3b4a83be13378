# shellcheck shell=bash disable=SC2034,SC2154 # used by, and set by, the scripts that source this
# What ./demo, ./check, .ci/run and the scripts in bench/ have in common. A script sets `script`, its
# name in messages, and `folder`, its build folder, and sources this from the repository's root.

set -u -o pipefail

BUILD_PACKAGES=(g++ cmake ninja-build pkg-config libace-dev libcli11-dev)
TEST_PACKAGES=(libgtest-dev dpkg-dev file)
CI_PACKAGES=(git clang clang-tidy clang-format libclang-rt-14-dev doxygen graphviz mandoc)
BENCH_PACKAGES=(libbenchmark-dev valgrind python3 gnuplot-nox)
PEER_PACKAGES=(libabsl-dev libboost-dev libgoogle-glog-dev libpoco-dev libspdlog-dev libtbb-dev)

fail() {
    echo "$script: $1" >&2
    exit 1
}

# step TEXT COMMAND...: says TEXT and runs the command. What it prints goes into a log, named after
# the first word of TEXT, and is shown only when the command fails.
step() {
    local text=$1 log=$folder/${1%% *}.log started=$SECONDS
    shift
    mkdir -p "$folder" || fail "the folder $folder cannot be made"
    printf '%s: %s' "$script" "$text"
    # Whoever waits at a terminal sees the line first and the time when it is over.
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
    # shellcheck disable=SC2016 # dpkg-query fills these in
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
    # One source of several that cannot be reached is no reason to stop: the install decides.
    "${apt[@]}" update
    "${apt[@]}" install --yes --no-install-recommends "${missing[@]}"
}

# Without Debian's packages only commands can be looked for; CMake tells which library is missing.
need_commands() {
    local package command missing=()
    for package; do
        case $package in
            lib* | dpkg-dev) continue ;;
            ninja-build) command=ninja ;;
            clang) command=clang++ ;;
            graphviz) command=dot ;;
            *) command=$package ;;
        esac
        command -v "$command" >/dev/null || missing+=("$command")
    done
    [ ${#missing[@]} -eq 0 ] ||
        fail "there is no apt-get to install what is missing; please install ${missing[*]}"
}

configure() {
    cmake -S . -B "$folder" -G Ninja "$@" && return
    echo "Remove $folder if it is of another source folder or of another generator."
    return 1
}

build() {
    cmake --build "$folder"
}

# run_tests TEXT [OPTIONS]: says TEXT and runs every test, with ctest's OPTIONS. Of what ctest prints
# the closing lines and the output of a failed test are shown; all of it is in the log.
run_tests() {
    local text=$1 log=$folder/testing.log
    shift
    echo "$script: $text"
    ctest --test-dir "$folder" "$@" --output-on-failure --no-tests=error \
        --parallel "$(nproc)" 2>&1 | tee "$log" |
        sed -u -E '/^Internal ctest changing|^Test project |^ +Start +[0-9]+: | Passed +[0-9.]+ sec/d; /^$/d' ||
        fail "$text failed; the whole log is $log"
}
