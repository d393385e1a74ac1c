#!/usr/bin/env python3
# SPDX-License-Identifier: LGPL-2.1-or-later
"""Compares what `orva-si dump --json` printed of a recorded stream with its golden file.

compare_dump.py GOLDEN.json OURS.json

Every section printed must be one that the stream carries, by the header that it is under and its CRC_32, and every section of a
table that the stream carries whole, in one version and with one content, must be printed. The last line is always
`N facts, M wrong`; the exit status is 0 only when M is 0.
"""
import json
import sys
import zlib

golden_path, ours_path = sys.argv[1:]
with open(golden_path, encoding="utf-8") as file:
    golden = json.load(file)
with open(ours_path, encoding="utf-8") as file:
    ours = json.load(file)

EXTENSIONS = {"PAT": "transport_stream_id", "CAT": None, "PMT": "program_number", "NIT": "network_id",
              "SDT": "transport_stream_id", "BAT": "bouquet_id"}


# Each sub-table: its PID, table_id and numbers, and its golden entry.
def sub_tables():
    for table, extension in EXTENSIONS.items():
        for entry in golden[table]:
            if table != "PMT" or entry["in_pat"]:
                yield (entry["pid"], entry["table_id"], entry[extension] if extension else None, 0, 0), entry
    for service in golden["EIT"]:
        for entry in service["sub_tables"]:
            yield (0x12, entry["table_id"], service["service_id"], service["transport_stream_id"],
                   service["original_network_id"]), entry


def crcs(section):
    return section.get("crc32_all", [section["crc32"]])


broadcast = set()
whole = set()
for key, entry in sub_tables():
    versions = entry["versions"]
    steady = entry["complete"] and len(versions) == 1 and not any("crc32_all" in s for s in versions[0]["sections"])
    for version in versions:
        for section in version["sections"]:
            for crc in crcs(section):
                fact = key + (version["version_number"], version["current_next_indicator"], section["number"], crc)
                broadcast.add(fact)
                if steady and version["current_next_indicator"]:
                    whole.add(fact)


# CRC_32 of ISO/IEC 13818-1 annex A by zlib's, which takes the bits of each byte the other way round.
def mpeg_crc(data):
    def mirror(value, bits):
        return int(f"{value:0{bits}b}"[::-1], 2)
    return mirror(zlib.crc32(bytes(mirror(byte, 8) for byte in data)) ^ 0xFFFFFFFF, 32)


printed = set()
wrong = []
for table in ours["tables"]:
    name = EXTENSIONS.get(table["table"], "service_id")
    eit = table["table"] == "EIT"
    key = (table["PID"], table["table_id"], table[name] if name else None,
           table["transport_stream_id"] if eit else 0, table["original_network_id"] if eit else 0)
    for section in table["sections"]:
        data = bytes.fromhex(section["section_raw"])
        fact = key + (section["version_number"], int(section["current_next_indicator"]), section["section_number"],
                      data[-4:].hex())
        printed.add(fact)
        if mpeg_crc(data) != 0:
            wrong.append(f"damaged: {fact}")
        if fact not in broadcast:
            wrong.append(f"not broadcast: {fact}")
wrong += [f"missing: {fact}" for fact in sorted(whole - printed, key=str)]
for line in wrong[:40]:
    print(line)
print(f"{len(printed | whole)} facts, {len(wrong)} wrong")
sys.exit(1 if wrong else 0)
