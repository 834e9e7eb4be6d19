#!/usr/bin/env bash
# The library compiles alone, by each compiler that is here, in C++20 without exceptions and RTTI, its
# header also in C99; it needs nothing but the C library and the mathematics of the compiler, and
# holds no writable data.
set -euo pipefail
cd "$(dirname "$0")/../.."
out=$(mktemp -d)
trap 'rm -rf "$out"' EXIT

failed=0
for pair in g++:gcc clang++:clang; do
    cxx=${pair%:*} cc=${pair#*:}
    if ! command -v "$cxx" >/dev/null || ! command -v "$cc" >/dev/null; then
        echo "$cxx: not here, left out"
        continue
    fi
    objects=()
    for source in tamrik/*.cpp; do
        object="$out/$(basename "$source").$cxx.o"
        "$cxx" -std=c++20 -fno-exceptions -fno-rtti -Wall -Wextra -Wpedantic -Werror -O2 -I . \
            -c "$source" -o "$object" || failed=1
        objects+=("$object")
    done
    for define in NOTHING ERRNO_FIRST; do
        "$cc" -std=c99 -pedantic -Wall -Wextra -Werror -D"$define" -I . tests/tamrik/c99_use.c \
            "${objects[@]}" -o "$out/c99" || failed=1
        "$out/c99" || { echo "$cc, $define: exit status $?"; failed=1; }
    done
    # Mangled names and the C++ runtime begin with _Z, __cxa and __gxx.
    if nm -u "${objects[@]}" | grep -E ' (_Z|__cxa|__gxx|_Unwind)'; then
        echo "$cxx: the library needs the C++ runtime"
        failed=1
    fi
    if nm "${objects[@]}" | grep -E ' [BbCDd] '; then
        echo "$cxx: the library holds writable data"
        failed=1
    fi
done
exit "$failed"
