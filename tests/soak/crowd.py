"""Many clients at once, as a process of their own: crowd.py PORT IDLE HEADS BODIES READERS

Opens the connections, says "ready", goes on with the slow ones until its stdin ends, and then says how
many were still there. HEADS and BODIES send a byte now and then, READERS ask for the known line again
and again and hardly read.
"""

import select
import socket
import sys
import time

PAUSE = 0.5  # between two bytes of a slow client


def connected(port, count, room=None):
    made = []
    for _ in range(count):
        client = socket.socket()
        if room:
            client.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, room)
        client.settimeout(30)
        client.connect(("127.0.0.1", port))
        client.setblocking(False)
        made.append(client)
    return made


def send(client, words):
    try:
        client.send(words)
        return True
    except BlockingIOError:
        return True
    except OSError:
        return False


def read_a_little(client):
    try:
        return client.recv(64) != b""
    except BlockingIOError:
        return True
    except OSError:
        return False


def main():
    port, idle, heads, bodies, readers = map(int, sys.argv[1:])
    idle = connected(port, idle)
    heads = connected(port, heads)
    bodies = connected(port, bodies)
    readers = connected(port, readers, 4096)
    for client in heads:
        send(client, b"GET /health HTTP/1.1\r\nX-Slow: ")
    for client in bodies:
        send(client, b"POST /v1/tts HTTP/1.1\r\nContent-Length: 1000000\r\n\r\n{")
    for client in readers:
        send(client, b"GET /v1/tts?text=Known+line HTTP/1.1\r\n\r\n" * 8)
    print("ready", flush=True)
    alive = True
    while not select.select([sys.stdin], [], [], 0)[0]:
        round_end = time.monotonic() + PAUSE
        alive = all([send(client, b"a") for client in heads + bodies] +
                    [read_a_little(client) for client in readers])
        time.sleep(max(0, round_end - time.monotonic()))
    still = sum(read_a_little(client) for client in idle)
    print(f"{still} {int(alive)}", flush=True)


main()
