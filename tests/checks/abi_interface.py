#!/usr/bin/env python3
# SPDX-License-Identifier: LGPL-2.1-or-later
"""Writes the public interface as a C source in which every declaration has a body.

    abi_interface.py COMPILER INCLUDE HEADER...

The sources of the libraries include the same headers, and the compiler refuses a definition with C linkage that
differs from its declaration. So what this source shows is the interface of the libraries, whatever they are
compiled with, and it takes a second to compile.
"""
import re
import subprocess
import sys

compiler, include, *headers = sys.argv[1:]
includes = ''.join(f'#include "{header}"\n' for header in headers)
text = subprocess.run([compiler, '-std=c11', '-E', '-P', '-I', include, '-DORVA_SI_API=exported', '-x', 'c', '-'],
                      input=includes, stdout=subprocess.PIPE, text=True, check=True).stdout

print(includes)
for declaration in re.findall(r'\bexported\s+([^;]*);', text):
    declaration = re.sub(r'__attribute__\s*\(\(.*\)\)\s*$', '', ' '.join(declaration.split())).strip()
    print(declaration + (' { __builtin_trap(); }' if declaration.endswith(')') else ';'))

# Records that travel as an address in a number, and the codes, are in no declaration.
ours = text[text.index('SiWord;'):]
for number, name in enumerate(re.findall(r'\b((?:struct|enum) \w+) \{', ours)):
    print(f'static __attribute__((used)) {name} kept_{number};')
