#!/usr/bin/python3
"""slow-origin.py PORT DELAY SIZE: on 127.0.0.1:PORT, the same SIZE bytes for every GET after
DELAY s, however many wait; /peak and /held at once: the most held at a time, and now."""
import asyncio
import signal
import sys

port, delay, size = int(sys.argv[1]), float(sys.argv[2]), int(sys.argv[3])
body, count = bytes(i % 251 for i in range(size)), {b"held": 0, b"peak": 0}
signal.signal(signal.SIGTERM, lambda *_: sys.exit())  # ends quietly


async def answer(reader, writer):
    try:
        name = (await reader.readuntil(b"\r\n\r\n")).split()[1].split(b"/")[-1]
        if name in count:
            text = b"%d" % count[name]
        else:
            count[b"held"] += 1
            count[b"peak"] = max(count.values())
            await asyncio.sleep(delay)
            count[b"held"] -= 1
            text = body
        writer.write(b"HTTP/1.1 200 OK\r\nContent-Length: %d\r\n"
                     b"Last-Modified: Sun, 06 Nov 1994 08:49:37 GMT\r\n\r\n%s" % (len(text), text))
        await writer.drain()
    except Exception:  # a client that left, or no request
        pass
    writer.close()


async def main():
    await (await asyncio.start_server(answer, "127.0.0.1", port, backlog=4096)).serve_forever()

asyncio.run(main())
