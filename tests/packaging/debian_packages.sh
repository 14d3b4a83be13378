#!/bin/sh -e
# Makes the Debian packages of a build directory ($2) with cpack ($1), installs them into a directory of
# their own ($3/root), and looks whether they ask for what they need.

"$1" --config "$2/CPackConfig.cmake" -B "$3"
for package in "$3"/*.deb "$3"/*.ddeb; do
    dpkg-deb -x "$package" "$3/root"
done

runtime=$(dpkg-deb -f "$3"/libemsutil[0-9]*.deb Depends)
development=$(dpkg-deb -f "$3"/libemsutil-dev_*.deb Depends)
echo "the libraries depend on $runtime"
echo "the development files depend on $development"
case $runtime in *libace-*libc6*libstdc++6*) ;; *) exit 1 ;; esac
case $development in *'libemsutil'[0-9]*' (= '*libace-dev*) ;; *) exit 1 ;; esac
"$3/root/usr/bin/emshost" "$3/root/usr/share/emsutil/examples/tour.ems"

# gdb finds the debug information of a stripped library by the library's build id.
library=$(find "$3/root/usr/lib" -name "libemsutil.so.*.*")
id=$(readelf -n "$library" | sed -n 's/.*Build ID: \(..\)/\1\//p')
dpkg-deb -c "$3"/libemsutil[0-9]*-dbgsym_*.ddeb | grep -F "/usr/lib/debug/.build-id/$id.debug"
readelf -S "$3/root/usr/lib/debug/.build-id/$id.debug" | grep -F .debug_info

# gdb loads the script with the library by the path of both.
[ -e "$3/root/usr/share/gdb/auto-load${library#"$3/root"}-gdb.py" ]
"$3/root/usr/bin/emsutil-inspect" 99999999 2>&1 | grep -F 'there is no such process'

# A program that is linked with the library gets its dependency from the symbols file.
dpkg-deb -I "$3"/libemsutil1_*.deb symbols | grep -F EmsUtilVersion
find "$3/root/usr/share/doc" -name copyright -exec grep -l 'No licence has been chosen' {} + | grep -c . | grep -xF 3
