"""A phone that answers what no phone should: markup, long texts, bytes that are no text, marks that turn the reading
direction. It speaks the port's framing (docs/port.md) over a Unix socket."""
import os
import socket
import threading

MARKUP = '<script>window.owned = 1</script>'
ATTRIBUTE = '"><img src=x onerror="window.owned = 1">'
LONG = 'long' * 2500
BYTES = b'\xff\xfe\x80 broken \xc3( \x07\x1b[31mred'
MARKS = '\u202egnp.exe\u2066 \u200f\u05d0\u05d1\u05d2 e' + '\u0301' * 40
UNIT = ('<b>"\'&' + MARKS[:12]).encode() + b'\xff'

# What to which code; every other one gets the attribute.
ANSWERS = {
    0x013F: UNIT,
    0xF001: MARKUP.encode(),
    0xF002: ATTRIBUTE.encode(),
    0xF003: LONG.encode(),
    0xF004: BYTES,
    0xF005: MARKS.encode(),
}
SIZES = {0x013C: 5, 0xE602: 775, 0xE606: 775}  # of answers that are not 263 bytes; of 0xF0xx nobody knows one


def checksum(data):
    fcs = 0xFFFF
    for byte in data:
        fcs ^= byte
        for _ in range(8):
            fcs = (fcs >> 1) ^ (0x8408 if fcs & 1 else 0)
    return (fcs ^ 0xFFFF).to_bytes(2, 'little')


def frame(packet):
    stuffed = bytearray()
    for byte in packet + checksum(packet):
        stuffed += bytes((0x7D, byte ^ 0x20)) if byte in (0x7D, 0x7E) else bytes((byte,))
    return bytes(stuffed) + b'\x7e'


def unstuffed(data):
    packet, escaped = bytearray(), False
    for byte in data:
        if byte == 0x7D:
            escaped = True
        else:
            packet.append(byte ^ 0x20 if escaped else byte)
            escaped = False
    return bytes(packet[:-2])


def answer(request):
    code = int.from_bytes(request[2:4], 'little')
    text = ANSWERS.get(code, ATTRIBUTE.encode())
    if code == 0x013C:
        return request[:5]
    packet = request[:5].ljust(5, b'\0') + len(text).to_bytes(2, 'little') + text
    return packet if code >> 8 == 0xF0 else packet.ljust(SIZES.get(code, 263), b'\0')


def serve(connection):
    pending = b''
    try:
        while data := connection.recv(4096):
            pending += data
            while b'\x7e' in pending:
                one, pending = pending.split(b'\x7e', 1)
                packet = unstuffed(one)
                if len(packet) >= 4:
                    connection.sendall(frame(answer(packet)))
    except OSError:
        pass


def start(path):
    """Serves at `path` until the process ends."""
    if os.path.exists(path):
        os.unlink(path)
    listener = socket.socket(socket.AF_UNIX)
    listener.bind(path)
    listener.listen(16)

    def accept():
        while True:
            connection, _ = listener.accept()
            threading.Thread(target=serve, args=(connection,), daemon=True).start()

    threading.Thread(target=accept, daemon=True).start()
