// Makes and reads the query of a Tessavant image request, cmd=img&p=<HEX>&i=<HEX>, under a
// deployment's key file: p is the client password encrypted with the built-in password, i the
// reference encrypted with the client password. A plain ES module without imports, so that
// Node and browsers load it alike.

const ALPHABET = '0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ .,';
// The standard S-boxes, one hex digit per entry, row by row.
const SBOXES = [
  'e4d12fb83a6c59070f74e2d1a6cb953841e8d62bfc973a50fc8249175b3ea06d',
  'f18e6b34972dc05a3d47f28ec01a69b50e7ba4d158c6932fd8a13f42b67c05e9',
  'a09e63f51dc7b428d709346a285ecbf1d6498f30b12c5ae71ad069874fe3b52c',
  '7de3069a1285bc4fd8b56f03472c1ae9a690cb7df13e52843f06a1d8945bc72e',
  '2c417ab6853fd0e9eb2c47d150fa3986421bad78f9c5630eb8c71e2d6f09a453',
  'c1af92680d34e75baf427c9561de0b389ef528c3704a1db6432c95fabe17608d',
  '4b2ef08d3c975a61d0b7491ae35c2f8614bdc37eaf6805926bd814a7950fe23c',
  'd2846fb1a93e50c71fd8a374c56b0e927b419ce206adf35821e74a8dfc90356b',
];
const P = [16, 7, 20, 21, 29, 12, 28, 17, 1, 15, 23, 26, 5, 18, 31, 10,
  2, 8, 24, 14, 32, 27, 3, 9, 19, 13, 30, 6, 22, 11, 4, 25];
const PC2 = [14, 17, 11, 24, 1, 5, 3, 28, 15, 6, 21, 10, 23, 19, 12, 4,
  26, 8, 16, 7, 27, 20, 13, 2, 41, 52, 31, 37, 47, 55, 30, 40,
  51, 45, 33, 48, 44, 49, 39, 56, 34, 53, 46, 42, 50, 36, 29, 32];
const SHIFTS = [1, 1, 2, 2, 2, 2, 2, 2, 1, 2, 2, 2, 2, 2, 2, 1];
const ITEMS = ['signature', 'picks', ...Array.from({length: 18}, (_, m) => `mixer${m + 1}`)];
const ENCODER = new TextEncoder();
const DECODER = new TextDecoder();
const NUL_FAULT = 'a NUL byte, which the program would cut the value at';
const SIGNATURE_FAULT = 'a value that starts with the signature bytes cannot be encrypted';

// SP[s][x]: S-box s on the 6-bit input x, then P, as a word.
const SP = SBOXES.map((box, s) => Array.from({length: 64}, (_, x) => {
  const out = parseInt(box[((x >> 4) & 2 | x & 1) * 16 + (x >> 1 & 15)], 16);
  let word = 0;
  P.forEach((from, j) => {
    if ((from - 1) >> 2 === s && out >> (3 - ((from - 1) & 3)) & 1) word |= 1 << (31 - j);
  });
  return word >>> 0;
}));

// The 16 subkeys of a key given as its 28-bit halves (there is no PC-1), each as the
// eight 6-bit values that meet the S-boxes.
function schedule(c, d) {
  return SHIFTS.map(shift => {
    c = (c << shift | c >>> (28 - shift)) & 0xfffffff;
    d = (d << shift | d >>> (28 - shift)) & 0xfffffff;
    const k = [0, 0, 0, 0, 0, 0, 0, 0];
    PC2.forEach((b, j) => {
      k[j / 6 | 0] = k[j / 6 | 0] << 1 | (b <= 28 ? c >>> (28 - b) : d >>> (56 - b)) & 1;
    });
    return k;
  });
}

// The 16 rounds on the block hi:lo, without initial or final permutation. The expansion
// is a rotation per S-box.
function rounds(subkeys, hi, lo, decrypt) {
  let l = hi, r = lo;
  for (let n = 0; n < 16; n++) {
    const k = subkeys[decrypt ? 15 - n : n];
    let f = 0;
    for (let s = 0, t = 5; s < 8; s++, t = (t + 4) & 31)
      f |= SP[s][(r << t | r >>> (32 - t)) & 63 ^ k[s]];
    [l, r] = [r, (l ^ f) >>> 0];
  }
  return [r, l];
}

// The triple cipher (encrypt, decrypt, encrypt) in place on the 8 bytes at at.
function cryptBlock(keys3, bytes, at, decrypt) {
  const view = new DataView(bytes.buffer, bytes.byteOffset + at, 8);
  let block = [view.getUint32(0), view.getUint32(4)];
  for (const n of decrypt ? [2, 1, 0] : [0, 1, 2])
    block = rounds(keys3[n], ...block, decrypt !== (n === 1));
  view.setUint32(0, block[0]);
  view.setUint32(4, block[1]);
}

// The three keys of a password: one state runs through the 18 mixer keys, taking in the
// first 48 bytes 8 at a time, read afresh for each key; a key is the state's first 56 bits.
function passwordKeys(keys, password) {
  const word = at => (password[at] << 24 | password[at + 1] << 16 |
                      password[at + 2] << 8 | password[at + 3]) >>> 0;
  let hi = 0, lo = 0;
  const keys3 = [];
  for (let k = 0; k < 3; k++) {
    for (let m = 0; m < 6; m++)
      [hi, lo] = rounds(keys.mixers[6 * k + m], hi ^ word(8 * m), lo ^ word(8 * m + 4), false);
    keys3.push(schedule(hi >>> 4, (hi & 15) << 24 | lo >>> 8));
  }
  return keys3;
}

// A client password's keys. The last password's are kept: an application usually makes all
// its URLs under one, and deriving the keys costs more than the encryption.
function clientKeys(keys, password) {
  const id = password.join();
  if (keys.last?.id !== id) keys.last = {id, keys3: passwordKeys(keys, password)};
  return keys.last.keys3;
}

const hex = bytes => Array.from(bytes, b => (b < 16 ? '0' : '') + b.toString(16)).join('');
const unhex = text => Uint8Array.from(text.match(/../g) || [], h => parseInt(h, 16));
const signed = (keys, data) => data.length >= 16 && keys.signature.every((b, n) => data[n] === b);

// The signature, the pad count, then the bytes and the pad in 8-byte blocks.
function encrypt(keys, keys3, plain) {
  const pad = -plain.length & 7, out = new Uint8Array(17 + plain.length + pad);
  out.set(keys.signature);
  out[16] = pad;
  out.set(plain, 17);
  for (let at = 17; at < out.length; at += 8) cryptBlock(keys3, out, at, false);
  return hex(out).toUpperCase();
}

// The plain bytes up to the first NUL, as the program reads them; null for a wrong size.
function decrypt(keys3, data) {
  const pad = data[16];
  if ((data.length & 7) !== 1 || pad > 7 || pad > data.length - 17) return null;
  const out = data.slice(17);
  for (let at = 0; at < out.length; at += 8) cryptBlock(keys3, out, at, true);
  const plain = out.subarray(0, out.length - pad), nul = plain.indexOf(0);
  return nul < 0 ? plain : plain.subarray(0, nul);
}

function readSignature(w, fail) {
  if (w.length !== 2) throw fail("'signature' takes one value of 32 hex digits");
  const v = w[1], bad = v.search(/[^0-9a-fA-F]/);
  if (v.length !== 32)
    throw fail(`wrong count: 'signature' has ${v.length} hex digits, expected 32`);
  if (bad >= 0) throw fail(`bad digit in 'signature' at position ${bad + 1}`);
  return unhex(v);
}

function readPicks(w, fail) {
  if (w.length !== 36) throw fail(`wrong count: 'picks' has ${w.length - 1} values, expected 35`);
  return w.slice(1).map((v, n) => {
    if (!/^[0-9]+$/.test(v)) throw fail(`bad digit in pick ${n + 1} '${v}'`);
    if (v.length > 3 || +v > 64)
      throw fail(`value out of range: pick ${n + 1} is ${v}, expected 0 to 64`);
    return +v;
  });
}

function readMixer([item, v, ...more], fail) {
  if (v === undefined || more.length) throw fail(`'${item}' takes one value of 56 bits`);
  if (v.length !== 56) throw fail(`wrong count: '${item}' has ${v.length} bits, expected 56`);
  const bad = v.search(/[^01]/);
  if (bad >= 0) throw fail(`bad digit in '${item}' at position ${bad + 1}: expected 0 or 1`);
  return schedule(parseInt(v.slice(0, 28), 2), parseInt(v.slice(28), 2));
}

// The key file's text to the keys; a fault throws "NAME:LINE: WHAT", as the C++ reader does.
export function parseKeys(text, name = 'keys') {
  // Lengths and positions count bytes, as there: each UTF-8 byte becomes one character.
  const lines = Array.from(ENCODER.encode(text), b => String.fromCharCode(b)).join('')
    .split('\n');
  if (lines[lines.length - 1] === '') lines.pop();
  const values = new Map();
  let line = 0;
  const fail = what => new Error(`${name}:${line}: ` +
    DECODER.decode(Uint8Array.from(what, c => c.charCodeAt(0))));
  for (const w of lines.map(l => l.split(/[ \t\v\f\r]+/).filter(Boolean))) {
    line++;
    if (!w.length || w[0][0] === '#') continue;
    const item = ITEMS.indexOf(w[0]);
    if (item < 0) throw fail(`unknown item '${w[0]}'`);
    if (values.has(w[0])) throw fail(`duplicate item '${w[0]}'`);
    values.set(w[0], ([readSignature, readPicks][item] || readMixer)(w, fail));
  }
  const missing = ITEMS.find(item => !values.has(item));
  if (missing) throw fail(`missing item '${missing}'`);
  const keys = {signature: values.get('signature')};
  keys.mixers = ITEMS.slice(2).map(m => values.get(m));
  const id = values.get('picks').map(pick => ALPHABET[pick]).join('');
  keys.builtIn = passwordKeys(keys, ENCODER.encode(id.slice(5)));
  return keys;
}

const bytesOf = value => typeof value === 'string' ? ENCODER.encode(value) : value;

// The query for a client password and a reference, each a string (sent as UTF-8) or bytes.
export function imageQuery(keys, password, reference) {
  const [pw, ref] = [bytesOf(password), bytesOf(reference)];
  if (pw.includes(0) || ref.includes(0)) throw new Error(NUL_FAULT);
  if (signed(keys, pw) || signed(keys, ref)) throw new Error(SIGNATURE_FAULT);
  return `cmd=img&p=${encrypt(keys, keys.builtIn, pw)}` +
    `&i=${encrypt(keys, clientKeys(keys, pw), ref)}`;
}

// The value of name in the query part of text (after the first '?', if any), or null.
function parameter(text, name) {
  const pair = text.slice(text.indexOf('?') + 1).split('&').find(p => p.startsWith(name + '='));
  return pair === undefined ? null : pair.slice(name.length + 1);
}

// {password, reference} of a query or a URL with one: strings, or Uint8Arrays when raw.
export function decodeQuery(keys, text, raw = false) {
  const [p, i] = ['p', 'i'].map(name => {
    const value = parameter(text, name);
    const fault = value === null ? 'is missing'
      : !/^([0-9a-fA-F]{2})*$/.test(value) ? 'is not hexadecimal text'
        : !signed(keys, unhex(value)) ? 'is not an encrypted value (no signature)' : '';
    if (fault) throw new Error(`parameter ${name} ${fault}`);
    return unhex(value);
  });
  const wrongSize = name => new Error(`parameter ${name} has the wrong size for an encrypted ` +
    'value (StringCrypto::cipher Wrong size)');
  const password = decrypt(keys.builtIn, p);
  if (!password) throw wrongSize('p');
  const reference = decrypt(clientKeys(keys, password), i);
  if (!reference) throw wrongSize('i');
  return raw ? {password, reference}
    : {password: DECODER.decode(password), reference: DECODER.decode(reference)};
}
