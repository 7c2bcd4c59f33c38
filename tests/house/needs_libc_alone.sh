#!/usr/bin/env bash
# The program named needs the C library at run time, and nothing else.
needed=$(readelf -d "$1" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p')
[ "$needed" = libc.so.6 ] || { echo "$1 needs: $needed"; exit 1; }
