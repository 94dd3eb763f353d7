#!/usr/bin/env python3
"""Writes the seed corpora of the fuzz targets into fuzz/corpus/<target>/.

Each seed is a small file in the input layout its harness reads: real frames and answers of
the recycler, garbage, and the edge cases of framing, decoding and change. Run it again after
changing a layout; the files are committed.
"""
import os
import struct

HERE = os.path.dirname(os.path.abspath(__file__))


def checksum(body):
    return (256 - sum(body) % 256) % 256


def frame(dest, src, header, data=b""):
    body = bytes([dest, len(data) & 0xFF, src, header]) + bytes(data)
    return body + bytes([checksum(body)])


def request(header, data=b""):
    return frame(55, 1, header, data)


def reply(data=b"", header=0):
    return frame(1, 55, header, data)


def write(target, name, content):
    folder = os.path.join(HERE, "corpus", target)
    os.makedirs(folder, exist_ok=True)
    with open(os.path.join(folder, name), "wb") as f:
        f.write(content)


# Answer assembly: [plan size - 1 (bit 7: no expected source)][piece sizes...][records...]
# A record byte below 0xF0 is itself; 0xF0 | bits starts a frame built by the harness (see
# fuzz_assembly.cpp): bits 0-1 addresses, bit 2 spoilt checksum, bit 3 long length.
def assembly(name, sizes, stream, any_source=False):
    first = (len(sizes) - 1) | (0x80 if any_source else 0)
    write("fuzz_assembly", name, bytes([first]) + bytes(sizes) + stream)


def record(kind, header, data=b"", corrupt=False, source=None):
    b = 0xF0 | kind | (4 if corrupt else 0)
    out = bytes([b])
    if kind == 3:
        out += bytes([source])
    if len(data) >= 16:
        out = bytes([out[0] | 8]) + out[1:] + bytes([len(data)])
    else:
        out += bytes([len(data)])
    return out + bytes([header]) + data


echo = record(1, 254)
answer = record(0, 0)
assembly("poll_whole", [255], echo + answer)
assembly("poll_bytewise", [1], echo + answer)
assembly("poll_split_3_7", [3, 7], echo + answer)
assembly("poll_with_empty_reads", [0, 2, 0, 5], echo + answer)
assembly("garbage_then_answer", [4], b"\x00\x13\x37\x01" + answer)
assembly("answer_then_trailing", [255], answer + b"\x01\x00\x37")
assembly("exactly_four", [255], b"\x01\x00\x37\x00")
assembly("length_promises_more", [255], b"\x01\x09\x37\x00\x01\x02")
assembly("length_above_250", [255], b"\x00\xfb\x00\xfc" + answer)
assembly("nak", [2], echo + record(0, 5))
assembly("busy", [2], echo + record(0, 6))
assembly("hopper_balance", [5, 9], record(1, 119, b"\x02") + record(0, 0, b"RU010A\x2c\x01"))
assembly("coins_in", [16], record(1, 82) + record(0, 0, bytes(range(32))))
assembly("long_frame_200", [64], record(0, 0, bytes(200)))
assembly("two_answers", [255], answer + record(0, 0, b"\x01\x02"))
assembly("foreign_before_answer", [7], record(1, 82) + record(2, 0, bytes(range(1, 33))) + answer)
assembly("other_device_before_answer", [255], record(3, 0, b"\x05", source=56) + answer)
assembly("other_device_any_source", [255], record(3, 0, b"\x05", source=56) + answer, any_source=True)
assembly("bad_130_byte_frame", [40], record(1, 82) + record(0, 0, bytes([1]) * 130, corrupt=True) + answer)
assembly("bad_short_frame", [3], record(0, 0, b"\x11\x22", corrupt=True) + answer)


# Answer decoding: [index int32][pos int32][count int32][number int32][mask uint16][frame]
def answer(name, data, index=0, pos=0, count=4, number=1, mask=4, header=0):
    params = struct.pack("<iiiiH", index, pos, count, number, mask)
    write("fuzz_answers", name, params + reply(data, header))


answer("activity_accepting", b"\x04\x00")
answer("activity_warning", b"\x00\x10", mask=4096)
answer("error_acceptor_jam", b"\x00\x65")
answer("error_hopper3_jam", b"\x03\x02", number=3)
answer("error_hopper3_empty", b"\x03\x01", number=3)
answer("error_need_selftest", b"\xff\xff")
answer("selfcheck_26_12", b"\x1a\x0c")
answer("selfcheck_27_12", b"\x1b\x0c")
answer("selfcheck_door", b"\x33\x00")
answer("selfcheck_delayed", b"\x23\x02")
answer("selfcheck_56", b"\x38\x00")
answer("hopper_balance", b"RU010A\x2c\x01")
answer("hopper_balance_short_id", b"RU5\x00\x00\x00")
answer("coin_id", b"RU1K0A")
answer("coins_in_4_bytes", b"\x01\x00\x02\x00")
answer("coins_in_full", bytes(range(32)))
answer("cashbox", b"\x40\xe2\x01\x00")
answer("verify_money_out", b"\x01\xdc\x05\x00\x00\x00\x00\x00\x00")
answer("clock", struct.pack("<I", 1700000000))
answer("audit_counter", b"\x10\x27\x00\x00")
answer("var_set", b"\x08\x05", index=1)
answer("input_lines", b"\x01")
answer("empty_nak", b"", header=5)
answer("getuint_past_end", b"\x01\x02\x03", pos=2, count=4)
answer("getbyte_negative", b"\x01\x02\x03", index=-1, pos=-3, count=5)
answer("getuint_wide", b"\x01\x02\x03\x04\x05\x06", pos=1, count=6)
write("fuzz_answers", "short_frame", struct.pack("<iiiiH", 0, 0, 4, 0, 0) + b"\x01\x00\x37")


# Coin identifiers: [encoding: 0 Latin-1, 1 UTF-8, 2 UTF-16][text]
def coin(name, text, encoding=0):
    raw = text.encode("utf-16-le") if encoding == 2 else text.encode("utf-8" if encoding == 1 else "latin-1")
    write("fuzz_coinid", name, bytes([encoding]) + raw)


for text in ["RU001A", "RU010A", "RU050B", "RU100A", "RU500A", "RU1K0A", "RU2K5A", "RU5K0A", "RU1M0A",
             "RU1k0A", "RU1H5A", "RU1K.A", "RU9G9A", "RU0K3A"]:
    coin(text, text)
coin("five_chars", "RU10A")
coin("seven_chars", "RU010AX")
coin("blank_after", "RU50 A")
coin("blank_before", "RU 50A")
coin("dots", "RU......"[:6])
coin("empty", "")
coin("cyrillic_utf8", "РУ1К0А", 1)
coin("utf16", "RU2K5A", 2)
# Mode 3: [3][entry of the hand-written table][country 1][country 2][issue letter].
write("fuzz_coinid", "table_RU0K7A", bytes([3, 18]) + b"XY?")
write("fuzz_coinid", "table_RU99GA", bytes([3, 17]) + bytes([0xD0, 0x00, 0xFF]))
write("fuzz_coinid", "table_last", bytes([3, 255]) + b"EU ")


# Change: [flags: bit 0 minimum mode, bit 1 wide amount][amount][units...]
# unit: [kind][width][denom][count][capacity], widths by bits 7, 6, 5 of width.
def unit(denom, count, capacity=1000, kind=1):
    kind_byte = {1: 0, 3: 210}.get(kind, kind)
    return bytes([kind_byte, 0]) + struct.pack("<HHH", denom, count, capacity)


def change(name, mode, amount, units):
    write("fuzz_change", name, bytes([mode]) + struct.pack("<I", amount) + b"".join(units))


change("minimum_1700", 1, 1700, [unit(1000, 10), unit(500, 0), unit(100, 100)])
change("optimal_2000_leaves_to_fuller", 0, 2000, [unit(1000, 2, 100), unit(500, 90, 100)])
change("optimal_5000_shift", 0, 5000, [unit(1000, 2, 100), unit(500, 90, 100)])
change("optimal_fallback", 0, 1300, [unit(1000, 1, 100), unit(500, 90, 100), unit(200, 1, 100)])
change("amount_zero", 0, 0, [unit(1000, 10)])
change("no_hoppers", 1, 500, [])
change("cashbox_only", 0, 500, [unit(0, 0, 0, kind=3)])
change("capacity_zero", 0, 1500, [unit(1000, 5, 0), unit(500, 5, 0)])
change("equal_denominations", 0, 3000, [unit(500, 2), unit(500, 3), unit(100, 50)])
change("recycler_defaults", 0, 17700, [unit(1000, 200, 800), unit(500, 250, 800), unit(200, 300),
                                      unit(100, 400), unit(50, 0, 1200), unit(0, 0, 0, kind=3)])
write("fuzz_change", "wide_counts", bytes([2]) + struct.pack("<q", 2**62) +
      bytes([0, 0xE0]) + struct.pack("<Iqi", 0xFFFFFFFF, 2**62, -1) +
      bytes([0, 0x40]) + struct.pack("<Hqh", 1, -5, 10))


# Simulator: a sequence of operations, each [op][arguments...]
#   0 raw bytes: [0][n][n bytes]
#   1 command: [1][to][header pick][n][data][cut]  (pick < 0x80 indexes the known headers)
#   3 time: [3][ms uint16]
#   4 control: [4][what][a][b]
#   5 direct answer: [5][src][header pick][n][data]
KNOWN = [1, 80, 82, 84, 85, 86, 87, 115, 116, 117, 118, 119, 120, 121, 122, 123, 124, 125, 165, 184, 192,
         231, 232, 237, 241, 242, 244, 245, 246, 247, 254]


def cmd(header, data=b"", cut=255):
    return bytes([1, 1, KNOWN.index(header), len(data)]) + bytes(data) + bytes([cut])


def raw(data):
    return bytes([0, len(data)]) + bytes(data)


def wait(ms):
    return bytes([3]) + struct.pack("<H", ms)


def control(what, a=0, b=0):
    return bytes([4, what, a, b])


def sim(name, *ops):
    write("fuzz_sim", name, b"".join(ops))


sim("identify", *[cmd(h) for h in [254, 245, 246, 244, 192, 242, 241, 247]])
sim("manifest", cmd(84, b"\x02\x01"), cmd(84, b"\x03\x08"), cmd(84, b"\x07\x05"), cmd(84, b"\x09\x00"))
sim("accept_coin", cmd(165, b"\xff"), cmd(231, b"\xff\x00"), control(0, 2), wait(300), cmd(82), cmd(123))
sim("pay_by_pattern", cmd(80, b"\x02"), cmd(85, b"\x01\x02\x04\x01"), wait(1000), cmd(123), cmd(86, b"\x50\x01"))
sim("pay_money_out", cmd(125, b"\xdc\x05\x00\x00"), wait(3000), cmd(124))
sim("purge_and_balance", cmd(121, b"\x02\x00"), wait(4000), cmd(119, b"\x02"), cmd(120, b"\x02\x10\x00"))
sim("cashbox_and_clock", cmd(117), cmd(118, b"\x40\xe2\x01\x00"), cmd(115), cmd(116, b"\x00\xf1\x53\x65"))
sim("faults", control(2, 2, 1), cmd(85, b"\x02\x01"), wait(500), cmd(122), cmd(232), control(4, 1), cmd(237),
    control(8), cmd(1), wait(3500), cmd(254))
sim("reset_while_accepting", cmd(231, b"\x0f\x00"), control(0, 1), cmd(1), wait(100), cmd(82))
sim("garbage_and_split", raw(b"\xff\x00\x13\x37"), cmd(254, cut=2), raw(b"\x37\x00\x01"), wait(100), cmd(123))
sim("wrong_lengths", cmd(119), cmd(231, b"\x01"), cmd(86, b"\x50"), cmd(125, b"\x01"))
sim("direct_answers", bytes([5, 1, KNOWN.index(247), 0]), bytes([5, 1, 0x80 | 0, 200, 0]))
