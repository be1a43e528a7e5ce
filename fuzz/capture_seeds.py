#!/usr/bin/env python3
"""Captures the fuzz targets' seed corpora from a real zuvero-devserver.

    fuzz/capture_seeds.py BUILD_DIR

Starts the server built in BUILD_DIR on a free port with a fresh data
folder, talks to it as a client would (registration, messages with files
and a location, the listing, agents' answers, the push stream, injected
faults) and writes what it received under fuzz/seeds/<target>/. Run it
again after the server's replies change; the files are committed.
"""

import base64
import gzip
import hashlib
import hmac
import http.client
import json
import os
import shutil
import ssl
import struct
import subprocess
import sys
import tempfile
import threading
import time
import uuid
import zlib

HERE = os.path.dirname(os.path.abspath(__file__))
SEEDS = os.path.join(HERE, "seeds")
SOURCE = os.path.dirname(HERE)
SECRET_HEX = "7a757665726f2d7365637265742d3432"


def b64url(data):
    return base64.urlsafe_b64encode(data).rstrip(b"=").decode()


def sign(claims, secret, algorithm="HS256"):
    header = b64url(json.dumps({"alg": algorithm, "typ": "JWT"}, separators=(",", ":")).encode())
    payload = b64url(json.dumps(claims, separators=(",", ":")).encode())
    digest = hashlib.sha256 if algorithm == "HS256" else hashlib.sha512
    signature = hmac.new(secret, f"{header}.{payload}".encode(), digest).digest()
    return f"{header}.{payload}.{b64url(signature)}"


class Server:
    def __init__(self, build):
        self.data = tempfile.mkdtemp(prefix="zuvero-seeds-")
        self.process = subprocess.Popen(
            [os.path.join(build, "devserver", "zuvero-devserver"), "--data", self.data,
             "--port", "0", "--api-secret", SECRET_HEX, "--admin", "--bot", "--bot-delay", "50",
             "--welcome-message", "Welcome! How can we help?"],
            stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
        authority = None
        self.console_key = ""
        for line in self.process.stdout:
            if "certificate authority: " in line:
                authority = line.split(": ", 2)[2].strip()
            if "console: " in line and "key=" in line:
                # The console answers only its agent: the key it printed, with its own origin.
                self.console_key = line.strip().rsplit("key=", 1)[1]
            if "listening on " in line:
                self.port = int(line.rsplit(":", 1)[1])
                break
        self.context = ssl.create_default_context(cafile=authority)

    def connection(self):
        return http.client.HTTPSConnection("127.0.0.1", self.port, context=self.context)

    def request(self, method, path, token=None, body=None, headers=None):
        connection = self.connection()
        all_headers = dict(headers or {})
        if token:
            all_headers["X-ZVL-JWT"] = token
        if path.startswith("/console"):
            all_headers["X-Zuvero-Console"] = self.console_key
            all_headers["Origin"] = "https://127.0.0.1:%d" % self.port
        connection.request(method, path, body=body, headers=all_headers)
        response = connection.getresponse()
        reply = (response.status, response.getheaders(), response.read())
        connection.close()
        return reply

    def stop(self):
        self.process.terminate()
        self.process.wait()
        shutil.rmtree(self.data, ignore_errors=True)


def multipart(message, files=()):
    boundary = "Boundary+ZVX" + uuid.uuid4().hex
    parts = [(b'Content-Disposition: form-data; name="message"\r\n'
              b"Content-Type: application/json\r\n\r\n" + json.dumps(message).encode())]
    for file_uuid, content_type, data in files:
        parts.append((f'Content-Disposition: form-data; name="{file_uuid}"; '
                      f'filename="{file_uuid}"\r\nContent-Type: {content_type}\r\n\r\n').encode()
                     + data)
    body = b"".join(b"--" + boundary.encode() + b"\r\n" + part + b"\r\n" for part in parts)
    return body + b"--" + boundary.encode() + b"--\r\n", f"multipart/form-data; boundary={boundary}"


def write(target, name, data):
    folder = os.path.join(SEEDS, target)
    os.makedirs(folder, exist_ok=True)
    with open(os.path.join(folder, name), "wb") as out:
        out.write(data if isinstance(data, bytes) else data.encode())


def reply_seed(status, headers, body, flags=0x3):
    """The reply target's input: flags, status, headers, body."""
    seed = bytes([flags]) + struct.pack(">H", status)
    headers = [(n.encode(), v.encode()) for n, v in headers][:7]
    seed += bytes([len(headers)])
    for name, value in headers:
        name, value = name[:31], value[:63]
        seed += bytes([len(name)]) + name + bytes([len(value)]) + value
    return seed + body


def png():
    def chunk(kind, data):
        return (struct.pack(">I", len(data)) + kind + data
                + struct.pack(">I", zlib.crc32(kind + data)))
    rows = b"".join(b"\x00" + b"\x20\x80\xc0" * 4 for _ in range(3))
    return (b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", 4, 3, 8, 2, 0, 0, 0))
            + chunk(b"IDAT", zlib.compress(rows)) + chunk(b"IEND", b""))


def main():
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    server = Server(os.path.abspath(sys.argv[1]))
    secret = bytes.fromhex(SECRET_HEX)
    installation = str(uuid.uuid4()).upper()
    claims = {"apiKey": hashlib.sha256(secret).hexdigest(), "installationId": installation,
              "userId": "seed-user", "userName": "Ana Seed",
              "extra": {"plan": "gold", "orders": [1042, 1043]}}
    token = sign(claims, secret)
    try:
        for target in ("message", "attachment", "push", "jwt", "hex", "base64url", "reply"):
            shutil.rmtree(os.path.join(SEEDS, target), ignore_errors=True)

        device = "9f2c4e1a7b3d5f608192a3b4c5d6e7f8"
        status, headers, body = server.request(
            "POST", "/api/1.0/register", token,
            json.dumps({"deviceToken": device, "userName": "Ana Seed",
                        "deviceInfo": "Computer (x86_64); debian 12", "appId": "seeds",
                        "appVersion": "1", "apns": "development"}),
            {"Content-Type": "application/json"})
        write("reply", "register", reply_seed(status, headers, body))

        # The push stream, read while the bot and an agent answer.
        pushes = []
        def listen():
            connection = server.connection()
            connection.request("GET", "/api/1.0/push", headers={"X-ZVL-JWT": token})
            stream = connection.getresponse()
            while len(pushes) < 4:
                line = stream.fp.readline()
                if not line:
                    break
                if line.startswith(b"data: "):
                    pushes.append(line[6:].strip())
        listener = threading.Thread(target=listen, daemon=True)
        listener.start()
        time.sleep(0.3)

        sent = [({"uuid": str(uuid.uuid4()), "sender": "user",
                  "text": "Hello, my order #1042 has not arrived. Grüße ✓"}, []),
                ({"uuid": str(uuid.uuid4()), "sender": "user", "text": "Here is the label",
                  "attachments": [{"uuid": "a1-" + uuid.uuid4().hex}]}, ["image/png"]),
                ({"uuid": str(uuid.uuid4()), "sender": "user",
                  "location": {"lat": 48.8584, "lng": 2.2945, "d": 350.0,
                               "address": "Champ de Mars, Paris"}}, []),
                ({"uuid": str(uuid.uuid4()), "sender": "user",
                  "attachments": [{"uuid": "a2-" + uuid.uuid4().hex},
                                  {"uuid": "a3-" + uuid.uuid4().hex}]},
                 ["application/pdf", "text/plain"])]
        contents = {"image/png": png(), "application/pdf": b"%PDF-1.4\n%\xe2\xe3\n1 0 obj\n<<>>\nendobj\n",
                    "text/plain": "Order 1042\nShipped: no\n".encode()}
        for message, types in sent:
            files = [(a["uuid"], t, contents[t]) for a, t in zip(message.get("attachments", []), types)]
            body, content_type = multipart(message, files)
            status, headers, reply = server.request("POST", "/api/1.0/messages", token, body,
                                                    {"Content-Type": content_type})
            assert status == 200, reply
        write("reply", "send", reply_seed(status, headers, reply))

        time.sleep(0.5)  # the bot's answers
        status, headers, page = server.request("GET", "/api/1.0/messages?limit=50", token)
        assert status == 200, page
        write("message", "page", page)
        write("reply", "page", reply_seed(status, headers, page))
        listing = json.loads(page)
        for i, message in enumerate(listing["messages"]):
            write("message", f"entry-{i}", json.dumps(message, ensure_ascii=False))
            for j, attachment in enumerate(message.get("attachments", [])):
                write("attachment", f"entry-{i}-{j}", json.dumps(attachment, ensure_ascii=False))

        # The same page compressed, as the library asks for it.
        status, headers, compressed = server.request("GET", "/api/1.0/messages?limit=50", token,
                                                     headers={"Accept-Encoding": "gzip"})
        encoding = dict((n.lower(), v) for n, v in headers).get("content-encoding", "")
        if encoding == "gzip":
            write("reply", "page-gzip", reply_seed(status, headers, compressed, 0x3 | 0x8))
        else:
            write("reply", "page-gzip", reply_seed(status, headers + [("Content-Encoding", "gzip")],
                                                   gzip.compress(page), 0x3 | 0x8))
        write("reply", "page-deflate", reply_seed(status, headers, zlib.compress(page), 0x3 | 0x10))

        status, headers, reply = server.request("GET", "/api/1.0/status", token)
        write("reply", "status", reply_seed(status, headers, reply))
        status, headers, reply = server.request(
            "POST", "/api/1.0/mark_messages", token,
            json.dumps({"readMessageUUIDs": [m["uuid"] for m in listing["messages"]],
                        "lastReadMessageDate": 1700000000}),
            {"Content-Type": "application/json"})
        write("reply", "mark", reply_seed(status, headers, reply))
        status, headers, reply = server.request("GET", "/api/1.0/status", "not.a.token")
        write("reply", "refused-token", reply_seed(status, headers, reply))
        for kind in ("status", "nonJSON", "empty"):
            server.request("POST", "/admin/faults", None,
                           json.dumps({"path": "/api/1.0/status", "kind": kind,
                                       "status": 204 if kind == "empty" else 503}),
                           {"Content-Type": "application/json"})
            status, headers, reply = server.request("GET", "/api/1.0/status", token)
            write("reply", f"fault-{kind}", reply_seed(status, headers, reply))
        write("reply", "no-response", bytes([0x1 | 0x4, 0, 0, 0]))

        # An agent's answer from the console, pushed to the device.
        conversations = json.loads(server.request("GET", "/console/api/conversations")[2])
        conversation = next(c for c in conversations["conversations"] if c.get("userId") == "seed-user")
        form = (b"--B\r\nContent-Disposition: form-data; name=\"text\"\r\n\r\n"
                + "Your parcel left the depot this morning; it arrives tomorrow.".encode() + b"\r\n--B--\r\n")
        server.request("POST", f"/console/api/conversations/{conversation['id']}/messages", None, form,
                       {"Content-Type": "multipart/form-data; boundary=B"})
        listener.join(timeout=5)
        for i, push in enumerate(pushes):
            write("push", f"stream-{i}", push)

        # Tokens: as the library signs them, HS512, and their parts.
        write("jwt", "hs256", b"\x00" + token.encode())
        write("jwt", "hs512", b"\x01" + sign(claims, secret, "HS512").encode())
        write("jwt", "claims", b"\x00" + json.dumps(claims).encode())
        write("jwt", "claims-none", b"\x02" + json.dumps(claims).encode())
        for name, segment in zip(("header", "claims", "signature"), token.split(".")):
            write("base64url", f"token-{name}", segment)
        write("hex", "secret", SECRET_HEX)
        write("hex", "device-token", " 0x" + device.upper())
    finally:
        server.stop()

    # Configuration files: the library's own and the tests' (with a bad value of each kind).
    for target in ("plist", "configuration"):
        for name, path in (("library", "resources/ZuveroConfig.plist.in"),
                           ("host", "tests/core/data/ZuveroConfig.plist")):
            with open(os.path.join(SOURCE, path), "rb") as source:
                write(target, name, source.read())
    write("configuration", "json", json.dumps({
        "apiSecret": SECRET_HEX, "hostname": "127.0.0.1:8443", "language": "de-DE",
        "title": "Hilfe", "tintColor": "#0F80F0", "interactiveNotification": True,
        "messageFont": {"name": "DejaVu Sans", "size": 15},
        "agentMessageBubbleInsets": {"top": 8, "left": 28, "bottom": 8, "right": 13},
        "userMessageBubbleImage": {"imgName": "Zuvero.bundle/ZuveroUserBubble",
                                   "top": 18, "left": 19, "bottom": 18, "right": 36}}, indent=2))


if __name__ == "__main__":
    main()
