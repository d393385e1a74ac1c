#!/usr/bin/env python3
# SPDX-License-Identifier: LGPL-2.1-or-later
"""Compares the descriptors in what `orva-si scan --json` printed with a golden file.

usage: compare_descriptors.py GOLDEN.json OURS.json

Asked for are delivery, frequency lists, logical channel numbers, linkage, data broadcast, NVOD references, CA, teletext,
subtitles and languages of audio, of every complete table that was broadcast with one content only. The last line is
always `N descriptor facts, M wrong`; the exit status is 0 only when M is 0, and N is not 0 where the golden file has
such descriptors in any complete table.
"""
import json
import sys

NORDIG = 0x29

facts = 0
wrong = 0
shown = 0


def fault(text):
    global wrong, shown
    wrong += 1
    if shown < 40:
        shown += 1
        print(text)


def check(label, expected, actual):
    global facts
    facts += 1
    if expected != actual:
        fault(f"{label}: expected {expected!r}, got {actual!r}")


def check_list(label, expected, actual):
    """Every item of a list in its place, and no more of them."""
    for at, item in enumerate(expected):
        check(f"{label} {at}", item, actual[at] if at < len(actual) else None)
    if len(actual) > len(expected):
        fault(f"{label}: {len(actual)} items, not {len(expected)}")


def descriptors(entry, name):
    return [d for d in entry.get("descriptors", []) if d.get("descriptor") == name and not d.get("malformed")]


def tagged(entry, tag):
    return [d for d in entry.get("descriptors", []) if d["tag"] == tag and not d.get("malformed")]


def single_content(table):
    """No change of content without a change of version: which of them came last is not known."""
    return not any("crc32_all" in s for v in table.get("versions", []) for s in v.get("sections", []))


def comparable(table):
    return table["complete"] and single_content(table)


# ---- NIT

def expected_linkage(linkage):
    return [linkage["transport_stream_id"], linkage["original_network_id"], linkage["service_id"],
            linkage["linkage_type"], [int(o["oui"], 16) for o in linkage.get("OUI_data", [])]]


def our_linkage(linkage):
    return [linkage["transport_stream_id"], linkage["original_network_id"], linkage["service_id"],
            linkage["linkage_type"], linkage.get("OUI", [])]


def bcd(digits, unit):
    return int(digits) * unit if digits.isdigit() else None


def satellite(d):
    generation = "DVB-S2" if d["modulation_system"] else "DVB-S"
    tenths = bcd(d["orbital_position_hex"], 1)
    return {"system": generation, "frequency_Hz": bcd(d["frequency_hex"], 10000),
            "orbital_position": None if tenths is None else tenths / 10, "west_east_flag": d["west_east_flag"],
            "polarisation": d["polarization"], "roll_off": d["roll_off"], "modulation_system": d["modulation_system"],
            "modulation_type": d["modulation_type"], "symbol_rate": bcd(d["symbol_rate_hex"], 100),
            "FEC_inner": d["FEC_inner"]}


def cable(d):
    return {"system": "DVB-C", "frequency_Hz": bcd(d["frequency_hex"], 100), "FEC_outer": d["FEC_outer"],
            "modulation": d["modulation"], "symbol_rate": bcd(d["symbol_rate_hex"], 100), "FEC_inner": d["FEC_inner"]}


def terrestrial(d):
    frequency = d["centre_frequency_10Hz"]
    same = ("bandwidth", "priority", "Time_Slicing_indicator", "MPE-FEC_indicator", "constellation",
            "hierarchy_information", "guard_interval", "transmission_mode", "other_frequency_flag")
    return {"system": "DVB-T", "centre_frequency_Hz": None if frequency == 0xFFFFFFFF else frequency * 10,
            "code_rate-HP_stream": d["code_rate_HP"], "code_rate-LP_stream": d["code_rate_LP"],
            **{field: d[field] for field in same}}


def second_terrestrial(d):
    t2 = d["T2_delivery_system"]
    fields = {"system": "DVB-T2", "plp_id": t2["plp_id"], "T2_system_id": t2["T2_system_id"]}
    for field in ("SISO_MISO", "bandwidth", "guard_interval", "transmission_mode", "other_frequency_flag", "tfs_flag"):
        if field in t2:
            fields[field] = t2[field]
    if "cells" in t2:
        fields["cells"] = [{"cell_id": c["cell_id"], "centre_frequency_Hz": [f * 10 for f in c["centre_frequencies"]]}
                           for c in t2["cells"]]
    return fields


def deliveries(stream):
    return ([satellite(d) for d in descriptors(stream, "satellite_delivery_system")] +
            [cable(d) for d in descriptors(stream, "cable_delivery_system")] +
            [terrestrial(d) for d in descriptors(stream, "terrestrial_delivery_system")] +
            [second_terrestrial(d) for d in descriptors(stream, "extension") if "T2_delivery_system" in d])


def check_delivery(label, stream, ours):
    told = deliveries(stream)
    if len(told) != 1:  # of several only one has room
        return
    mine = ours.get("delivery", {})
    for field, value in told[0].items():
        check(f"{label} {field}", value, mine.get(field, "nothing"))


def listed_frequency(coding_type, coded):
    if coding_type == 3:
        return int(coded, 16) * 10
    return bcd(coded, {1: 10000, 2: 100}[coding_type]) if coding_type in (1, 2) else None


def numbers(stream):
    """logical_channel_descriptors; one that stands under no specifier has 10 bits unless the network is Nordic."""
    return [[entry["service_id"], entry["lcn_14" if d["pds"] == NORDIG else "lcn_10"],
             entry["visible_service_flag"] == 1, d["pds"]] for d in tagged(stream, 0x83) for entry in d["entries"]]


def check_numbers(label, stream, ours):
    mine = [n for n in ours.get("lcn", []) if n["channel_list_id"] is None]
    check_list(f"{label} lcn", numbers(stream),
               [[n["service_id"], n["lcn"], n["visible"], n["private_data_specifier"] if n["specifier_sent"] else None]
                for n in mine])


def networks(golden, ours):
    mine = {n["network_id"]: n for n in ours.get("networks", [])}
    ids = [n["network_id"] for n in golden["NIT"]]
    for nit in golden["NIT"]:
        network_id = nit["network_id"]
        if not comparable(nit) or ids.count(network_id) > 1:
            continue
        network = mine.get(network_id, {})
        links = [expected_linkage(d) for entry in [nit, *nit["transport_streams"]]
                 for d in descriptors(entry, "linkage")]
        check_list(f"network {network_id} linkage", links, [our_linkage(d) for d in network.get("linkage", [])])
        streams = {t["transport_stream_id"]: t for t in network.get("transport_streams", [])}
        stream_ids = [t["transport_stream_id"] for t in nit["transport_streams"]]
        for stream in nit["transport_streams"]:
            ts = stream["transport_stream_id"]
            if stream_ids.count(ts) > 1:
                continue
            label = f"network {network_id} ts {ts}"
            own = streams.get(ts, {})
            check_delivery(label, stream, own)
            check_numbers(label, stream, own)
            lists = descriptors(stream, "frequency_list")
            check_list(f"{label} frequency", [[d["coding_type"], listed_frequency(d["coding_type"], coded)]
                                              for d in lists for coded in d["frequencies_hex"]],
                       [[f["coding_type"], f["centre_frequency_Hz"]] for f in own.get("frequencies", [])])


# ---- SDT

def services(golden, ours):
    networks_of = {}  # of two networks with one transport_stream_id the library sees one table
    for sdt in golden["SDT"]:
        networks_of.setdefault(sdt["transport_stream_id"], set()).add(sdt["original_network_id"])
    mine = {(s["transport_stream_id"], s["service_id"]): s for s in ours.get("services", [])}
    for sdt in golden["SDT"]:
        ts = sdt["transport_stream_id"]
        if not comparable(sdt) or len(networks_of[ts]) > 1:
            continue
        for service in sdt["services"]:
            own = mine.get((ts, service["service_id"]), {})
            label = f"service {ts}.{service['service_id']}"
            check_list(f"{label} linkage", [expected_linkage(d) for d in descriptors(service, "linkage")],
                       [our_linkage(d) for d in own.get("linkage", [])])
            check_list(f"{label} data_broadcast",
                       [[d["data_broadcast_id"], d["component_tag"], d["ISO_639_language_code"]]
                        for d in descriptors(service, "data_broadcast") if d["exact_length"]],
                       [[d["data_broadcast_id"], d["component_tag"], d["language"]]
                        for d in own.get("data_broadcast", [])])
            place = ("transport_stream_id", "original_network_id", "service_id")
            check_list(f"{label} NVOD reference",
                       [[r[f] for f in place] for d in descriptors(service, "NVOD_reference") for r in d["references"]],
                       [[r[f] for f in place] for r in own.get("NVOD_references", [])])
            for shifted in descriptors(service, "time_shifted_service")[:1]:
                check(f"{label} reference_service_id", shifted["reference_service_id"], own.get("reference_service_id"))


# ---- PMT

AUDIO_TYPES = (0x03, 0x04, 0x0F, 0x11)
AUDIO_DESCRIPTORS = ("AC-3", "enhanced_AC-3", "AAC", "DTS")


def is_audio(stream):
    return stream["stream_type"] in AUDIO_TYPES or any(descriptors(stream, name) for name in AUDIO_DESCRIPTORS)


def check_streams(label, pmt, own):
    mine = own.get("streams", [])
    check_list(f"{label} data_broadcast_id",
               [[s["elementary_PID"], d["data_broadcast_id"]]
                for s in pmt["streams"] for d in descriptors(s, "data_broadcast_id")],
               [[s["PID"], broadcast] for s in mine for broadcast in s["data_broadcast_id"]])
    pids = [s["elementary_PID"] for s in pmt["streams"]]
    audio = {a["PID"]: a for a in own.get("audio", [])}
    for stream in pmt["streams"]:
        pid = stream["elementary_PID"]
        if pids.count(pid) > 1 or not is_audio(stream):
            continue
        check_list(f"{label} audio {pid} language",
                   [[entry["ISO_639_language_code"], entry["audio_type"]]
                    for d in descriptors(stream, "ISO_639_language") for entry in d["languages"]],
                   [[entry["language"], entry["audio_type"]] for entry in audio.get(pid, {}).get("languages", [])])


def programs(golden, ours):
    mine = {p["program_number"]: p for p in ours.get("programs", [])}
    for pmt in golden["PMT"]:
        number = pmt["program_number"]
        if not comparable(pmt) or not pmt.get("in_pat") or number not in mine:
            continue
        own = mine[number]
        label = f"program {number}"
        cas = [d for entry in [pmt, *pmt["streams"]] for d in descriptors(entry, "CA")]
        check_list(f"{label} CA", [[d["CA_system_ID"], d["CA_PID"]] for d in cas],
                   [[d["CA_system_ID"], d["CA_PID"]] for d in own.get("CA", [])])
        check_list(f"{label} teletext",
                   [[s["elementary_PID"], p["ISO_639_language_code"], p["teletext_type"], p["magazine_number"],
                     p["page_number"]] for s in pmt["streams"] for d in descriptors(s, "teletext") for p in d["pages"]],
                   [[p["PID"], p["language"], p["teletext_type"], p["teletext_magazine_number"],
                     p["teletext_page_number"]] for p in own.get("teletext", [])])
        check_list(f"{label} subtitles",
                   [[s["elementary_PID"], e["ISO_639_language_code"], e["subtitling_type"], e["composition_page_id"],
                     e["ancillary_page_id"]]
                    for s in pmt["streams"] for d in descriptors(s, "subtitling") for e in d["subtitles"]],
                   [[e["PID"], e["language"], e["subtitling_type"], e["composition_page_id"], e["ancillary_page_id"]]
                    for e in own.get("subtitles", [])])
        check_streams(label, pmt, own)


ASKED_FOR = {"satellite_delivery_system", "cable_delivery_system", "terrestrial_delivery_system", "frequency_list",
             "linkage", "data_broadcast", "NVOD_reference", "time_shifted_service", "CA", "teletext", "subtitling",
             "data_broadcast_id", "ISO_639_language"}


def has_such(golden):
    for kind, inner in (("NIT", "transport_streams"), ("SDT", "services"), ("PMT", "streams")):
        for table in golden[kind]:
            if table["complete"]:
                for entry in [table, *table.get(inner, [])]:
                    if any(d.get("descriptor") in ASKED_FOR or d["tag"] == 0x83 for d in entry.get("descriptors", [])):
                        return True
    return False


def main():
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    with open(sys.argv[1], encoding="utf-8") as file:
        golden = json.load(file)
    with open(sys.argv[2], encoding="utf-8") as file:
        ours = json.load(file)
    networks(golden, ours)
    services(golden, ours)
    programs(golden, ours)
    print(f"{facts} descriptor facts, {wrong} wrong")
    sys.exit(1 if wrong or (facts == 0 and has_such(golden)) else 0)


if __name__ == "__main__":
    main()
