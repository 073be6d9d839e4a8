#!/usr/bin/env python3
"""Writes the seed inputs of fuzz_hcp into fuzz/seeds/ (layout: fuzz/hcp_fuzz_driver.h)."""
import os
import struct

HERE = os.path.dirname(os.path.abspath(__file__))


def frame(link, flags, payload):
    n = len(payload)
    body = bytes([0, link, (flags & ~3) | ((n >> 8) & 3), n & 0xFF]) + payload
    cks = (-sum(body)) & 0xFFFF
    return body + bytes([cks >> 8, cks & 0xFF])


ACK = bytes.fromhex("00014800FFB7")
NACK = bytes.fromhex("00010800FFF7")


def reply(payload, last):
    return frame(0, 0x80 | (0x08 if last else 0), payload)


def event(payload, last=True):
    return frame(2, 0x80 | (0x08 if last else 0), payload)


def chunk(data, number):
    if len(data) > 0xEF:
        return bytes([0xF4, number & 0xFF]) + struct.pack(">H", len(data)) + data
    return bytes([len(data), number & 0xFF]) + data


SEEDS = {
    "reply_three_frames": bytes([3]) + chunk(reply(b"RESPONSE\r\nmodel\r\n", False), 1)
    + chunk(reply(b"serial\r\n", False), 2) + chunk(reply(b"PASSED\r\n", True), 3),
    "header_ack_then_reply": bytes([1]) + chunk(ACK + ACK, 1)
    + chunk(reply(b"GET ADMIN TOOL_INFO\r\nA\r\nERRORCODE,0\r\n", True), 2),
    "events_idle": bytes([0]) + chunk(event(b"SET EVENT LOG\r\nTQ,1\r\n", False), 5)
    + chunk(event(b"HCD\r\nFAILED\r\n", True), 5) + chunk(reply(b"SET EVENT LOG\r\nX\r\n", True), 6),
    "tool_error": bytes([3]) + chunk(reply(b"ERRORCODE,3\r\n", False), 1) + chunk(NACK, 2),
    "junk_and_noise": bytes([2]) + chunk(b"\xff" * 6 + b"A", 1) + chunk(b"ABC" + ACK[:4], 2) + chunk(ACK[4:], 3),
    "overflow": bytes([3]) + chunk(bytes.fromhex("00008BFF"), 1) + bytes([0xF3, 7, ord("n"), 2]),
    "retries": bytes([1]) + bytes([0xF1]) * 7 + chunk(ACK, 9),
    "reset_and_request": bytes([3]) + chunk(reply(b"a\r\n", False), 1) + bytes([0xF0, 0xF2, 1])
    + chunk(ACK, 2) + chunk(ACK, 3) + chunk(reply(b"b\r\n", True), 4),
    "long_frame_pieces": bytes([3]) + b"".join(
        chunk(piece, i + 1) for i, piece in enumerate(
            (lambda f: [f[k:k + 40] for k in range(0, len(f), 40)])(reply(b"x" * 300 + b"\r\n", True)))),
    "loopback_reset": bytes([3 | 4 | 8 | 16]) + chunk(reply(b"one\r\n", True), 1) + bytes([0xF2, 0])
    + chunk(event(b"E\r\n"), 2) + chunk(reply(b"two\r\n", True), 3),
}

if __name__ == "__main__":
    os.makedirs(os.path.join(HERE, "seeds"), exist_ok=True)
    for name, data in SEEDS.items():
        with open(os.path.join(HERE, "seeds", name), "wb") as f:
            f.write(data)
    print(len(SEEDS), "seeds written")
