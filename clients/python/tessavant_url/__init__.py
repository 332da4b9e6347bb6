"""Makes and reads the query of a Tessavant image request, cmd=img&p=<HEX>&i=<HEX>, under a
deployment's key file: p is the client password encrypted with the built-in password, i the
reference encrypted with the client password."""
import re
from collections import namedtuple

__all__ = ['Decoded', 'decode_query', 'image_query', 'parse_keys']

ALPHABET = '0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ .,'
# The standard S-boxes, one hex digit per entry, row by row.
SBOXES = (
    'e4d12fb83a6c59070f74e2d1a6cb953841e8d62bfc973a50fc8249175b3ea06d',
    'f18e6b34972dc05a3d47f28ec01a69b50e7ba4d158c6932fd8a13f42b67c05e9',
    'a09e63f51dc7b428d709346a285ecbf1d6498f30b12c5ae71ad069874fe3b52c',
    '7de3069a1285bc4fd8b56f03472c1ae9a690cb7df13e52843f06a1d8945bc72e',
    '2c417ab6853fd0e9eb2c47d150fa3986421bad78f9c5630eb8c71e2d6f09a453',
    'c1af92680d34e75baf427c9561de0b389ef528c3704a1db6432c95fabe17608d',
    '4b2ef08d3c975a61d0b7491ae35c2f8614bdc37eaf6805926bd814a7950fe23c',
    'd2846fb1a93e50c71fd8a374c56b0e927b419ce206adf35821e74a8dfc90356b',
)
P = (16, 7, 20, 21, 29, 12, 28, 17, 1, 15, 23, 26, 5, 18, 31, 10,
     2, 8, 24, 14, 32, 27, 3, 9, 19, 13, 30, 6, 22, 11, 4, 25)
PC2 = (14, 17, 11, 24, 1, 5, 3, 28, 15, 6, 21, 10, 23, 19, 12, 4,
       26, 8, 16, 7, 27, 20, 13, 2, 41, 52, 31, 37, 47, 55, 30, 40,
       51, 45, 33, 48, 44, 49, 39, 56, 34, 53, 46, 42, 50, 36, 29, 32)
SHIFTS = (1, 1, 2, 2, 2, 2, 2, 2, 1, 2, 2, 2, 2, 2, 2, 1)
ITEMS = ('signature', 'picks', *(f'mixer{m}' for m in range(1, 19)))
# Each S-box meets the right half rotated left by this much, in its low 6 bits.
ROTATIONS = tuple((4 * s + 5) % 32 for s in range(8))
NUL_FAULT = 'a NUL byte, which the program would cut the value at'
SIGNATURE_FAULT = 'a value that starts with the signature bytes cannot be encrypted'

Decoded = namedtuple('Decoded', 'password reference')


def _sp(s, x):
    """S-box s on the 6-bit input x, then P, as a word."""
    out = int(SBOXES[s][((x >> 4) & 2 | x & 1) * 16 + (x >> 1 & 15)], 16)
    return sum(1 << (31 - j) for j, b in enumerate(P)
               if (b - 1) >> 2 == s and out >> (3 - (b - 1) % 4) & 1)


SP = tuple(tuple(_sp(s, x) for x in range(64)) for s in range(8))


def _schedule(cd):
    """The 16 subkeys of a 56-bit key (there is no PC-1), each as the eight 6-bit values
    that meet the S-boxes."""
    subkeys = []
    for shift in SHIFTS:
        c, d = cd >> 28, cd & 0xFFFFFFF
        cd = ((c << shift | c >> (28 - shift)) & 0xFFFFFFF) << 28 | (
            (d << shift | d >> (28 - shift)) & 0xFFFFFFF)
        k = 0
        for b in PC2:
            k = k << 1 | cd >> (56 - b) & 1
        subkeys.append(tuple(k >> (42 - 6 * s) & 63 for s in range(8)))
    return subkeys


def _rounds(subkeys, block, decrypt):
    """The 16 rounds on a 64-bit block, without initial or final permutation."""
    left, right = block >> 32, block & 0xFFFFFFFF
    for k in reversed(subkeys) if decrypt else subkeys:
        f = 0
        for sp, t, ks in zip(SP, ROTATIONS, k):
            f |= sp[(right << t | right >> (32 - t)) & 63 ^ ks]
        left, right = right, left ^ f
    return right << 32 | left


def _crypt(keys3, data, decrypt):
    """The triple cipher (encrypt, decrypt, encrypt) on each 8-byte block of data."""
    out = bytearray()
    for at in range(0, len(data), 8):
        block = int.from_bytes(data[at:at + 8], 'big')
        for n in (2, 1, 0) if decrypt else (0, 1, 2):
            block = _rounds(keys3[n], block, decrypt != (n == 1))
        out += block.to_bytes(8, 'big')
    return bytes(out)


def _password_keys(keys, password):
    """The three keys of a password: one state runs through the 18 mixer keys, taking in the
    first 48 bytes 8 at a time, read afresh for each key; a key is the state's first 56 bits."""
    text, state, keys3 = password[:48].ljust(48, b'\0'), 0, []
    for k in range(3):
        for m in range(6):
            block = state ^ int.from_bytes(text[8 * m:8 * m + 8], 'big')
            state = _rounds(keys['mixers'][6 * k + m], block, False)
        keys3.append(_schedule(state >> 8))
    return keys3


def _client_keys(keys, password):
    """A client password's keys. The last password's are kept: an application usually makes
    all its URLs under one, and deriving the keys costs more than the encryption."""
    last = keys.get('last')  # one pair, read and replaced whole: threads may share the keys
    if not last or last[0] != password:
        last = keys['last'] = (password, _password_keys(keys, password))
    return last[1]


def _signed(keys, data):
    return data[:16] == keys['signature']


def _encrypt(keys, keys3, plain):
    """The signature, the pad count, then the bytes and the pad in 8-byte blocks."""
    pad = -len(plain) % 8
    data = keys['signature'] + bytes([pad]) + _crypt(keys3, plain + bytes(pad), False)
    return data.hex().upper()


def _decrypt(keys3, data):
    """The plain bytes up to the first NUL, as the program reads them; None for a wrong size."""
    pad = data[16] if len(data) > 16 else 0
    if len(data) % 8 != 1 or pad > 7 or pad > len(data) - 17:
        return None
    return _crypt(keys3, data[17:], True)[:len(data) - 17 - pad].split(b'\0')[0]


def _read_signature(w, fail):
    if len(w) != 2:
        raise fail("'signature' takes one value of 32 hex digits")
    v = w[1]
    if len(v) != 32:
        raise fail(f"wrong count: 'signature' has {len(v)} hex digits, expected 32")
    bad = re.search('[^0-9a-fA-F]', v)
    if bad:
        raise fail(f"bad digit in 'signature' at position {bad.start() + 1}")
    return bytes.fromhex(v)


def _read_picks(w, fail):
    if len(w) != 36:
        raise fail(f"wrong count: 'picks' has {len(w) - 1} values, expected 35")
    for n, v in enumerate(w[1:], 1):
        if not re.fullmatch('[0-9]+', v):
            raise fail(f"bad digit in pick {n} '{v}'")
        if len(v) > 3 or int(v) > 64:
            raise fail(f'value out of range: pick {n} is {v}, expected 0 to 64')
    return [int(v) for v in w[1:]]


def _read_mixer(w, fail):
    item = w[0]
    if len(w) != 2:
        raise fail(f"'{item}' takes one value of 56 bits")
    v = w[1]
    if len(v) != 56:
        raise fail(f"wrong count: '{item}' has {len(v)} bits, expected 56")
    bad = re.search('[^01]', v)
    if bad:
        raise fail(f"bad digit in '{item}' at position {bad.start() + 1}: expected 0 or 1")
    return _schedule(int(v, 2))


def parse_keys(text, name='keys'):
    """The key file's text (str or bytes) to the keys; a fault raises ValueError with
    "NAME:LINE: WHAT", as the C++ reader does."""
    data = text.encode() if isinstance(text, str) else text
    lines = data.split(b'\n')
    if lines[-1] == b'':
        lines.pop()
    values, line = {}, 0

    def fail(what):
        # Lengths and positions count bytes, as there: each byte was one character.
        return ValueError(f'{name}:{line}: ' + what.encode('latin-1').decode(errors='replace'))

    for line, text_line in enumerate(lines, 1):
        w = [word.decode('latin-1') for word in text_line.split()]
        if not w or w[0].startswith('#'):
            continue
        if w[0] not in ITEMS:
            raise fail(f"unknown item '{w[0]}'")
        if w[0] in values:
            raise fail(f"duplicate item '{w[0]}'")
        read = {'signature': _read_signature, 'picks': _read_picks}.get(w[0], _read_mixer)
        values[w[0]] = read(w, fail)
    for item in ITEMS:
        if item not in values:
            raise fail(f"missing item '{item}'")
    keys = {'signature': values['signature'], 'mixers': [values[m] for m in ITEMS[2:]]}
    identification = ''.join(ALPHABET[pick] for pick in values['picks'])
    keys['built_in'] = _password_keys(keys, identification[5:].encode())
    return keys


def image_query(keys, password, reference):
    """The query for a client password and a reference, each str (sent as UTF-8) or bytes."""
    pw, ref = (v.encode() if isinstance(v, str) else bytes(v) for v in (password, reference))
    if b'\0' in pw or b'\0' in ref:
        raise ValueError(NUL_FAULT)
    if _signed(keys, pw) or _signed(keys, ref):
        raise ValueError(SIGNATURE_FAULT)
    return (f"cmd=img&p={_encrypt(keys, keys['built_in'], pw)}"
            f"&i={_encrypt(keys, _client_keys(keys, pw), ref)}")


def _parameter(text, name):
    """The value of name in the query part of text (after the first '?', if any), or None."""
    for pair in text[text.find('?') + 1:].split('&'):
        if pair.startswith(name + '='):
            return pair[len(name) + 1:]
    return None


def decode_query(keys, text, raw=False):
    """Decoded(password, reference) of a query or a URL with one: str, or bytes when raw."""
    values = []
    for name in 'p', 'i':
        value = _parameter(text, name)
        fault = ('is missing' if value is None
                 else 'is not hexadecimal text' if not re.fullmatch('([0-9a-fA-F]{2})*', value)
                 else 'is not an encrypted value (no signature)'
                 if not _signed(keys, bytes.fromhex(value)) else '')
        if fault:
            raise ValueError(f'parameter {name} {fault}')
        values.append(bytes.fromhex(value))
    password = _decrypt(keys['built_in'], values[0])
    reference = None if password is None else _decrypt(_client_keys(keys, password), values[1])
    if reference is None:
        raise ValueError(f"parameter {'p' if password is None else 'i'} has the wrong size for an "
                         'encrypted value (StringCrypto::cipher Wrong size)')
    if raw:
        return Decoded(password, reference)
    return Decoded(password.decode(errors='replace'), reference.decode(errors='replace'))
