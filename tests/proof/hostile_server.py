#!/usr/bin/env python3
"""A chat server gone bad, for the client's hostile-input suite.

    hostile_server.py CERT KEY MODE

Listens on 127.0.0.1 (a free port, printed as "port N" on the first line),
answers registrations as the real server would, and answers every other
request the way MODE says. It runs as a process of its own, so that what it
builds never counts in the memory of the client under test. Each request it
receives is printed as "request METHOD TARGET".
"""

import socket
import ssl
import sys
import threading
import time
import zlib

CERT, KEY, MODE = sys.argv[1], sys.argv[2], sys.argv[3]
HUGE = 200 * 1024 * 1024
BLOCK = b'{"messages":[' + b' ' * (64 * 1024 - 14) + b'\n'


def send_head(conn, status, fields):
    head = 'HTTP/1.1 %s\r\n' % status + ''.join('%s: %s\r\n' % f for f in fields) + '\r\n'
    conn.sendall(head.encode())


def answer_json(conn, body, status='200 OK'):
    data = body.encode()
    send_head(conn, status, [('Content-Type', 'application/json'),
                             ('Content-Length', str(len(data)))])
    conn.sendall(data)


def stream(conn, total, chunked):
    sent = 0
    while sent < total:
        block = BLOCK[:min(len(BLOCK), total - sent)]
        if chunked:
            conn.sendall(b'%x\r\n' % len(block) + block + b'\r\n')
        else:
            conn.sendall(block)
        sent += len(block)
    if chunked:
        conn.sendall(b'0\r\n\r\n')


def bomb():
    # 256 MiB of spaces inside a JSON array: a quarter of a megabyte once compressed.
    packer = zlib.compressobj(9, zlib.DEFLATED, 31)
    out = [packer.compress(b'[')]
    block = b' ' * (1024 * 1024)
    for _ in range(256):
        out.append(packer.compress(block))
    out.append(packer.compress(b']') + packer.flush())
    return b''.join(out)


BOMB = bomb() if MODE == 'gzip-bomb' else b''


def attack(conn, method, target):
    if MODE == 'announced':
        send_head(conn, '200 OK', [('Content-Type', 'application/json'),
                                   ('Content-Length', str(HUGE))])
        stream(conn, HUGE, False)
    elif MODE == 'chunked':
        send_head(conn, '200 OK', [('Content-Type', 'application/json'),
                                   ('Transfer-Encoding', 'chunked')])
        stream(conn, HUGE, True)
    elif MODE == 'until-close':
        send_head(conn, '200 OK', [('Content-Type', 'application/json'), ('Connection', 'close')])
        stream(conn, HUGE, False)
        return False
    elif MODE == 'gzip-bomb':
        send_head(conn, '200 OK', [('Content-Type', 'application/json'),
                                   ('Content-Encoding', 'gzip'),
                                   ('Content-Length', str(len(BOMB)))])
        conn.sendall(BOMB)
    elif MODE == 'endless-head':
        conn.sendall(b'HTTP/1.1 200 OK\r\n')
        for i in range(1_000_000):
            conn.sendall(b'X-Filler-%d: %s\r\n' % (i, b'a' * 1000))
    elif MODE == 'slow-head':
        conn.sendall(b'HTTP/1.1 200 OK\r\n')
        for _ in range(600):
            conn.sendall(b'X')
            time.sleep(0.05)
    elif MODE.startswith('redirect:'):
        send_head(conn, '302 Found', [('Location', MODE[len('redirect:'):] + target),
                                      ('Content-Length', '0')])
    elif MODE == 'error-page':
        page = b'<html><body><h1>503 Service Unavailable</h1></body></html>'
        send_head(conn, '503 Service Unavailable', [('Content-Type', 'text/html'),
                                                    ('Content-Length', str(len(page)))])
        conn.sendall(page)
    elif MODE == 'numbers':
        answer_json(conn, '{"unreadCount": 1e300, "moreMessages": false, "messages": ['
                    '{"uuid": "far", "sender": "agent", "date": 1e300, "text": "far",'
                    ' "attachments": [{"uuid": "a", "contentType": "image/png",'
                    ' "length": 1e300, "imageSize": [1e300, -5]}]}]}')
    elif MODE == 'listen':
        answer_json(conn, '{}')
    return True


def serve(conn):
    buffer = b''
    try:
        while True:
            while b'\r\n\r\n' not in buffer:
                data = conn.recv(65536)
                if not data:
                    return
                buffer += data
            head, buffer = buffer.split(b'\r\n\r\n', 1)
            lines = head.decode('latin-1').split('\r\n')
            method, target = lines[0].split(' ')[:2]
            length = 0
            for line in lines[1:]:
                name, _, value = line.partition(':')
                if name.strip().lower() == 'content-length':
                    length = int(value.strip())
            while len(buffer) < length:
                data = conn.recv(65536)
                if not data:
                    return
                buffer += data
            buffer = buffer[length:]
            print('request %s %s' % (method, target), flush=True)
            if target.endswith('/register'):
                answer_json(conn, '{"pollingInterval": 5}')
            elif not attack(conn, method, target):
                return
    except (OSError, ValueError):
        pass
    finally:
        conn.close()


def main():
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    context.load_cert_chain(CERT, KEY)
    listener = socket.socket()
    listener.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
    listener.bind(('127.0.0.1', 0))
    listener.listen(16)
    print('port %d' % listener.getsockname()[1], flush=True)
    while True:
        raw, _ = listener.accept()
        try:
            conn = context.wrap_socket(raw, server_side=True)
        except (OSError, ssl.SSLError):
            raw.close()
            continue
        threading.Thread(target=serve, args=(conn,), daemon=True).start()


main()
