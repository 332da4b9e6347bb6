#!/usr/bin/python3
"""slow-origin.py PORT DELAY SIZE: an http origin on 127.0.0.1:PORT that answers every GET after
DELAY seconds with SIZE bytes (the same bytes each time) and a fixed Last-Modified, and closes.
It never limits how many it serves at once; GET /peak and GET /held answer at once with the most
requests it has held at the same time, and with those it holds now. Ends on SIGTERM."""
import asyncio
import signal
import sys

port, delay, size = int(sys.argv[1]), float(sys.argv[2]), int(sys.argv[3])
body = bytes((i * 7 + i // 4096) & 255 for i in range(size))
head = (f"HTTP/1.1 200 OK\r\nContent-Length: {size}\r\nContent-Type: application/octet-stream\r\n"
        "Last-Modified: Sun, 06 Nov 1994 08:49:37 GMT\r\nConnection: close\r\n\r\n").encode()
held = peak = 0


async def answer(reader, writer):
    global held, peak
    try:
        request = await reader.readuntil(b"\r\n\r\n")
        path = request.split(b" ", 2)[1]
        if path.endswith((b"/peak", b"/held")):
            text = str(peak if path.endswith(b"/peak") else held).encode()
            writer.write(b"HTTP/1.1 200 OK\r\nContent-Length: %d\r\nConnection: close\r\n\r\n%s"
                         % (len(text), text))
        else:
            held += 1
            peak = max(peak, held)
            try:
                await asyncio.sleep(delay)
            finally:
                held -= 1
            writer.write(head + body)
        await writer.drain()
    except (ConnectionError, asyncio.IncompleteReadError, asyncio.LimitOverrunError, IndexError):
        pass
    finally:
        writer.close()


async def main():
    server = await asyncio.start_server(answer, "127.0.0.1", port, backlog=4096)
    stop = asyncio.get_running_loop().create_future()
    asyncio.get_running_loop().add_signal_handler(signal.SIGTERM, stop.set_result, None)
    async with server:
        await stop


asyncio.run(main())
