#!/usr/bin/env node
// The client as a command: --keys FILE, then the forms of the C++ tool, with its output,
// messages and exit statuses. Values go through as bytes wherever Node lets them.
import {readFileSync} from 'node:fs';
import {decodeQuery, imageQuery, parseKeys} from '../tessavant-url.js';

const USAGE =
  'usage: tessavant-url --keys FILE [--base URL] [--] PASSWORD REFERENCE\n' +
  '       tessavant-url --keys FILE [--base URL] --batch\n' +
  '       tessavant-url --keys FILE --decode QUERY_OR_URL\n' +
  '       tessavant-url --help\n';

const HELP = `
Without an option, prints the query of an image request:
    cmd=img&p=<HEX>&i=<HEX>
p is PASSWORD (the client password) encrypted with the built-in password,
i is REFERENCE (a local path or an http or https URL) encrypted with PASSWORD,
both with the triple cipher, as upper-case hex. Only the first 48 characters
of PASSWORD count.

--keys FILE      the deployment's key file, as the program was built with.
--base URL       prints URL?cmd=img&p=...&i=... instead.
--batch          reads PASSWORD<TAB>REFERENCE lines on standard input and
                 writes one query (or URL) a line, flushed line by line; a
                 line that cannot be encrypted gets "error: line N: WHY".
--decode QUERY   takes a query, or a URL with one, and prints the client
                 password on line 1 and the reference on line 2.
--               ends the options, for a PASSWORD that starts with '-'.

Exit status: 0 done, 1 a key file that cannot be read or a value that cannot
be encrypted or decrypted, 2 a wrong argument list.
`;
const NEWLINE = Buffer.from('\n');

function fail(message, status = 1) {
  process.stderr.write(message);
  process.exitCode = status;
}

// An unreadable file and a directory fail as in the C++ reader.
function loadKeys(path) {
  let text = '';
  try {
    text = readFileSync(path, 'utf8');
  } catch (e) {
    if (e.code !== 'EISDIR') throw new Error(`${path}: cannot open key file`);
  }
  return parseKeys(text, path);
}

function encode(keys, base, password, reference) {
  try {
    const query = imageQuery(keys, password, reference);
    process.stdout.write(`${base === null ? '' : base + '?'}${query}\n`);
  } catch (e) {
    fail(`tessavant-url: ${e.message}\n`);
  }
}

function answer(keys, prefix, line, number) {
  const tab = line.indexOf(9);
  try {
    if (tab < 0) throw new Error('no tab between password and reference');
    if (tab === 0) throw new Error('empty password');
    if (tab + 1 === line.length) throw new Error('empty reference');
    return `${prefix}${imageQuery(keys, line.subarray(0, tab), line.subarray(tab + 1))}\n`;
  } catch (e) {
    return `error: line ${number}: ${e.message}\n`;
  }
}

// Answers each line as soon as it is complete, for callers that keep the command running.
function batch(keys, base) {
  const prefix = base === null ? '' : base + '?';
  let pending = Buffer.alloc(0), number = 0;
  process.stdin.on('data', chunk => {
    pending = Buffer.concat([pending, chunk]);
    for (let end; (end = pending.indexOf(10)) >= 0; pending = pending.subarray(end + 1))
      process.stdout.write(answer(keys, prefix, pending.subarray(0, end), ++number));
  });
  process.stdin.on('end', () => {
    if (pending.length) process.stdout.write(answer(keys, prefix, pending, ++number));
  });
}

function decode(keys, text) {
  try {
    const {password, reference} = decodeQuery(keys, text, true);
    process.stdout.write(Buffer.concat([password, NEWLINE, reference, NEWLINE]));
  } catch (e) {
    fail(`tessavant-url: ${e.message}\n`);
  }
}

// The action for what follows --keys FILE, as the C++ tool reads its arguments; null when
// the list is wrong.
function action(rest) {
  if (rest.length === 2 && rest[0] === '--decode') return keys => decode(keys, rest[1]);
  let base = null;
  if (rest.length >= 2 && rest[0] === '--base') [base, rest] = [rest[1], rest.slice(2)];
  if (rest.length === 1 && rest[0] === '--batch') return keys => batch(keys, base);
  if (rest[0] === '--') rest = rest.slice(1);
  else if (rest.length && rest[0].startsWith('-')) return null;
  return rest.length === 2 ? keys => encode(keys, base, ...rest) : null;
}

function main(args) {
  // A reader that has gone away ends the command quietly, as it does the C++ tool.
  process.stdout.on('error', () => process.exit(1));
  if (args.length === 1 && args[0] === '--help') return void process.stdout.write(USAGE + HELP);
  const act = args[0] === '--keys' && args.length >= 2 ? action(args.slice(2)) : null;
  if (!act) return fail(USAGE, 2);
  let keys;
  try {
    keys = loadKeys(args[1]);
  } catch (e) {
    return fail(`error: malformed key file: ${e.message}\n`);
  }
  act(keys);
}

main(process.argv.slice(2));
