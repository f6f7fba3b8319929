#!/usr/bin/env python3
"""Adapts what hidl-gen wrote to the host, changing as little as possible.

sources SRC DST: hidl-gen's types.cpp holds the member functions of every safe union
(constructors, accessors, destruction) and the code that marshals types into binder parcels. The
host has no binder, so the second part and the includes it needs are dropped; the rest is compiled
as written.

header FILE: the enumerator lists a types.h specialises (hidl_enum_values<E>) are declared
'constexpr' without 'inline'. Clang 14 gives such a specialisation external linkage, so every
translation unit that includes the header would define it; they are made 'inline', which is what
they mean.
"""
import re
import sys

BINDER_INCLUDES = re.compile(r'#include <(hidl/Static\.h|hwbinder/.*|.*/hwtypes\.h)>')
PARCEL_FUNCTION = re.compile(r'^::android::status_t (readEmbeddedFromParcel|writeEmbeddedToParcel)\(')
ENUM_VALUES = re.compile(r'^template<> constexpr (std::array<.*> hidl_enum_values<)')


def strip_binder_code(lines):
    kept = []
    skipping = False
    for line in lines:
        if skipping:
            if line.rstrip('\n') == '}':
                skipping = False
            continue
        if PARCEL_FUNCTION.match(line):
            skipping = True
            continue
        if BINDER_INCLUDES.match(line):
            continue
        kept.append(line)
    if skipping:
        sys.exit('unterminated parcel function in hidl-gen output')
    return kept


def main():
    mode = sys.argv[1]
    if mode == 'sources':
        source, target = sys.argv[2], sys.argv[3]
        with open(source) as f:
            lines = f.readlines()
        with open(target, 'w') as f:
            f.write('// Written by hidl-gen; binder marshalling removed for the host.\n')
            f.writelines(strip_binder_code(lines))
    elif mode == 'header':
        path = sys.argv[2]
        with open(path) as f:
            text = f.read()
        lines = [ENUM_VALUES.sub(r'template<> inline constexpr \1', line)
                 for line in text.splitlines(keepends=True)]
        with open(path, 'w') as f:
            f.writelines(lines)
    else:
        sys.exit('usage: adapt_generated.py sources SRC DST | header FILE')


if __name__ == '__main__':
    main()
