"""The 64-bit name hash of the tuning file: a right-shifting CRC over the polynomial value
0x42F0E1EBA9EA3693, complemented on entry and exit, run over the name's bytes and then over the
four bytes of its length, least significant first. Names are hashed at generation time and
emitted as constants."""

_POLYNOMIAL = 0x42F0E1EBA9EA3693


def _make_table():
    table = []
    for index in range(256):
        crc = index
        for _ in range(8):
            crc = (crc >> 1) ^ _POLYNOMIAL if crc & 1 else crc >> 1
        table.append(crc)
    return table


_TABLE = _make_table()


def crc64(data, add_length=True, seed=0):
    """CRC of data (bytes) continued from seed; with add_length the little-endian u32 length
    follows the data through the CRC."""
    mask = (1 << 64) - 1
    crc = ~seed & mask
    tail = len(data).to_bytes(4, "little") if add_length else b""
    for byte in bytes(data) + tail:
        crc = _TABLE[(byte ^ crc) & 0xFF] ^ (crc >> 8)
    return ~crc & mask


def name_hash(name):
    """The hash under which a member or module name is matched in a tuning file."""
    return crc64(name.encode("ascii"))
