#!/bin/sh
# What Doxygen is to see of a header: the header with a few marks, line for line the same. The page of each
# class repeats what the top of its header says.

header=${1##*/}
exec sed -E -f docs/doxygen.sed \
    -e 's|^/// Thread safety, ownership and errors are described at the top.*|///|' \
    -e "s:^(class EMSUTIL_API|struct Ems)[A-Za-z ]*\$:/** \\\\copydetails $header */ &:" "$1"
