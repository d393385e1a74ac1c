#!/usr/bin/env python3
# SPDX-License-Identifier: LGPL-2.1-or-later
"""Looks for what the public headers do not tell, in the XML that Doxygen makes of them with EXTRACT_ALL.

    documentation.py XML

Each file, function, variable, type, member, code and macro has a comment; each argument of a function is
explained and its result. A function may leave that to
  - the function that it names in the beginning: "As X, ...", "Another name of X ...";
  - its group (@name) or the head of its header: a list under "@par Arguments" whose items begin with the names of
    arguments, and a paragraph under "@par Results".
A header with functions tells under "@par Threads and locks" where they may be called, one whose functions take or
answer addresses under "@par Memory" who owns what.
"""
import pathlib
import re
import sys
import xml.etree.ElementTree as xml

LIKE = re.compile(r'(?:As|Another name of|The same as) (\w+)')


def text_of(element):
    return '' if element is None else ' '.join(''.join(element.itertext()).split())


def brief_of(definition):
    return text_of(definition.find('briefdescription'))


def is_explained(definition):
    return bool(brief_of(definition) or text_of(definition.find('detaileddescription')))


def paragraphs(description):
    """Titled paragraphs: title -> the elements under it."""
    found = {}
    if description is not None:
        for section in description.iter('simplesect'):
            if section.get('kind') == 'par':
                found.setdefault(text_of(section.find('title')), []).append(section)
    return found


def listed_arguments(sections):
    names = set()
    for section in sections:
        for item in section.iter('listitem'):
            paragraph = item.find('para')
            head = text_of(paragraph).partition(':')[0]
            quoted = {text_of(code) for code in paragraph.iter('computeroutput')}
            names |= {name for name in re.split(r'[ ,]+', head) if name in quoted}
    return names


def own_arguments(function):
    return {text_of(name) for name in function.iterfind('detaileddescription//parameterlist//parametername')}


def own_result(function):
    return ' '.join(text_of(part) for part in function.iterfind('detaileddescription//simplesect[@kind="return"]'))


def takes_address(function):
    types = [text_of(function.find('type'))] + [text_of(p.find('type')) for p in function.iterfind('param')]
    return any('*' in name for name in types)


class Header:
    def __init__(self, compound):
        self.name = compound.findtext('compoundname')
        self.head = paragraphs(compound.find('detaileddescription'))
        self.explained = is_explained(compound)
        self.groups = [(paragraphs(section.find('description')), section) for section in compound.iterfind('sectiondef')]

    def functions(self):
        for group, section in self.groups:
            for function in section.iterfind('memberdef[@kind="function"]'):
                yield group, function


class Check:
    def __init__(self, folder):
        self.faults = []
        self.counted = {}
        self.headers = []
        compounds = [xml.parse(path).getroot().find('compounddef') for path in sorted(pathlib.Path(folder).glob('*.xml'))
                     if path.name != 'index.xml']
        self.records = [c for c in compounds if c is not None and c.get('kind') in ('struct', 'union')]
        self.headers = [Header(c) for c in compounds if c is not None and c.get('kind') == 'file']
        self.by_name = {f.findtext('name'): f for header in self.headers for _, f in header.functions()}

    def fault(self, definition, what, within=None):
        location = (definition if within is None else within).find('location')
        place = '%s:%s' % (location.get('file'), location.get('line')) if location is not None else ''
        self.faults.append(f'{place}: {definition.findtext("name") or definition.findtext("compoundname")}: {what}')

    def explained(self, definition, within=None):
        kind = definition.get('kind', definition.tag)
        self.counted[kind] = self.counted.get(kind, 0) + 1
        if not is_explained(definition):
            self.fault(definition, 'has no comment', within)

    def spoken_for(self, function):
        """The function and those that it is like."""
        chain = []
        while function is not None and function not in chain:
            chain.append(function)
            like = LIKE.match(brief_of(function))
            function = self.by_name.get(like.group(1)) if like else None
        return chain

    def function(self, header, group, function):
        if not brief_of(function):
            self.fault(function, 'does not say what it does')
        chain = self.spoken_for(function)
        explained = set().union(*map(own_arguments, chain))
        for rules in (group, header.head):
            explained |= listed_arguments(rules.get('Arguments', []))
        arguments = [p.findtext('declname') for p in function.iterfind('param') if p.findtext('declname')]
        for argument in arguments:
            if argument not in explained:
                self.fault(function, f'does not explain {argument}')
        if text_of(function.find('type')) == 'void':
            return
        results = ' '.join(map(own_result, chain))
        general = ' '.join(text_of(s) for rules in (group, header.head) for s in rules.get('Results', []))
        if not (results or general):
            self.fault(function, 'does not tell its result')
        said = ' '.join([results, general] + [text_of(f) for f in chain])
        if takes_address(function) and not re.search(r'null|NULL_ARGUMENT', said, re.IGNORECASE):
            self.fault(function, 'does not tell what null does')

    def run(self):
        for record in self.records:
            self.explained(record)
            for member in record.iterfind('sectiondef/memberdef'):
                self.explained(member)
        for header in self.headers:
            if header.name.endswith(".h") and not header.explained:
                self.faults.append(f'{header.name}: has no head')
            for _, section in header.groups:
                for definition in section.iterfind('memberdef'):
                    self.explained(definition)
                    for value in definition.iterfind('enumvalue'):
                        self.explained(value, definition)
            functions = list(header.functions())
            if functions and 'Threads and locks' not in header.head:
                self.faults.append(f'{header.name}: does not tell threads and locks')
            if any(takes_address(f) for _, f in functions) and 'Memory' not in header.head:
                self.faults.append(f'{header.name}: does not tell who owns memory')
            for group, function in functions:
                self.function(header, group, function)


check = Check(sys.argv[1])
check.run()
for line in check.faults:
    print(line)
print(', '.join(f'{count} {kind}' for kind, count in sorted(check.counted.items())))
sys.exit(1 if check.faults or check.counted.get('function', 0) == 0 else 0)
