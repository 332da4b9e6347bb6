"""The client as a command: --keys FILE, then the forms of the C++ tool, with its output,
messages and exit statuses. Arguments and lines go through as the bytes they are."""
import os
import signal
import sys

from . import decode_query, image_query, parse_keys

USAGE = '''\
usage: tessavant-url --keys FILE [--base URL] [--] PASSWORD REFERENCE
       tessavant-url --keys FILE [--base URL] --batch
       tessavant-url --keys FILE --decode QUERY_OR_URL
       tessavant-url --help
'''

HELP = '''
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
'''


def fail(message, status=1):
    sys.stderr.buffer.write(os.fsencode(message))
    return status


def load_keys(path):
    """An unreadable file and a directory fail as in the C++ reader."""
    try:
        with open(path, 'rb') as file:
            text = file.read()
    except IsADirectoryError:
        text = b''
    except OSError:
        raise ValueError(f'{path}: cannot open key file') from None
    return parse_keys(text, path)


def encode(keys, base, password, reference):
    try:
        query = image_query(keys, os.fsencode(password), os.fsencode(reference)).encode()
    except ValueError as e:
        return fail(f'tessavant-url: {e}\n')
    sys.stdout.buffer.write((query if base is None else os.fsencode(base) + b'?' + query) + b'\n')
    return 0


def answer(keys, prefix, line, number):
    password, tab, reference = line.partition(b'\t')
    try:
        if not tab:
            raise ValueError('no tab between password and reference')
        if not password:
            raise ValueError('empty password')
        if not reference:
            raise ValueError('empty reference')
        return prefix + image_query(keys, password, reference).encode() + b'\n'
    except ValueError as e:
        return f'error: line {number}: {e}\n'.encode()


def batch(keys, base):
    """Answers each line as soon as it is complete, for callers that keep the command running."""
    prefix = b'' if base is None else os.fsencode(base) + b'?'
    for number, line in enumerate(sys.stdin.buffer, 1):
        sys.stdout.buffer.write(answer(keys, prefix, line.removesuffix(b'\n'), number))
        sys.stdout.buffer.flush()
    return 0


def decode(keys, text):
    try:
        password, reference = decode_query(keys, text, raw=True)
    except ValueError as e:
        return fail(f'tessavant-url: {e}\n')
    sys.stdout.buffer.write(password + b'\n' + reference + b'\n')
    return 0


def action(rest):
    """The action for what follows --keys FILE, as the C++ tool reads its arguments; None
    when the list is wrong."""
    if len(rest) == 2 and rest[0] == '--decode':
        return lambda keys: decode(keys, rest[1])
    base = None
    if len(rest) >= 2 and rest[0] == '--base':
        base, rest = rest[1], rest[2:]
    if rest == ['--batch']:
        return lambda keys: batch(keys, base)
    if rest[:1] == ['--']:
        rest = rest[1:]
    elif rest and rest[0].startswith('-'):
        return None
    return (lambda keys: encode(keys, base, *rest)) if len(rest) == 2 else None


def main(args):
    # A reader that has gone away ends the command quietly, as it does the C++ tool.
    signal.signal(signal.SIGPIPE, signal.SIG_DFL)
    if args == ['--help']:
        sys.stdout.write(USAGE + HELP)
        return 0
    act = action(args[2:]) if len(args) >= 2 and args[0] == '--keys' else None
    if not act:
        return fail(USAGE, 2)
    try:
        keys = load_keys(args[1])
    except ValueError as e:
        return fail(f'error: malformed key file: {e}\n')
    return act(keys)


if __name__ == '__main__':
    sys.exit(main(sys.argv[1:]))
