#!/bin/sh
# shellcheck disable=SC2046,SC2086 # names have no blanks, and each is an argument of its own
# complete.sh SOURCES BUILD VERSION
#
# What is named in several files is named in all of them: a new source in a target, a new header in the
# documents, a new lock in the table of locks, a new version in the changelogs.

cd "$1" || exit 1
build=$2 version=$3 failures=0

# missing WHERE NAME...
missing() {
    where=$1
    shift
    for name; do
        echo "$where: $name is missing"
        failures=$((failures + 1))
    done
}

# absent FILE NAME...: those of the names that do not stand in the file.
absent() {
    file=$1
    shift
    for name; do
        grep -qF -- "$name" "$file" || echo "$name"
    done
}

sources=$(find agent base host tests/emshost tests/library tests/support util -name '*.cpp' | sed 's,.*/,,')
objects=$(find "$build" -name '*.cpp.o' | sed 's,.*/,,; s,\.o$,,')
for source in $sources; do
    echo "$objects" | grep -qxF "$source" || missing 'no target compiles it' "$source"
done

headers=$(cd include && ls emsutil/*.h)
missing README.md $(absent README.md $headers $(cd platform/include && ls ems*/*.h))
for header in $headers; do
    case $header in */export.h | */version.h) continue ;; esac
    service=$(basename "$header" .h)
    for file in "tests/library/${service}_test.cpp" "bench/${service}_bench.cpp"; do
        [ -f "$file" ] || missing "the service $service" "$file"
    done
    grep -qF "<$header>" "examples/guide/$service"*.cpp 2>/dev/null || missing "the service $service" examples/guide
done
missing tests/packaging/layout.cpp \
    $(absent tests/packaging/layout.cpp $(sed -nE 's/^class EMSUTIL_API ([A-Za-z]+)$/::\1)/p' include/emsutil/*.h))
missing docs/design.md \
    $(absent docs/design.md $(sed -nE 's/^    ACE_[A-Za-z_]*Mutex ([A-Za-z_]+);.*/\1/p' agent/*.h util/*.h))

for script in $(cd examples && ls -- *.ems); do
    [ "$script" = tour.ems ] || grep -qF "$script" examples/*.ems || missing 'no script runs it' "$script"
done

missing CHANGELOG.md $(absent CHANGELOG.md "## $version" | tr -d ' ')
missing cmake/debian/changelog $(absent cmake/debian/changelog "($version)")

exit $((failures > 0))
